#pragma once

#include "panelsim/board/Simulation.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>

struct MHD_Connection;
struct MHD_Daemon;

namespace panelsim {

/**
 * Serves the page that shows a simulation and drives its keys. It has no thread: requests are answered, and pages get
 * what has changed, by update().
 */
class PanelServer {
public:
    /**
     * @param simulation must outlive the server
     * @param command   the application's, for the page to show
     * @param address   "[ADDR:]PORT": ADDR is an IPv4 address, an IPv6 address in brackets, or "localhost" for
     * 127.0.0.1, which it is when left out; port 0 is any free one
     * @param onRestart called by update() when a page wants the application to start again; must not destroy the server
     * @throws std::invalid_argument with one line of text when the address is none
     * @throws std::system_error with a text that names the address and says what to do when it is taken
     */
    PanelServer(Simulation& simulation, std::string command, const std::string& address,
                std::function<void()> onRestart);

    /** Sends the last news; waits a second at most for the pages to take them. */
    ~PanelServer();

    PanelServer(const PanelServer&) = delete;
    PanelServer& operator=(const PanelServer&) = delete;

    /** @return where a browser of this machine finds the page, such as "http://127.0.0.1:8080/" */
    std::string url() const;

    /** Says whether the application can be started again, which it cannot at first. */
    void offerRestart(bool offered) { restart = offered; }

    /** Does what there is to do, without waiting. To be called often: a call soon after another does nothing. */
    void update();

private:
    using Clock = std::chrono::steady_clock;

    /** A page that is connected. */
    struct Stream {
        PanelServer& server;
        MHD_Connection* connection;
        Board::Hand page;
        std::string unsent;             ///< of the events that are being sent
        std::string state = {};         ///< event that was sent last
        std::uint64_t log = 0;          ///< version that was sent
        std::uint64_t nextLine = 0;     ///< of the log
        Clock::time_point beatDue = {}; ///< when something has to be sent
        bool suspended = false;
    };

    bool begin(MHD_Connection* connection, std::string_view method, std::string_view path);
    bool isServedAs(const std::string& host) const;
    bool finishPost(MHD_Connection* connection, std::string_view path, const std::string& body);
    bool openStream(MHD_Connection* connection);
    ssize_t read(Stream& stream, char* bytes, std::size_t most);
    std::string newEvents(Stream& stream) const;

    Simulation& simulation;
    const std::string command;
    const std::function<void()> onRestart;
    bool restart = false;
    bool finishing = false;
    std::string state; ///< the event that shows it
    std::map<Board::Hand, Stream> streams;
    Board::Hand lastPage = 0;
    Clock::time_point updateDue = {};
    std::string name; ///< address it listens on, as in a URL
    std::string port;
    const std::unique_ptr<MHD_Daemon, void (*)(MHD_Daemon*)> daemon; // the last: its end closes the streams
};

} // namespace panelsim
