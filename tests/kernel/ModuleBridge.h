#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/board/FileDescriptor.h"
#include "tests/kernel/module/panel_gpio.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

/**
 * Answers the requests of the module panel_gpio from a board, on a thread of its own. A line's offset in the module is
 * its GPIO number on the board.
 */
class ModuleBridge {
public:
    using Filter = std::function<bool(const panel_gpio_request&)>;

    /** @param board must outlive this object */
    explicit ModuleBridge(panelsim::Board& board);
    ~ModuleBridge();

    ModuleBridge(const ModuleBridge&) = delete;
    ModuleBridge& operator=(const ModuleBridge&) = delete;

    /** Leaves the first request that the filter takes, and with it all that follow, unanswered until letGo. */
    void hold(Filter filter);
    /** @return whether a request is held */
    bool isHolding() const;
    /** Answers the request that is held, if any, and holds no other. */
    void letGo();

    /** @return number of requests that were answered */
    std::uint64_t answered() const { return answerCount; }

private:
    void run();
    bool waitForRequest() const;
    void waitWhileHeld(const panel_gpio_request& request);
    panel_gpio_reply answer(const panel_gpio_request& request);
    bool perform(const panel_gpio_request& request);

    panelsim::Board& board;
    panelsim::FileDescriptor device;
    panelsim::FileDescriptor stopEvent;
    std::set<unsigned> outputs;
    std::atomic<std::uint64_t> answerCount{0};

    mutable std::mutex mutex;
    std::condition_variable changed;
    Filter filter;
    bool holding = false;

    std::thread thread;
};
