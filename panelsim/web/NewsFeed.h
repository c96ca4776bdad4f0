#pragma once

#include "panelsim/board/Simulation.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace panelsim {

/**
 * Follows a simulation from a thread of its own and keeps the newest state text for all pages, made once after some
 * changes rather than after each. All operations may be called from several threads.
 */
class NewsFeed {
public:
    using Clock = std::chrono::steady_clock;

    /** What there is to tell. */
    struct News {
        std::uint64_t number = 0;                 ///< counts the news, from 1 on
        std::shared_ptr<const std::string> state; ///< as stateJson gives it; the same object while it has not changed
        std::uint64_t logVersion = 0;             ///< of the simulation's log
        bool last = false;                        ///< whether no more are to come
    };

    /** @param simulation must outlive the feed */
    explicit NewsFeed(Simulation& simulation);
    ~NewsFeed();

    NewsFeed(const NewsFeed&) = delete;
    NewsFeed& operator=(const NewsFeed&) = delete;

    /** Says from now on that the application can, or cannot, be started again. */
    void offerRestart(bool offered);
    bool offersRestart() const;

    /** @return the news, once their number differs from the one seen or the deadline is over */
    News wait(std::uint64_t seen, Clock::time_point deadline) const;

    /** Tells the last news. From one thread only. */
    void finish();

private:
    void follow();
    void publish(bool last);

    Simulation& simulation;
    std::atomic<bool> restart{false};
    std::atomic<bool> finishing{false};
    mutable std::mutex mutex;
    mutable std::condition_variable published;
    News news;
    std::thread follower;
};

} // namespace panelsim
