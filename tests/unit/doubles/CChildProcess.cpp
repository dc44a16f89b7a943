#include "tests/unit/doubles/CChildProcess.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr const char* CHILD_MARK = "UXPORT_TEST_CHILD";
constexpr unsigned int CHILD_LIMIT_S = 50;

std::string ReadAll(std::FILE* file)
{
    std::string text;
    std::rewind(file);
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file))
        text += static_cast<char>(c);
    return text;
}

}  // namespace

int CChildProcess::RunChild(int output)
{
    const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
    std::string program = "/proc/self/exe";
    std::string filter = std::string("--gtest_filter=") + info->test_suite_name() + "." + info->name();
    std::string mark = std::string(CHILD_MARK) + "=1";
    char* const arguments[] = {&program[0], &filter[0], nullptr};
    std::vector<char*> variables;
    for (char** variable = environ; *variable; ++variable)
        variables.push_back(*variable);
    variables.push_back(&mark[0]);
    variables.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    pid_t child = -1;
    const int error = ::posix_spawn(&child, program.c_str(), &actions, nullptr, arguments, variables.data());
    ::posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    if (error == 0)
        ::waitpid(child, &status, 0);
    return status;
}

void CChildProcess::Run(const std::function<void()>& body)
{
    if (std::getenv(CHILD_MARK)) {
        ::alarm(CHILD_LIMIT_S);
        body();
        return;
    }
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(std::tmpfile(), &std::fclose);
    ASSERT_TRUE(output);
    const int status = RunChild(::fileno(output.get()));
    const std::string text = ReadAll(output.get());
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status) << "\n" << text;
    EXPECT_EQ(WEXITSTATUS(status), 0) << text;
    for (const char* trouble : {"Failure", "check failed", "Sanitizer", "runtime error", "clean-up:"})
        EXPECT_EQ(text.find(trouble), std::string::npos) << text;
}
