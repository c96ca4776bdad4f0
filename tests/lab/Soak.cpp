// Passes random inputs to the fuzz target of panels. As many objects must be on the heap at the end as at first.
#include "tests/fuzz/Check.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <vector>

namespace {

std::atomic<long> heldObjects{0};

} // namespace

void* operator new(std::size_t size)
{
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++heldObjects;
    return memory;
}

void operator delete(void* memory) noexcept
{
    heldObjects -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}

int main(int argc, char** argv)
{
    const unsigned long rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 20000;
    long first = 0;
    for (unsigned long round = 0; round <= rounds; ++round) { // the first one allocates what stays
        first = round == 1 ? heldObjects.load() : first;
        std::mt19937 random(static_cast<unsigned>(round));
        std::vector<std::uint8_t> input(10 + random() % 100);
        for (std::uint8_t& byte : input) {
            byte = static_cast<std::uint8_t>('!' + random() % 94); // any that can be printed
        }
        std::printf("soak: round %lu: %.*s\r", round, static_cast<int>(input.size()),
                    reinterpret_cast<const char*>(input.data()));
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::printf("\nsoak: %lu rounds; objects on the heap %ld, then %ld\n", rounds, first, heldObjects.load());
    return first == heldObjects ? 0 : 1;
}
