// Passes random inputs to the fuzz target of panels. In the second half of the rounds, no memory may be kept.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <random>
#include <string>
#include <thread>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace {

void live(unsigned long round)
{
    std::mt19937 random(static_cast<unsigned>(round));
    std::string input(10 + random() % 100, ' ');
    for (char& byte : input) {
        byte = "pPwceBrxlLsSkq0123456789~"[random() % 25];
    }
    std::printf("soak: round %lu: %s\r", round, input.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned long rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 20000;
    std::size_t held[] = {0, 0};
    for (unsigned long round = 0; round <= rounds; ++round) {
        std::thread(live, round).join(); // the C library's cache of free memory goes with a thread
        held[2 * round / (rounds + 1)] = mallinfo2().uordblks;
    }
    std::printf("\nsoak: %lu rounds; bytes on the heap %zu, then %zu\n", rounds, held[0], held[1]);
    return held[0] == held[1] ? 0 : 1;
}
