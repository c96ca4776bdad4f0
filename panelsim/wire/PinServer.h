#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/board/FileDescriptor.h"
#include "panelsim/wire/Protocol.h"
#include "sysfs/ISysfsGpio.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>

namespace panelsim {

/**
 * Lets applications of the same user have pins on a board, from other processes, each on a connection of its own. An
 * application that ends, in whatever way, releases its lines; those that it forked and that did not start another
 * program still hold them, as they hold its connection.
 */
class PinServer {
public:
    using Complain = std::function<void(const std::string&)>;

    /**
     * Serves from now on, on one thread.
     * @param board    must outlive the server
     * @param complain is called with one line, on the server's thread, when a client had to be refused; once for each
     *                 reason
     * @throws std::system_error
     */
    PinServer(Board& board, Complain complain);
    ~PinServer();

    PinServer(const PinServer&) = delete;
    PinServer& operator=(const PinServer&) = delete;

    /** @return what an application needs in the environment variable socketVariable */
    const std::string& address() const { return name; }

private:
    struct Pin {
        std::unique_ptr<sysfs::ISysfsGpio> gpio;
        int owner; ///< connection that it was created on
    };

    void serve();
    void complainOnce(const std::string& text);
    void accept();
    void drop(int connection);
    bool answer(int connection);
    Reply perform(int connection, const Request& request);
    std::uint32_t performOn(Pin& pin, const Request& request);

    Board& board;
    const Complain complain;
    const std::string name;
    const FileDescriptor listener;
    const FileDescriptor stopEvent;
    std::map<int, FileDescriptor> connections; ///< by their number
    std::map<std::uint32_t, Pin> pins;         ///< by their number, which a forked process uses as its parent does
    std::uint32_t lastPin = 0;
    std::set<std::string> complaints;
    std::thread thread;
};

} // namespace panelsim
