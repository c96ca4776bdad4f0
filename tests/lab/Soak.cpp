// Lives the panels of the corpus over and over, each time with another failing operation. Objects on the heap,
// descriptors and threads must be the same at the end as after two rounds.
#include "tests/lab/PanelLab.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <new>

namespace {

std::atomic<std::size_t> heldObjects{0};

std::size_t entriesOf(const char* directory)
{
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

/** @return objects on the heap, descriptors, threads */
std::array<std::size_t, 3> takeStock()
{
    return {heldObjects.load(), entriesOf("/proc/self/fd"), entriesOf("/proc/self/task")};
}

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
    std::uint64_t operations = 0;
    std::array<std::size_t, 3> first{};
    for (unsigned long round = 0; round < rounds; ++round) {
        for (const PanelScript& script : panelScripts()) {
            operations += livePanel(script.text, {round, static_cast<PinFailure::Kind>(round % 4)}).operations;
        }
        first = round == 1 ? takeStock() : first;
    }
    const auto last = takeStock();
    std::printf("soak: %lu rounds, %llu pin operations; after 2 rounds and at the end: objects on the heap %zu, %zu; "
                "descriptors %zu, %zu; threads %zu, %zu\n",
                rounds, static_cast<unsigned long long>(operations), first[0], last[0], first[1], last[1], first[2],
                last[2]);
    return rounds > 1 && first == last ? 0 : 1;
}
