#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace panelsim {

/**
 * The clock of a board whose pins are in another process: while a thread carries out an operation, the time is the one
 * that the application stamped it with, so that traces show the application's timing and not that of its transport.
 * It never goes back and is never ahead of the real time, whatever the stamps say. Usable from several threads.
 */
class StampedClock {
public:
    /** The calling thread carries out an operation of that time, as long as this object lives. */
    class Operation {
    public:
        explicit Operation(std::chrono::nanoseconds stamp);
        ~Operation();

        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;
    };

    std::chrono::nanoseconds now();

private:
    std::atomic<std::int64_t> latest{0};
};

} // namespace panelsim
