#pragma once

#include "panelsim/board/Simulation.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>

struct MHD_Connection;
struct MHD_Response;

namespace panelsim {

/** The pages that are connected: follows the simulation from a thread of its own and sends them what has changed. */
class EventStreams {
public:
    /** @param simulation must outlive this object @param command the application's, for the pages to show */
    EventStreams(Simulation& simulation, std::string command);
    ~EventStreams() { finish(); }

    EventStreams(const EventStreams&) = delete;
    EventStreams& operator=(const EventStreams&) = delete;

    /** @return the events for the page of that connection; null when there are too many pages */
    MHD_Response* open(MHD_Connection* connection);
    bool isConnected(Board::Hand page);

    /** Says from now on whether the application can be started again, which it cannot at first. From any thread. */
    void offerRestart(bool offered);
    bool offersRestart() const { return restart; }

    /** Sends the last news; waits a second at most for the pages to take them. */
    void finish();

private:
    using Clock = std::chrono::steady_clock;

    struct Stream {
        EventStreams& owner;
        MHD_Connection* connection;
        Board::Hand page;
        std::string unsent;
        std::uint64_t state = 0;    ///< version that was sent
        std::uint64_t log = 0;      ///< version that was sent
        std::uint64_t nextLine = 0; ///< of the log
        bool due = false;           ///< whether something has to be sent
        bool suspended = false;
    };

    ssize_t read(Stream& stream, char* bytes, std::size_t most);
    std::string newEvents(Stream& stream) const;
    void close(Board::Hand page);
    void follow();
    void publish();

    Simulation& simulation;
    const std::string command;
    std::atomic<bool> restart{false};
    std::atomic<bool> finishing{false};
    std::mutex mutex; ///< guards what follows
    std::condition_variable closed;
    std::map<Board::Hand, Stream> streams;
    Board::Hand lastPage = 0;
    std::string state; ///< the event that shows it
    std::uint64_t stateVersion = 0;
    std::uint64_t log = 0;     ///< version that the pages are to have
    bool last = false;         ///< whether nothing more is to come
    Clock::time_point logDue;  ///< when the next lines may be sent
    Clock::time_point beatDue; ///< when something has to be sent
    std::thread follower;
};

} // namespace panelsim
