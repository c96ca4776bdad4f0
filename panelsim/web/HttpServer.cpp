#include "panelsim/web/HttpServer.h"

#include "panelsim/web/HttpStream.h"
#include "panelsim/web/ListeningSocket.h"
#include "panelsim/web/RequestGuard.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <exception>
#include <functional>
#include <httplib.h>
#include <iterator>
#include <mutex>
#include <queue>
#include <thread>
#include <utility>

namespace panelsim {

namespace {

using namespace std::chrono_literals;
using httplib::Request;
using httplib::Response;

/** How long clients have to take their last answer. */
constexpr auto grace = 1s;

/** How long a client that is turned away may take to go, until the next one is. */
constexpr auto turningAway = 10ms;

const httplib::Headers commonHeaders = {
    {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
                                "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Cache-Control", "no-store"},
    {"Referrer-Policy", "no-referrer"}};

std::vector<std::string> valuesOf(const Request& request, const std::string& header)
{
    std::vector<std::string> values;
    const auto [first, last] = request.headers.equal_range(header);
    std::transform(first, last, std::back_inserter(values), [](const auto& entry) { return entry.second; });
    return values;
}

/** @return why the body is refused, before it is read; nothing when it is not */
std::optional<HttpAnswer> bodyRefusal(const Request& request)
{
    constexpr std::size_t mostDigits = 9;
    const std::vector<std::string> lengths = valuesOf(request, "Content-Length");
    if (lengths.empty() || request.has_header("Transfer-Encoding")) {
        return textAnswer(411, "the body's Content-Length is missing");
    }
    const std::string& length = lengths.front();
    if (lengths.size() > 1 || length.find_first_not_of("0123456789") != std::string::npos) {
        return textAnswer(400, "the Content-Length is no number");
    }
    if (length.size() > mostDigits || std::stoul(length) > HttpServer::mostBodyBytes) {
        return textAnswer(413, "the body may have " + std::to_string(HttpServer::mostBodyBytes) + " bytes at most");
    }
    if (request.has_header("Content-Encoding")) {
        return textAnswer(415, "the body must not be encoded");
    }
    if (request.is_multipart_form_data()) {
        return textAnswer(415, "the body must not be a form");
    }
    return std::nullopt;
}

void give(HttpAnswer answer, Response& response)
{
    response.status = answer.status;
    for (const auto& [name, value] : answer.headers) {
        response.set_header(name, value);
    }
    if (answer.more) {
        response.set_content_provider(answer.type,
                                      [more = std::move(answer.more)](std::size_t /*offset*/, httplib::DataSink& sink) {
                                          const std::optional<std::string> bytes = more();
                                          if (!bytes) {
                                              sink.done();
                                              return true;
                                          }
                                          return sink.is_writable() && sink.write(bytes->data(), bytes->size());
                                      });
    } else if (!answer.body.empty()) {
        response.set_content(answer.body, answer.type);
    }
}

/** Answers what the HTTP library gives up on, without a word, before the end of the request line. */
void answerFragment(HttpStream& stream)
{
    std::string status = "400 Bad Request";
    std::string line = "the request is not complete\n";
    if (stream.wasTurnedAway()) {
        status = "503 Service Unavailable\r\nRetry-After: 1";
        line = "there are too many requests, and this one was not complete\n";
    } else if (stream.isTooLong()) {
        status = "414 URI Too Long";
        line = "the request is too long\n";
    }
    stream.writeLast("HTTP/1.1 " + status + "\r\nConnection: close\r\nContent-Type: text/plain\r\n" +
                     "Content-Length: " + std::to_string(line.size()) + "\r\n\r\n" + line);
}

/** Says a line about what the HTTP library has refused by itself. */
httplib::Server::HandlerResponse explain(const Request& /*request*/, Response& response)
{
    if (response.body.empty()) {
        const bool tooLong = response.status == 414;
        response.set_content(tooLong ? "the request's address is too long\n" : "the request cannot be understood\n",
                             "text/plain; charset=utf-8");
    }
    return httplib::Server::HandlerResponse::Handled;
}

/** Making the library's server has SIGPIPE ignored in the whole process, and in the programs that it starts. */
class KeptSigpipe {
public:
    KeptSigpipe() { sigaction(SIGPIPE, nullptr, &before); }
    ~KeptSigpipe() { sigaction(SIGPIPE, &before, nullptr); }
    KeptSigpipe(const KeptSigpipe&) = delete;
    KeptSigpipe& operator=(const KeptSigpipe&) = delete;

private:
    struct sigaction before {};
};

} // namespace

HttpAnswer textAnswer(int status, const std::string& line)
{
    HttpAnswer answer;
    answer.status = status;
    answer.body = line + "\n";
    return answer;
}

/** The connections and the threads that serve them. The library does the talking only. */
class HttpServer::Connections final : private httplib::Server {
public:
    Connections(const HttpAddress& address, std::vector<HttpRoute> itsRoutes, Complain itsComplain)
        : complain(std::move(itsComplain)), listening(address), guard(listening.address()), routes(std::move(itsRoutes))
    {
        svr_sock_ = listening.descriptor(); // the library streams as long as it has a socket
        set_default_headers(commonHeaders);
        set_error_handler(HandlerWithResponse(explain));
        set_exception_handler([](const Request&, Response& response, const std::exception_ptr&) {
            give(textAnswer(500, "the simulator failed to answer"), response);
        });
        set_pre_routing_handler(
            [this](const Request& request, Response& response) { return begin(request, response); });
        for (const HttpRoute& route : routes) {
            if (route.method == "POST") {
                // The library takes the path as a regular expression.
                Post(route.path,
                     [&route](const Request& request, Response& response, const httplib::ContentReader& reader) {
                         post(route, request, response, reader);
                     });
            }
        }
        try {
            while (threads.size() < mostConnections) {
                threads.emplace_back([this] { work(); });
            }
            threads.emplace_back([this] { acceptConnections(); });
        } catch (...) {
            end();
            throw;
        }
    }

    ~Connections() override { end(); }

    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;

    const HttpAddress& address() const { return listening.address(); }

    void serve(Socket connection)
    {
        HttpStream stream(std::move(connection));
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (ending) {
                return;
            }
            streams.push_back(&stream);
        }
        respond(stream);
        const std::lock_guard<std::mutex> lock(mutex);
        streams.erase(std::find(streams.begin(), streams.end(), &stream));
        changed.notify_all();
    }

private:
    void end()
    {
        listening.stop();
        {
            std::unique_lock<std::mutex> lock(mutex);
            ending = true;
            arrived.notify_all();
            changed.notify_all();
            for (HttpStream* const stream : streams) {
                stream->stopReading();
            }
            changed.wait_for(lock, grace, [this] { return streams.empty(); });
            for (HttpStream* const stream : streams) {
                stream->abort();
            }
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    /** Hands each connection to a thread that is free, or sees to it that one becomes free. */
    void acceptConnections()
    {
        while (auto socket = listening.accept(complain)) {
            std::unique_lock<std::mutex> lock(mutex);
            while (!ending && freeThreads == 0) {
                static_cast<void>(std::find_if(streams.begin(), streams.end(), std::mem_fn(&HttpStream::turnAway)));
                changed.wait_for(lock, turningAway);
            }
            if (ending) {
                return;
            }
            --freeThreads;
            accepted.push(std::move(*socket));
            arrived.notify_one();
        }
    }

    void work()
    {
        std::unique_lock<std::mutex> lock(mutex);
        while (!ending) {
            ++freeThreads;
            changed.notify_all();
            arrived.wait(lock, [this] { return ending || !accepted.empty(); });
            if (ending) {
                return;
            }
            Socket connection = std::move(accepted.front());
            accepted.pop();
            lock.unlock();
            serve(std::move(connection));
            lock.lock();
        }
    }

    void respond(HttpStream& stream)
    {
        // One request only: after one that is refused, its body would be taken for the next.
        bool closed = true;
        try {
            process_request(stream, true, closed, [](Request& request) {
                request.ranges.clear();
                request.headers.erase("Accept-Encoding");
            });
            if (stream.isUnanswered()) {
                answerFragment(stream);
            }
            stream.finish();
        } catch (const std::exception&) {
            stream.abort(); // out of memory, say; the client sees its answer end
        }
    }

    HandlerResponse begin(const Request& request, Response& response)
    {
        HttpAnswer answer;
        const auto hasPath = [&](const HttpRoute& route) { return route.path == request.path; };
        const auto route = std::find_if(routes.begin(), routes.end(), hasPath);
        if (const auto reason =
                guard.refusal({valuesOf(request, "Host"), valuesOf(request, "Origin"),
                               valuesOf(request, "Sec-Fetch-Site"), valuesOf(request, "Sec-Fetch-Mode")})) {
            answer = textAnswer(403, *reason);
        } else if (route == routes.end()) {
            answer = textAnswer(404, "there is no such page");
        } else if (route->method != request.method) {
            answer = textAnswer(405, "this takes " + route->method + " only");
            answer.headers.emplace_back("Allow", route->method);
        } else if (route->method == "GET") {
            answer = route->answer({});
        } else if (const auto refusal = bodyRefusal(request)) {
            answer = *refusal;
        } else {
            return HandlerResponse::Unhandled; // post takes it
        }
        give(std::move(answer), response);
        return HandlerResponse::Handled;
    }

    static void post(const HttpRoute& route, const Request& request, Response& response,
                     const httplib::ContentReader& reader)
    {
        HttpRequest taken;
        const bool whole = reader([&](const char* bytes, std::size_t count) {
            taken.body.append(bytes, count);
            return true;
        });
        if (!whole) {
            give(textAnswer(400, "the body is shorter than its Content-Length"), response);
            return;
        }
        const std::vector<std::string> types = valuesOf(request, "Content-Type");
        taken.contentType = types.size() == 1 ? types.front() : std::string();
        give(route.answer(taken), response);
    }

    const Complain complain;
    ListeningSocket listening;
    const RequestGuard guard;
    const std::vector<HttpRoute> routes;
    std::mutex mutex;
    std::condition_variable arrived;  ///< a connection
    std::condition_variable changed;  ///< the free threads or the streams
    std::size_t freeThreads = 0;      ///< that no connection is meant for yet
    std::queue<Socket> accepted;      ///< each for a free thread
    std::vector<HttpStream*> streams; ///< being served, in the order in which they came
    bool ending = false;
    std::vector<std::thread> threads;
};

HttpServer::HttpServer(const HttpAddress& address, std::vector<HttpRoute> routes, Complain complain)
{
    const KeptSigpipe kept;
    connections = std::make_unique<Connections>(address, std::move(routes), std::move(complain));
}

HttpServer::~HttpServer() = default;

void HttpServer::serve(Socket connection)
{
    connections->serve(std::move(connection));
}

const HttpAddress& HttpServer::address() const
{
    return connections->address();
}

} // namespace panelsim
