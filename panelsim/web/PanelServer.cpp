#include "panelsim/web/PanelServer.h"

#include "panelsim/web/EventStream.h"
#include "panelsim/web/KeyRequest.h"
#include "panelsim/web/PageFiles.h"
#include "panelsim/web/PageState.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <strings.h>
#include <utility>

namespace panelsim {

namespace {

struct Asset {
    const char* path;
    const char* file;
    const char* type;
};

constexpr Asset assets[] = {{"/", "index.html", "text/html; charset=utf-8"},
                            {"/panel.css", "panel.css", "text/css; charset=utf-8"},
                            {"/panel.js", "panel.js", "text/javascript; charset=utf-8"},
                            {"/favicon.svg", "favicon.svg", "image/svg+xml"}};

bool isJson(const std::string& contentType)
{
    const std::string type = contentType.substr(0, contentType.find_first_of("; \t"));
    return strcasecmp(type.c_str(), "application/json") == 0;
}

HttpAnswer refuseType()
{
    return textAnswer(415, "the Content-Type has to be application/json");
}

} // namespace

PanelServer::PanelServer(Simulation& itsSimulation, PageInfo itsInfo, const HttpAddress& address,
                         std::function<void()> restart, HttpServer::Complain complain)
    : simulation(itsSimulation), info(std::move(itsInfo)), onRestart(std::move(restart)), feed(itsSimulation),
      clients(itsSimulation.keys), http(address, routes(), std::move(complain))
{
}

PanelServer::~PanelServer()
{
    feed.finish();
}

std::string PanelServer::url() const
{
    HttpAddress address = http.address();
    if (address.isWildcard()) {
        address.host = address.host == "::" ? "::1" : "127.0.0.1";
    }
    return "http://" + describe(address) + "/";
}

std::vector<HttpRoute> PanelServer::routes()
{
    std::vector<HttpRoute> routes = {
        {"GET", "/events", [this](const HttpRequest&) { return answerEvents(); }},
        {"POST", "/keys", [this](const HttpRequest& request) { return answerKey(request); }},
        {"POST", "/restart", [this](const HttpRequest& request) { return answerRestart(request); }}};
    for (const Asset& asset : assets) {
        HttpAnswer answer;
        answer.type = asset.type;
        answer.body = pageFile(asset.file);
        routes.push_back({"GET", asset.path, [answer](const HttpRequest&) { return answer; }});
    }
    return routes;
}

HttpAnswer PanelServer::answerEvents()
{
    EventClients::Presence client = clients.join();
    if (!client) {
        HttpAnswer busy = textAnswer(503, "there are " + std::to_string(EventClients::most) +
                                              " pages already; close one and try again");
        busy.headers.emplace_back("Retry-After", "5");
        return busy;
    }
    const std::string hello = helloJson(*client, info, simulation.board.getConfig());
    const auto stream = std::make_shared<EventStream>(simulation, feed, std::move(client), hello);
    HttpAnswer answer;
    answer.type = "text/event-stream";
    answer.more = [stream] { return stream->next(); };
    return answer;
}

HttpAnswer PanelServer::answerKey(const HttpRequest& request)
{
    if (!isJson(request.contentType)) {
        return refuseType();
    }
    try {
        const KeyRequest wanted = parseKeyRequest(request.body);
        if (!clients.setKey(wanted.client, wanted.key, wanted.pressed)) {
            return textAnswer(409, "client " + std::to_string(wanted.client) + " is not connected");
        }
    } catch (const std::invalid_argument& error) {
        return textAnswer(400, error.what());
    } catch (const std::out_of_range& error) {
        return textAnswer(404, error.what());
    }
    HttpAnswer done;
    done.status = 204;
    return done;
}

HttpAnswer PanelServer::answerRestart(const HttpRequest& request)
{
    if (!isJson(request.contentType)) {
        return refuseType();
    }
    if (nlohmann::json::parse(request.body, nullptr, false) != nlohmann::json::object()) {
        return textAnswer(400, "the body has to be an empty JSON object");
    }
    if (!feed.offersRestart()) {
        return textAnswer(409, "the application cannot be started again now");
    }
    onRestart();
    return textAnswer(202, "the application is started again");
}

} // namespace panelsim
