// The kit's own main: each case runs in a process of its own, because the stack starts once in a process and
// some cases need settings or a clock that hold from its start.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

namespace
{

// A case that runs longer hangs: the process is ended. IPSTACK_KIT_LIMIT_S sets another limit, 0 none.
constexpr unsigned int s_dwCaseLimitSeconds = 240;

void LimitThisProcess()
{
    const char* const text = std::getenv("IPSTACK_KIT_LIMIT_S");
    alarm(text ? static_cast<unsigned int>(std::strtoul(text, nullptr, 10)) : s_dwCaseLimitSeconds);
}

// What the filter selects, as the listing of a second run of this program says it.
std::vector<std::string> SelectedCases(const std::string& program, const std::string& filter)
{
    std::vector<std::string> cases;
    FILE* const listing = popen(("'" + program + "' --gtest_list_tests '--gtest_filter=" + filter + "'").c_str(), "r");
    if (!listing) {
        return cases;
    }
    std::string suite;
    char line[512];
    while (std::fgets(line, sizeof(line), listing)) {
        std::string text(line);
        text.erase(text.find_last_not_of(" \r\n") + 1);
        if (text.compare(0, 2, "  ") == 0) {
            cases.push_back(suite + text.substr(2));
        } else if (!text.empty() && text.back() == '.') {
            suite = text;
        }
    }
    pclose(listing);
    return cases;
}

int RunEachAlone(const std::string& program, const std::vector<std::string>& cases)
{
    std::vector<std::string> failed;
    for (const std::string& one : cases) {
        if (std::system(("'" + program + "' --gtest_brief=1 '--gtest_filter=" + one + "'").c_str()) != 0) {
            failed.push_back(one);
        }
    }
    std::cout << "ipstack_kit: " << cases.size() - failed.size() << " of " << cases.size() << " cases passed\n";
    for (const std::string& one : failed) {
        std::cout << "failed: " << one << '\n';
    }
    return failed.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const std::string filter = GTEST_FLAG_GET(filter);
    const bool oneCase = filter.find_first_of("*?:-") == std::string::npos;
    if (!GTEST_FLAG_GET(list_tests) && !oneCase) {
        const std::vector<std::string> cases = SelectedCases(argv[0], filter);
        if (cases.size() > 1) {
            return RunEachAlone(argv[0], cases);
        }
    }
    LimitThisProcess();
    return RUN_ALL_TESTS();
}
