// Whatever a client sends, panelsim's server answers it in good form, and goes on serving.
#include "panelsim/web/PanelServer.h"
#include "tests/fuzz/Check.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
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
        check(::send(client.descriptor(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
                  static_cast<ssize_t>(bytes.size()),
              "the socket has room");
    }

    std::string receive() const
    {
        std::string bytes;
        std::array<char, 65536> buffer{};
        ssize_t count = 0;
        while ((count = recv(client.descriptor(), buffer.data(), buffer.size(), 0)) > 0) {
            bytes.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return bytes;
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
        std::array<char, 65536> hello{};
        check(recv(firstPage.client.descriptor(), hello.data(), hello.size(), 0) > 0, "the first page is greeted");
        server.offerRestart(true);
    }
    ~Site()
    {
        shutdown(firstPage.client.descriptor(), SHUT_RDWR);
        page.join();
    }
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;

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
        return connection.receive();
    }

    /** Forgets the news that the first page has got. */
    void readNews() const
    {
        std::array<char, 65536> news{};
        while (recv(firstPage.client.descriptor(), news.data(), news.size(), MSG_DONTWAIT) > 0) {
        }
    }

private:
    Simulation simulation{BoardConfig()};
    PanelServer server{simulation, PageInfo{"1.0.0", "indoor", "./app"}, HttpAddress(), [] {}};
    Connection firstPage;
    std::thread page;

public:
    const std::string host = server.url().substr(7, server.url().size() - 8);
};

std::string lowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); });
    return text;
}

/** Takes a line and its end. */
std::string takeLine(std::string& text)
{
    const auto end = text.find("\r\n");
    check(end != std::string::npos, "the lines of an answer's head have ends");
    std::string line = text.substr(0, end);
    text.erase(0, end + 2);
    check(line.find_first_of("\r\n") == std::string::npos && line.find('\0') == std::string::npos,
          "a line of an answer's head has no line ends of its own");
    return line;
}

/** Takes the head of an answer. @return the status */
unsigned takeHead(std::string& answer, std::string& length, bool& chunked)
{
    const std::string status = takeLine(answer);
    check(status.size() > 13 && status.rfind("HTTP/1.1 ", 0) == 0 && status[12] == ' ' &&
              std::all_of(status.begin() + 9, status.begin() + 12, [](char c) { return c >= '0' && c <= '9'; }),
          "an answer has a status line");
    for (std::string line = takeLine(answer); !line.empty(); line = takeLine(answer)) {
        const auto colon = line.find(": ");
        check(colon != std::string::npos && colon > 0 && line.find(' ') > colon, "an answer's header has a name");
        const std::string name = lowerCase(line.substr(0, colon));
        if (name == "content-length") {
            check(length.empty(), "there is one length");
            length = line.substr(colon + 2);
        }
        chunked = chunked || name == "transfer-encoding";
    }
    return static_cast<unsigned>(std::stoul(status.substr(9, 3)));
}

/** @return the status */
unsigned checkAnswer(std::string answer, bool toHead)
{
    unsigned status = 0;
    std::string length;
    bool chunked = false;
    do {
        length.clear();
        status = takeHead(answer, length, chunked);
    } while (status < 200 && !answer.empty());
    check(status >= 200 && status < 600, "an answer has a final status");
    check(status != 500, "the server does not fail");
    if (!chunked && !toHead) {
        check(length.empty() ? answer.empty() : length == std::to_string(answer.size()), "the length of a body");
    }
    return status;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static Site site;
    if (size == 0) {
        return 0;
    }
    // The first byte is the size of the messages; the port, which differs each time, is left out.
    const std::size_t messageSize = bytes[0] <= ' ' ? largestMessage : bytes[0];
    std::string request(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    static const std::string placeholder = "HOST:PORT";
    for (auto at = request.find(placeholder); at != std::string::npos; at = request.find(placeholder, at)) {
        request.replace(at, placeholder.size(), site.host);
    }
    const std::string answer = site.exchange(request, messageSize);
    check(answer.empty() == request.empty(), "a request is answered, no request is not");
    if (!answer.empty()) {
        const auto method = request.find_first_not_of(" \t");
        checkAnswer(answer, method != std::string::npos && request.compare(method, 4, "HEAD") == 0);
    }
    const std::string next =
        site.exchange("GET /favicon.svg HTTP/1.1\r\nHost: " + site.host + "\r\n\r\n", largestMessage);
    check(checkAnswer(next, false) == 200, "the next request is served");
    site.readNews();
    return 0;
}
