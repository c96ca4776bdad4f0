// Whatever a client sends, panelsim's server answers it in good form, and goes on serving.
#include "panelsim/web/PanelServer.h"
#include "tests/fuzz/Check.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <regex>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <utility>

namespace {

using namespace panelsim;

constexpr std::size_t largestMessage = 4096; ///< that the server receives at once
constexpr unsigned mostMessages = 100;       ///< that fit into the socket

/** The two ends of a connection whose messages stay apart, so that the server receives them one by one. */
struct Connection {
    Connection()
    {
        std::array<int, 2> ends{};
        check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0, "there is a socket");
        client = Socket(ends[0]);
        server = Socket(ends[1]);
    }

    void send(std::string_view bytes) const
    {
        const auto sent = ::send(client.descriptor(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        check(sent == static_cast<ssize_t>(bytes.size()), "the socket has room");
    }

    /** @return what there is, at the least a byte or the end */
    std::string receive(int flags = 0) const
    {
        std::array<char, 65536> buffer{};
        const ssize_t count = recv(client.descriptor(), buffer.data(), buffer.size(), flags);
        return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }

    Socket client{-1};
    Socket server{-1};
};

/** The whole server, before an indoor panel without an application; the first page is connected all the time. */
class Site {
public:
    Site() : page([this] { server.serve(std::move(firstPage.server)); })
    {
        firstPage.send("GET /events HTTP/1.1\r\nHost: " + host + "\r\n\r\n");
        check(!firstPage.receive().empty(), "the first page is greeted");
        server.offerRestart(true);
    }
    ~Site()
    {
        shutdown(firstPage.client.descriptor(), SHUT_RDWR);
        page.join();
    }

    /** @return what is answered to bytes that come in messages of that many */
    std::string exchange(std::string_view bytes, std::size_t messageSize)
    {
        Connection connection;
        for (unsigned sent = 0; !bytes.empty(); ++sent) {
            const std::string_view message = bytes.substr(0, sent < mostMessages ? messageSize : largestMessage);
            connection.send(message);
            bytes.remove_prefix(message.size());
        }
        shutdown(connection.client.descriptor(), SHUT_WR);
        server.serve(std::move(connection.server));
        std::string answer;
        for (std::string part = connection.receive(); !part.empty(); part = connection.receive()) {
            answer += part;
        }
        while (!firstPage.receive(MSG_DONTWAIT).empty()) { // the news for the first page
        }
        return answer;
    }

private:
    Simulation simulation{BoardConfig()};
    PanelServer server{simulation, PageInfo{"1.0.0", "indoor", "./app"}, HttpAddress(), [] {}};
    Connection firstPage;
    std::thread page;

public:
    const std::string host = server.url().substr(7, server.url().size() - 8);
};

/** @return the status */
unsigned checkAnswer(const std::string& answer, bool toHead)
{
    static const std::regex head(
        "HTTP/1\\.1 ([1-5][0-9]{2}) [^\\x00-\\x1F]+\r\n(([!-9;-~]+: [^\\x00-\\x1F]*\r\n)*)\r\n");
    static const std::regex length("content-length: ([0-9]+)\r\n", std::regex::icase);
    std::smatch parts;
    check(std::regex_search(answer, parts, head, std::regex_constants::match_continuous), "an answer has a head");
    const std::string body = parts.suffix();
    const auto status = static_cast<unsigned>(std::stoul(parts[1]));
    if (status < 200 && !body.empty()) {
        return checkAnswer(body, toHead);
    }
    check(status >= 200 && status != 500, "an answer has a final status, and the server does not fail");
    const std::string headers = parts[2];
    std::smatch told;
    const bool isTold = std::regex_search(headers, told, length);
    check(!isTold || !std::regex_search(told.suffix().str(), length), "there is one length");
    if (!toHead && headers.find("Transfer-Encoding: ") == std::string::npos) {
        check(body.size() == (isTold ? std::stoul(told[1]) : 0), "the length of a body");
    }
    return status;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static Site site;
    if (size == 0) {
        return 0;
    }
    // The first byte is the size of the messages; the port, which differs each time, is left out.
    const std::size_t messageSize = bytes[0] <= ' ' ? largestMessage : bytes[0];
    static const std::regex placeholder("HOST:PORT");
    const std::string request =
        std::regex_replace(std::string(reinterpret_cast<const char*>(bytes) + 1, size - 1), placeholder, site.host);
    const std::string answer = site.exchange(request, messageSize);
    check(answer.empty() == request.empty(), "a request is answered, no request is not");
    if (!answer.empty()) {
        const auto method = request.find_first_not_of(" \t");
        checkAnswer(answer, method != std::string::npos && request.compare(method, 4, "HEAD") == 0);
    }
    const std::string next = "GET /favicon.svg HTTP/1.1\r\nHost: " + site.host + "\r\n\r\n";
    check(checkAnswer(site.exchange(next, largestMessage), false) == 200, "the next request is served");
    return 0;
}
