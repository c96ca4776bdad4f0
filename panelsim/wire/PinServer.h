#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/board/FileDescriptor.h"
#include "panelsim/wire/PinSession.h"
#include "panelsim/wire/Protocol.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace panelsim {

/**
 * Lets applications of the same user have pins on a board, from other processes. An application that ends, in whatever
 * way, leaves its lines free. The board should use a StampedClock.
 */
class PinServer {
public:
    using Complain = std::function<void(const std::string&)>;

    static constexpr std::size_t mostConnections = 256; ///< one for each thread that uses pins, and one for its process

    /**
     * Serves from now on, one thread for each connection.
     * @param board    must outlive the server
     * @param complain is told in one line, on threads of the server, of clients that had to be sent away: of the first
     *                 so many, not of a flood
     * @throws std::system_error
     */
    PinServer(Board& board, Complain complain);
    ~PinServer();

    PinServer(const PinServer&) = delete;
    PinServer& operator=(const PinServer&) = delete;

    /** @return what an application needs in the environment variable socketVariable */
    const std::string& address() const { return name; }

private:
    void report(const std::string& text);
    void acceptConnections();
    std::string admit(FileDescriptor connection);
    std::string objectionTo(int connection, bool isKnown) const;
    void converse(FileDescriptor connection);
    std::shared_ptr<PinSession> welcome(int connection);
    std::shared_ptr<PinSession> findSession(std::uint64_t number);
    std::shared_ptr<PinSession> beginSession(std::shared_ptr<PinSession> parent);
    bool carryOut(int connection, PinSession& session, const Request& request);
    void waitForDeparted(int asking);

    Board& board;
    const Complain complain;
    std::atomic<unsigned> complaints{0};
    const std::string name;
    FileDescriptor listener;
    FileDescriptor stopEvent;
    mutable std::mutex mutex;
    std::condition_variable connectionClosed;
    std::set<int> connections;
    std::map<std::uint64_t, std::weak_ptr<PinSession>> sessions;
    std::thread accepting;
};

} // namespace panelsim
