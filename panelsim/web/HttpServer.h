#pragma once

#include "panelsim/web/HttpAddress.h"
#include "panelsim/web/Socket.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace panelsim {

/** What an answer is made from. */
struct HttpRequest {
    std::string contentType; ///< of the body; empty when there is none, or no single one
    std::string body;        ///< of a POST; at most HttpServer::mostBodyBytes
};

struct HttpAnswer {
    int status = 200;
    std::string type = "text/plain; charset=utf-8";
    std::string body = {};
    std::vector<std::pair<std::string, std::string>> headers = {};
    /**
     * When set, the body is what this returns again and again, until it returns nothing or the client has gone. It is
     * called from one thread only, and destroyed at the end.
     */
    std::function<std::optional<std::string>()> more = {};
};

/** @return an answer of one line of text */
HttpAnswer textAnswer(int status, const std::string& line);

struct HttpRoute {
    std::string method; ///< GET or POST
    std::string path;   ///< no other route has it; of a POST: letters, digits and slashes only
    /** Called from several threads at once. */
    std::function<HttpAnswer(const HttpRequest&)> answer;
};

/**
 * Serves HTTP from threads of its own: one request per connection, a bounded number of connections at once. What is not
 * addressed to this server, or comes from another site, it refuses before all else. When all threads are in use, the
 * client that has kept one waiting longest is turned away: those that say what they want are served.
 */
class HttpServer {
public:
    static constexpr std::size_t mostBodyBytes = 1024;
    static constexpr std::size_t mostConnections = 48; ///< that are served at once

    using Complain = std::function<void(const std::string&)>;

    /**
     * Serves from now on.
     * @param complain is told in one line, on a thread of the server, when no connections can be taken
     * @throws std::system_error, std::runtime_error with a text that names the address and says what to do when it is
     * taken
     */
    HttpServer(const HttpAddress& address, std::vector<HttpRoute> routes, Complain complain);

    /** Waits for the answers being given: at most a second for the clients to take them. */
    ~HttpServer();

    /** Serves a connection that was made elsewhere, on the calling thread. */
    void serve(Socket connection);

    /** @return where it is served, with the port that was chosen when any was to be taken */
    const HttpAddress& address() const;

private:
    class Connections;
    std::unique_ptr<Connections> connections;
};

} // namespace panelsim
