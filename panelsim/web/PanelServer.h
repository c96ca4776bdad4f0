#pragma once

#include "panelsim/board/Simulation.h"
#include "panelsim/web/EventClients.h"
#include "panelsim/web/HttpAddress.h"
#include "panelsim/web/HttpServer.h"
#include "panelsim/web/NewsFeed.h"
#include "panelsim/web/PageInfo.h"
#include "panelsim/web/Socket.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace panelsim {

/** Serves the page that shows a simulation and drives its keys, from threads of its own. */
class PanelServer {
public:
    /**
     * Serves from now on.
     * @param simulation must outlive the server
     * @param onRestart called from a thread of the server when a page wants the application to start again; must not
     * destroy the server
     * @param complain is told in one line, on a thread of the server, when no page can be served
     * @throws std::system_error, std::runtime_error with a text that names the address and says what to do when it is
     * taken
     */
    PanelServer(
        Simulation& simulation, PageInfo info, const HttpAddress& address, std::function<void()> onRestart,
        HttpServer::Complain complain = [](const std::string&) {});

    /** Tells the pages that are connected the newest state, and ends. */
    ~PanelServer();

    PanelServer(const PanelServer&) = delete;
    PanelServer& operator=(const PanelServer&) = delete;

    /** @return where a browser of this machine finds the page, such as "http://127.0.0.1:8080/" */
    std::string url() const;

    /** Serves a connection that was made elsewhere, on the calling thread. */
    void serve(Socket connection) { http.serve(std::move(connection)); }

    /** Says whether the application can be started again, which it cannot at first. From any thread. */
    void offerRestart(bool offered) { feed.offerRestart(offered); }

private:
    std::vector<HttpRoute> routes();
    HttpAnswer answerEvents();
    HttpAnswer answerKey(const HttpRequest& request);
    HttpAnswer answerRestart(const HttpRequest& request);

    Simulation& simulation;
    const PageInfo info;
    const std::function<void()> onRestart;
    NewsFeed feed;
    EventClients clients;
    HttpServer http; // the last: its threads use the others
};

} // namespace panelsim
