// Lives the panels of the corpus over and over, each time with another failing operation. Objects on the heap,
// descriptors and threads must be the same at the end as after two rounds.
#include "tests/lab/PanelLab.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iterator>
#include <new>
#include <tuple>

namespace {

std::atomic<std::size_t> heldObjects{0};

std::size_t entriesOf(const char* directory)
{
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

/** @return objects on the heap, descriptors, threads */
std::tuple<std::size_t, std::size_t, std::size_t> takeStock()
{
    return {heldObjects, entriesOf("/proc/self/fd"), entriesOf("/proc/self/task")};
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
    try {
        const auto scripts = panelScripts();
        std::uint64_t operations = 0;
        std::tuple<std::size_t, std::size_t, std::size_t> first;
        for (unsigned long round = 0; round < rounds; ++round) {
            for (const PanelScript& script : scripts) {
                operations += livePanel(script.text, {round, static_cast<PinFailure::Kind>(round % 4)}).operations;
            }
            first = round == 1 ? takeStock() : first;
        }
        const auto last = takeStock();
        std::printf(
            "soak: %lu rounds of %zu panels, %llu pin operations; %zu objects on the heap after 2 rounds, %zu at the "
            "end; descriptors %zu, %zu; threads %zu, %zu\n",
            rounds, scripts.size(), static_cast<unsigned long long>(operations), std::get<0>(first), std::get<0>(last),
            std::get<1>(first), std::get<1>(last), std::get<2>(first), std::get<2>(last));
        return rounds > 1 && first == last ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return 1;
    }
}
