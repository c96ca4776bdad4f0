#pragma once

#include "panelsim/board/Simulation.h"
#include "panelsim/web/EventStreams.h"
#include "panelsim/web/HttpAddress.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct MHD_Connection;
struct MHD_Daemon;

namespace panelsim {

/** Serves the page that shows a simulation and drives its keys, from threads of its own. */
class PanelServer {
public:
    /**
     * Serves from now on.
     * @param simulation must outlive the server
     * @param command   the application's, for the page to show
     * @param onRestart called from a thread of the server when a page wants the application to start again; must not
     * destroy the server
     * @throws std::system_error with a text that names the address and says what to do when it is taken
     */
    PanelServer(Simulation& simulation, std::string command, const HttpAddress& address,
                std::function<void()> onRestart);

    /** Sends the newest state to the pages that are connected, and ends. */
    ~PanelServer();

    PanelServer(const PanelServer&) = delete;
    PanelServer& operator=(const PanelServer&) = delete;

    /** @return where a browser of this machine finds the page, such as "http://127.0.0.1:8080/" */
    std::string url() const;

    /** Says whether the application can be started again, which it cannot at first. From any thread. */
    void offerRestart(bool offered) { streams.offerRestart(offered); }

private:
    struct Answer {
        unsigned status = 200;
        std::string text = {};
    };

    bool begin(MHD_Connection* connection, std::string_view method, std::string_view path);
    bool isServedAs(std::string host, std::uint16_t port) const;
    Answer finishPost(std::string_view path, const std::string& body);

    Simulation& simulation;
    const HttpAddress address;
    const std::function<void()> onRestart;
    EventStreams streams;
    std::unique_ptr<MHD_Daemon, void (*)(MHD_Daemon*)> daemon; // the last: its thread uses the others
};

} // namespace panelsim
