// Passes the files of a folder to a fuzz target, once each.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

int main(int, char** argv)
{
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<std::uint8_t> input(std::istreambuf_iterator<char>(file), {});
        std::fprintf(stderr, "%s\n", entry.path().c_str()); // the last one is the one that failed
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
}
