// Passes the files of the folder that is given to a fuzz target, once each.
#include "tests/fuzz/Check.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

int main(int, char** argv)
{
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string input{std::istreambuf_iterator<char>(file), {}};
        std::fprintf(stderr, "%s\n", entry.path().c_str()); // the last one is the one that failed
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    }
    return 0;
}
