#include "panelsim/web/PanelServer.h"

#include "panelsim/web/PageFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <microhttpd.h>
#include <netdb.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace panelsim {

namespace {

using nlohmann::json;

constexpr unsigned mostConnections = 200;
constexpr unsigned longestIdleSeconds = 5;
constexpr std::size_t mostBodyBytes = 1024;

struct Route {
    std::string_view method;
    std::string_view path;
    const char* type;
    const char* file; ///< of the page; null for what is made
};

constexpr Route routes[] = {{"GET", "/", "text/html; charset=utf-8", "index.html"},
                            {"GET", "/panel.css", "text/css; charset=utf-8", "panel.css"},
                            {"GET", "/panel.js", "text/javascript; charset=utf-8", "panel.js"},
                            {"GET", "/favicon.svg", "image/svg+xml", "favicon.svg"},
                            {"GET", "/events", "text/event-stream", nullptr},
                            {"POST", "/keys", "application/json", nullptr},
                            {"POST", "/restart", "application/json", nullptr}};

constexpr std::pair<const char*, const char*> securityHeaders[] = {
    {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
                                "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"X-Content-Type-Options", "nosniff"},
    {"Cache-Control", "no-store"},
    {"Referrer-Policy", "no-referrer"}};

bool isWildcard(const HttpAddress& address)
{
    return address.host == "0.0.0.0" || address.host == "::";
}

std::uint16_t portOf(MHD_Daemon* daemon)
{
    return MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT)->port;
}

/** @return whether it was taken; the response is used up */
bool send(MHD_Connection* connection, unsigned status, const char* type, MHD_Response* response)
{
    for (const auto& [name, value] : securityHeaders) {
        MHD_add_response_header(response, name, value);
    }
    MHD_add_response_header(response, "Content-Type", type);
    const bool queued = MHD_queue_response(connection, status, response) == MHD_YES;
    MHD_destroy_response(response);
    return queued;
}

bool send(MHD_Connection* connection, unsigned status, const char* type, std::string_view body)
{
    void* const bytes = const_cast<char*>(body.data()); // they are only read
    return send(connection, status, type, MHD_create_response_from_buffer(body.size(), bytes, MHD_RESPMEM_MUST_COPY));
}

bool sendText(MHD_Connection* connection, unsigned status, const std::string& text)
{
    return send(connection, status, "text/plain; charset=utf-8", text.empty() ? "" : text + "\n");
}

const char* headerOf(MHD_Connection* connection, const char* name)
{
    return MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
}

MHD_Daemon* startDaemon(const HttpAddress& address, MHD_AccessHandlerCallback answer, void* server)
{
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &found) != 0) {
        throw std::invalid_argument(describe(address) + " is no address to serve on");
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    const unsigned family = found->ai_family == AF_INET6 ? MHD_USE_DUAL_STACK : MHD_NO_FLAG;
    const auto endOfRequest = [](void*, MHD_Connection*, void** body, MHD_RequestTerminationCode) {
        delete static_cast<std::string*>(*body);
    };
    MHD_Daemon* const daemon = MHD_start_daemon(
        MHD_USE_POLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | family, address.port, nullptr, nullptr, answer,
        server, MHD_OPTION_SOCK_ADDR, found->ai_addr, MHD_OPTION_CONNECTION_LIMIT, mostConnections,
        MHD_OPTION_CONNECTION_TIMEOUT, longestIdleSeconds, MHD_OPTION_NOTIFY_COMPLETED,
        static_cast<MHD_RequestCompletedCallback>(endOfRequest), nullptr, MHD_OPTION_END);
    if (daemon == nullptr) {
        throw std::system_error(errno, std::generic_category(),
                                "cannot serve on " + describe(address) +
                                    " (choose another, or port 0 for any free one)");
    }
    return daemon;
}

} // namespace

PanelServer::PanelServer(Simulation& itsSimulation, std::string command, const HttpAddress& itsAddress,
                         std::function<void()> restart)
    : simulation(itsSimulation), address(itsAddress), onRestart(std::move(restart)),
      streams(itsSimulation, std::move(command)),
      daemon(startDaemon(
                 itsAddress,
                 [](void* itself, MHD_Connection* connection, const char* path, const char* method,
                    const char* /*version*/, const char* bytes, std::size_t* count, void** request) {
                     auto& server = *static_cast<PanelServer*>(itself);
                     if (*request == nullptr) {
                         // The body of a POST is gathered in a string.
                         *request = std::strcmp(method, "POST") == 0 ? new std::string : nullptr;
                         return server.begin(connection, method, path) ? MHD_YES : MHD_NO;
                     }
                     auto& body = *static_cast<std::string*>(*request);
                     if (*count != 0) {
                         body.append(bytes, std::min(std::exchange(*count, 0), mostBodyBytes + 1 - body.size()));
                         return MHD_YES;
                     }
                     const Answer answer = server.finishPost(path, body);
                     return sendText(connection, answer.status, answer.text) ? MHD_YES : MHD_NO;
                 },
                 this),
             MHD_stop_daemon)
{
}

PanelServer::~PanelServer()
{
    streams.finish();
}

std::string PanelServer::url() const
{
    HttpAddress seen{address.host, portOf(daemon.get())};
    if (isWildcard(seen)) {
        seen.host = seen.host == "::" ? "::1" : "127.0.0.1";
    }
    return "http://" + describe(seen) + "/";
}

/**
 * Answers all but the body of a POST that is still to come. Pages of other sites reach this server by a name of their
 * own for its address, or with an Origin of their own.
 */
bool PanelServer::begin(MHD_Connection* connection, std::string_view method, std::string_view path)
{
    const char* const host = headerOf(connection, MHD_HTTP_HEADER_HOST);
    const char* const origin = headerOf(connection, MHD_HTTP_HEADER_ORIGIN);
    const char* const type = headerOf(connection, MHD_HTTP_HEADER_CONTENT_TYPE);
    const auto* const route =
        std::find_if(std::begin(routes), std::end(routes), [&](const Route& each) { return each.path == path; });
    MHD_Daemon* const asked = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_DAEMON)->daemon;
    if (host == nullptr || !isServedAs(host, portOf(asked))) {
        return sendText(connection, MHD_HTTP_FORBIDDEN, "refused: the Host header does not name this server");
    }
    if (origin != nullptr && origin != "http://" + std::string(host)) {
        return sendText(connection, MHD_HTTP_FORBIDDEN, "refused: the request comes from another site");
    }
    if (route == std::end(routes)) {
        return sendText(connection, MHD_HTTP_NOT_FOUND, "there is no such page");
    }
    if (route->method != method) {
        return sendText(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "this takes " + std::string(route->method) + " only");
    }
    if (method == "POST") {
        return (type != nullptr && type == std::string_view(route->type)) ||
               sendText(connection, MHD_HTTP_UNSUPPORTED_MEDIA_TYPE, "the Content-Type has to be application/json");
    }
    if (route->file != nullptr) {
        return send(connection, MHD_HTTP_OK, route->type, pageFile(route->file));
    }
    MHD_Response* const events = streams.open(connection);
    return events != nullptr ? send(connection, MHD_HTTP_OK, route->type, events)
                             : sendText(connection, MHD_HTTP_SERVICE_UNAVAILABLE,
                                        "there are too many pages; close one and try again");
}

bool PanelServer::isServedAs(std::string host, std::uint16_t port) const
{
    if (host.find(':', host.rfind(']') + 1) == std::string::npos) {
        host += ":80"; // which browsers leave out
    }
    try {
        const HttpAddress named = parseHttpAddress(host);
        return named.port == port &&
               (isWildcard(address) || named.host == address.host || named.host == "127.0.0.1" || named.host == "::1");
    } catch (const std::invalid_argument&) {
        return false;
    }
}

PanelServer::Answer PanelServer::finishPost(std::string_view path, const std::string& body)
{
    if (body.size() > mostBodyBytes) {
        return {MHD_HTTP_CONTENT_TOO_LARGE, "the body may have " + std::to_string(mostBodyBytes) + " bytes at most"};
    }
    if (path == "/restart") {
        if (!streams.offersRestart()) {
            return {MHD_HTTP_CONFLICT, "the application cannot be started again now"};
        }
        onRestart();
        return {MHD_HTTP_ACCEPTED, "the application is started again"};
    }
    try {
        const json request = json::parse(body);
        const auto page = request.at("client").get<Board::Hand>();
        const auto key = request.at("key").get<unsigned>();
        const bool pressed = request.at("pressed").get<bool>();
        if (!streams.isConnected(page)) {
            return {MHD_HTTP_CONFLICT, "client " + std::to_string(page) + " is not connected"};
        }
        pressed ? simulation.board.press(key, page) : simulation.board.release(key, page);
        return {MHD_HTTP_NO_CONTENT};
    } catch (const json::exception& error) {
        return {MHD_HTTP_BAD_REQUEST, error.what()};
    } catch (const std::out_of_range& error) {
        return {MHD_HTTP_NOT_FOUND, error.what()};
    }
}

} // namespace panelsim
