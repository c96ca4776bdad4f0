#include "panelsim/web/PanelServer.h"

#include "panelsim/web/PageEvents.h"
#include "panelsim/web/PageFiles.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <iterator>
#include <microhttpd.h>
#include <netdb.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <utility>

namespace panelsim {

namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

constexpr unsigned mostConnections = 200;
constexpr unsigned longestIdleSeconds = 5;
constexpr std::size_t mostBodyBytes = 1024;
constexpr int mostRounds = 100;               // of requests and answers until other work has its turn
constexpr auto betweenUpdates = 15ms;         // a person sees no delay
constexpr auto heartbeat = 1s;                // by which either side notices that the other has gone
constexpr auto patienceAtTheEnd = 1s;         // with pages that take nothing
constexpr auto pauseOfLog = 200ms;            // what a browser needs for many lines
constexpr std::size_t enoughLogBytes = 65536; // in one event
constexpr std::size_t mostLogLines = 250;

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

/** @param name of IPv6 in brackets @return null for anything but a numeric address */
Addresses findAddress(std::string name, const std::string& port)
{
    if (name.size() > 2 && name.front() == '[' && name.back() == ']') {
        name = name.substr(1, name.size() - 2);
    }
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const bool isAddress = getaddrinfo(name.c_str(), port.c_str(), &hints, &found) == 0;
    return {isAddress ? found : nullptr, freeaddrinfo};
}

MHD_Daemon* startDaemon(const std::string& text, MHD_AccessHandlerCallback answer, void* server)
{
    const auto colon = text.rfind(':');
    const bool isLocal = colon == std::string::npos || text.substr(0, colon) == "localhost";
    const std::string name = isLocal ? "127.0.0.1" : text.substr(0, colon);
    const std::string port = text.substr(colon + 1); // all of it without a colon
    std::uint16_t number = 0;
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
    const bool isPort = error == std::errc() && end == port.data() + port.size();
    const Addresses found = findAddress(name, isPort ? port : "0");
    if (!isPort || !found) {
        throw std::invalid_argument("'" + text +
                                    "' is no address to serve on: it has to be PORT or ADDR:PORT, with a port from 0 "
                                    "to 65535 and a numeric address, an IPv6 address in brackets, or 'localhost'");
    }
    const unsigned family = found->ai_family == AF_INET6 ? MHD_USE_DUAL_STACK : MHD_NO_FLAG;
    const auto endOfRequest = [](void*, MHD_Connection*, void** body, MHD_RequestTerminationCode) {
        delete static_cast<std::string*>(*body);
    };
    MHD_Daemon* const daemon =
        MHD_start_daemon(MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | family, number, nullptr, nullptr, answer, server,
                         MHD_OPTION_SOCK_ADDR, found->ai_addr, MHD_OPTION_CONNECTION_LIMIT, mostConnections,
                         MHD_OPTION_CONNECTION_TIMEOUT, longestIdleSeconds, MHD_OPTION_NOTIFY_COMPLETED,
                         static_cast<MHD_RequestCompletedCallback>(endOfRequest), nullptr, MHD_OPTION_END);
    if (daemon == nullptr) {
        throw std::system_error(errno, std::generic_category(),
                                "cannot serve on " + name + ":" + port +
                                    " (choose another, or port 0 for any free one)");
    }
    return daemon;
}

} // namespace

PanelServer::PanelServer(Simulation& itsSimulation, std::string itsCommand, const std::string& address,
                         std::function<void()> restartApplication)
    : simulation(itsSimulation), command(std::move(itsCommand)), onRestart(std::move(restartApplication)),
      daemon(startDaemon(
                 address,
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
                     return server.finishPost(connection, path, body) ? MHD_YES : MHD_NO;
                 },
                 this),
             MHD_stop_daemon)
{
    sockaddr_storage bound{};
    auto* const any = reinterpret_cast<sockaddr*>(&bound);
    socklen_t size = sizeof bound;
    getsockname(MHD_get_daemon_info(daemon.get(), MHD_DAEMON_INFO_LISTEN_FD)->listen_fd, any, &size);
    char host[NI_MAXHOST] = "";
    char service[NI_MAXSERV] = "";
    getnameinfo(any, size, host, sizeof host, service, sizeof service, NI_NUMERICHOST | NI_NUMERICSERV);
    name = bound.ss_family == AF_INET6 ? "[" + std::string(host) + "]" : host;
    port = service;
}

PanelServer::~PanelServer()
{
    finishing = true;
    for (const auto end = Clock::now() + patienceAtTheEnd; !streams.empty() && Clock::now() < end;) {
        update();
        std::this_thread::sleep_for(1ms);
    }
}

std::string PanelServer::url() const
{
    return "http://" + (name == "0.0.0.0" ? "127.0.0.1" : name == "[::]" ? "[::1]" : name) + ":" + port + "/";
}

void PanelServer::update()
{
    const auto now = Clock::now();
    if (now < updateDue && !finishing) {
        return;
    }
    updateDue = now + betweenUpdates;
    MHD_UNSIGNED_LONG_LONG wait = 0;
    for (int round = 0; round < mostRounds && wait == 0; ++round) {
        MHD_run(daemon.get());
        if (MHD_get_timeout(daemon.get(), &wait) != MHD_YES) {
            break;
        }
    }
    state = streams.empty() ? "" : stateEvent(simulation, restart);
    for (auto& [page, stream] : streams) {
        if (stream.suspended) {
            stream.unsent = newEvents(stream);
            stream.suspended = stream.unsent.empty() && !finishing;
            if (!stream.suspended) {
                MHD_resume_connection(stream.connection);
            }
        }
    }
    MHD_run(daemon.get());
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
    if (host == nullptr || !isServedAs(host)) {
        return sendText(connection, MHD_HTTP_FORBIDDEN,
                        "refused: the Host header does not name this server; open the page by its IP address");
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
    return route->file == nullptr ? openStream(connection)
                                  : send(connection, MHD_HTTP_OK, route->type, pageFile(route->file));
}

bool PanelServer::isServedAs(const std::string& host) const
{
    const std::string end = port == "80" ? "" : ":" + port; // which browsers leave out
    const std::size_t length = host.size() - std::min(host.size(), end.size());
    const std::string named = host.substr(0, length);
    const bool isEverywhere = name == "0.0.0.0" || name == "[::]";
    return host.substr(length) == end &&
           (named == "localhost" || named == name || (isEverywhere && findAddress(named, port)));
}

bool PanelServer::finishPost(MHD_Connection* connection, std::string_view path, const std::string& body)
{
    if (body.size() > mostBodyBytes) {
        return sendText(connection, MHD_HTTP_CONTENT_TOO_LARGE,
                        "the body may have " + std::to_string(mostBodyBytes) + " bytes at most");
    }
    if (path == "/restart") {
        if (!restart) {
            return sendText(connection, MHD_HTTP_CONFLICT, "the application cannot be started again now");
        }
        onRestart();
        return sendText(connection, MHD_HTTP_ACCEPTED, "the application is started again");
    }
    try {
        const json request = json::parse(body);
        const auto number = [&request](const char* field) { // get would convert true and 0.5
            const json& value = request.at(field);
            return value.is_number_unsigned() ? value.get<std::uint64_t>() : throw std::invalid_argument(field);
        };
        const Board::Hand page = number("client");
        const auto key = static_cast<unsigned>(std::min<std::uint64_t>(number("key"), UINT_MAX));
        const bool pressed = request.at("pressed").get<bool>();
        if (streams.count(page) == 0) {
            return sendText(connection, MHD_HTTP_CONFLICT, "client " + std::to_string(page) + " is not connected");
        }
        pressed ? simulation.board.press(key, page) : simulation.board.release(key, page);
        return sendText(connection, MHD_HTTP_NO_CONTENT, "");
    } catch (const std::out_of_range& error) {
        return sendText(connection, MHD_HTTP_NOT_FOUND, error.what());
    } catch (const std::exception&) {
        return sendText(connection, MHD_HTTP_BAD_REQUEST,
                        R"(expected JSON such as {"client":1,"key":0,"pressed":true})");
    }
}

bool PanelServer::openStream(MHD_Connection* connection)
{
    const Board::Hand page = ++lastPage;
    const std::string hello = helloEvent(page, command, simulation.board.getConfig());
    Stream& opened = streams.emplace(page, Stream{*this, connection, page, hello}).first->second;
    constexpr std::size_t block = 1024;
    const auto read = [](void* itself, std::uint64_t /*position*/, char* bytes, std::size_t most) {
        auto& stream = *static_cast<Stream*>(itself);
        return stream.server.read(stream, bytes, most);
    };
    const auto close = [](void* itself) {
        const Stream& stream = *static_cast<Stream*>(itself);
        stream.server.simulation.board.releaseAll(stream.page);
        stream.server.streams.erase(stream.page);
    };
    return send(connection, MHD_HTTP_OK, "text/event-stream",
                MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, block, read, &opened, close));
}

/** Gives the next bytes, or suspends the connection until update() has some. */
ssize_t PanelServer::read(Stream& stream, char* bytes, std::size_t most)
{
    if (stream.unsent.empty() && finishing) {
        stream.unsent = newEvents(stream);
        if (stream.unsent.empty()) {
            return MHD_CONTENT_READER_END_OF_STREAM;
        }
    }
    if (stream.unsent.empty()) {
        stream.suspended = true;
        MHD_suspend_connection(stream.connection);
    }
    const std::size_t count = stream.unsent.copy(bytes, most);
    stream.unsent.erase(0, count);
    return static_cast<ssize_t>(count);
}

std::string PanelServer::newEvents(Stream& stream) const
{
    const auto now = Clock::now();
    const std::uint64_t version = simulation.log.version();
    std::string events;
    if (stream.state != state) {
        events = stream.state = state;
    }
    if (stream.log != version && (now >= stream.logDue || finishing)) {
        stream.logDue = now + pauseOfLog;
        AppLog::Lines lines = simulation.log.linesFrom(stream.nextLine, enoughLogBytes);
        if (lines.lines.size() > mostLogLines) {
            lines.lines.resize(mostLogLines);
            lines.last = false;
        }
        const auto begun =
            std::find_if(lines.lines.begin(), lines.lines.end(), [](const LogLine& line) { return !line.complete; });
        stream.nextLine = lines.first + static_cast<std::uint64_t>(begun - lines.lines.begin());
        stream.log = lines.last ? version : stream.log;
        events += logEvent(lines);
    }
    if (events.empty() && now >= stream.beatDue) {
        events = aliveEvent();
    }
    if (!events.empty()) {
        stream.beatDue = now + heartbeat;
    }
    return events;
}

} // namespace panelsim
