// Runs each file named on the command line through a fuzzer once.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int count, char** arguments)
{
    for (int i = 1; i < count; ++i) {
        std::ifstream file(arguments[i], std::ios::binary);
        if (!file) {
            std::fprintf(stderr, "cannot read %s\n", arguments[i]);
            return 1;
        }
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        std::printf("%s: %zu bytes\n", arguments[i], bytes.size());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    return 0;
}
