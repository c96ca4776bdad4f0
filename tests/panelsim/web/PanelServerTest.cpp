#include "panelsim/web/PanelServer.h"

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using namespace panelsim;

/** A connection to a server, over which one request was sent. */
class Connection {
public:
    Connection(int port, const std::string& bytes) : descriptor(socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval patience{30, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        EXPECT_EQ(connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }
    ~Connection() { close(descriptor); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /** @return what has come up to the text, all that comes if it does not */
    std::string readUntil(const std::string& text)
    {
        std::array<char, 65536> buffer{};
        ssize_t count = 1;
        while (received.find(text) == std::string::npos && count > 0) {
            count = recv(descriptor, buffer.data(), buffer.size(), 0);
            received.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
        const auto found = received.find(text);
        const std::string before = received.substr(0, found == std::string::npos ? found : found + text.size());
        received.erase(0, before.size());
        return before;
    }
    bool receives(const std::string& text) { return readUntil(text).find(text) != std::string::npos; }

private:
    const int descriptor;
    std::string received;
};

const std::string endOfStream = "0\r\n\r\n";

/** A server on any free port, in front of a panel without an application. */
struct Served {
    explicit Served(const std::string& address = "0")
    {
        server.emplace(simulation, "./app -x", parseHttpAddress(address), [this] { ++restarts; });
    }

    int port() const { return std::stoi(server->url().substr(server->url().rfind(':') + 1)); }
    std::string host(const std::string& name = "127.0.0.1") const { return name + ":" + std::to_string(port()); }
    std::string request(const std::string& line, const std::string& body = "", const std::string& headers = "") const
    {
        const std::string length = body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n";
        return line + " HTTP/1.1\r\n" + length + headers + "\r\n" + body;
    }
    /** @return the answer's status */
    int ask(const std::string& request) const
    {
        const std::string answer = Connection(port(), request).readUntil("\r\n");
        return answer.empty() ? 0 : std::stoi(answer.substr(answer.find(' ')));
    }
    std::string ours() const { return "Host: " + host() + "\r\n"; }
    int post(const std::string& path, const std::string& body) const
    {
        return ask(request("POST " + path, body, ours() + "Content-Type: application/json\r\n"));
    }
    std::unique_ptr<Connection> page() const
    {
        return std::make_unique<Connection>(port(), request("GET /events", "", ours()));
    }

    Simulation simulation{BoardConfig()};
    std::atomic<int> restarts{0};
    std::optional<PanelServer> server;
};

TEST(HttpAddress, IsAPortWithOrWithoutANumericAddress)
{
    const std::pair<const char*, const char*> cases[] = {{"8080", "127.0.0.1:8080"},
                                                         {"localhost:0", "127.0.0.1:0"},
                                                         {"0.0.0.0:80", "0.0.0.0:80"},
                                                         {"[0:0::0:1]:1", "[::1]:1"},
                                                         {"[FE80::A]:65535", "[fe80::a]:65535"}};
    for (const auto& [text, address] : cases) {
        EXPECT_EQ(describe(parseHttpAddress(text)), address);
    }
    for (const char* text : {"", ":80", "x", "8080x", "-1", "65536", "1.2.3.4:", "1.2.3:1", "::1:80", "[::1]", "[]:1",
                             "[1.2.3.4]:1", "my-box:1", "http://127.0.0.1:1"}) {
        EXPECT_THROW(parseHttpAddress(text), std::invalid_argument) << text;
    }
}

TEST(PanelServer, RefusesRequestsOfOtherSitesAndThoseThatAreNotAsTheyShouldBe)
{
    Served served;
    const std::string ours = served.ours();
    const std::string json = "Content-Type: application/json\r\n";
    const std::string press = R"({"client":1,"key":0,"pressed":true})";
    const auto page = served.page();
    ASSERT_TRUE(page->receives(R"("client":1,)"));
    const struct {
        const char* line;
        std::string headers;
        std::string body;
        int status;
    } cases[] = {
        {"GET /panel.js", ours, "", 200},
        {"GET /", "Host: " + served.host("localhost") + "\r\nOrigin: http://" + served.host("localhost") + "\r\n", "",
         200},
        {"GET /", "", "", 403},
        {"GET /", "Host: evil.example:" + std::to_string(served.port()) + "\r\n", "", 403},
        {"GET /events", "Host: 127.0.0.1\r\n", "", 403},
        {"GET /", "Host: 192.168.0.9:" + std::to_string(served.port()) + "\r\n", "", 403},
        {"POST /keys", ours + json + "Origin: http://evil.example\r\n", press, 403},
        {"POST /keys", ours + json + "Origin: null\r\n", press, 403},
        {"POST /keys", ours + "Content-Type: text/plain\r\n", press, 415},
        {"POST /keys", ours, press, 415},
        {"GET /keys", ours, "", 405},
        {"POST /", ours + json, "{}", 405},
        {"GET /nothing", ours, "", 404},
        {"POST /keys", ours + json, "x", 400},
        {"POST /keys", ours + json, R"({"client":1,"key":0})", 400},
        {"POST /keys", ours + json, R"({"client":1,"key":0,"pressed":"true"})", 400},
        {"POST /keys", ours + json, R"({"client":1,"key":3,"pressed":true})", 404},
        {"POST /keys", ours + json, R"({"client":1,"key":-1,"pressed":true})", 404},
        {"POST /keys", ours + json, R"({"client":2,"key":0,"pressed":true})", 409},
        {"POST /keys", ours + json, std::string(200000, ' '), 413},
        {"POST /restart", ours + json, "{}", 409},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(served.ask(served.request(each.line, each.body, each.headers)), each.status)
            << each.line << "\n"
            << each.headers << each.body.substr(0, 60);
    }
    EXPECT_EQ(served.simulation.board.view().keys, std::vector<bool>(3));
    Connection refused(served.port(), served.request("GET /nothing", "", ours));
    EXPECT_NE(refused.readUntil("\r\n\r\n").find("Content-Security-Policy: default-src 'none'; script-src 'self';"),
              std::string::npos);
    const Served everywhere("0.0.0.0:0");
    EXPECT_EQ(everywhere.ask(everywhere.request("GET /", "", "Host: " + everywhere.host("192.168.0.9") + "\r\n")), 200);
    EXPECT_EQ(everywhere.ask(everywhere.request("GET /", "", "Host: " + everywhere.host("my-box.lan") + "\r\n")), 403);
}

TEST(PanelServer, SaysWhichAddressIsTaken)
{
    const Served served;
    try {
        const Served other(served.host());
        ADD_FAILURE() << "served twice";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.what(), "cannot serve on " + served.host() +
                                    " (choose another, or port 0 for any free one): Address already in use");
    }
}

TEST(PanelServer, SendsStateAndLogAndReleasesTheKeysOfAPageThatIsGone)
{
    Served served;
    AppLog& log = served.simulation.log;
    log.append(LogLine::Source::Output, "whole\nbad \xFF\n> ");
    auto first = served.page();
    const auto second = served.page();
    EXPECT_TRUE(second->receives(R"("keys":["Key 0","Key 1","Key 2"],)"));
    EXPECT_TRUE(second->receives(R"("text":"bad )"
                                 "\uFFFD"
                                 R"(",)"));
    EXPECT_TRUE(second->receives(R"("text":"> ",)"));
    log.append(LogLine::Source::Error, "oops\n");
    log.append(LogLine::Source::Output, "go\n");
    EXPECT_TRUE(second->receives(R"({"first":2,)")) << "from the first line that was not complete";
    EXPECT_TRUE(second->receives(R"("text":"> go",)"));
    EXPECT_TRUE(second->receives(R"({"source":"stderr","text":"oops",)"));
    ASSERT_EQ(served.post("/keys", R"({"client":1,"key":1,"pressed":true})"), 204);
    EXPECT_TRUE(second->receives(R"("keys":[false,true,false])"));
    first.reset();
    EXPECT_TRUE(second->receives(R"("keys":[false,false,false])"));
    EXPECT_TRUE(second->receives("event: alive"));
}

TEST(PanelServer, StartsTheApplicationAgainWhenThatIsOffered)
{
    Served served;
    const auto page = served.page();
    served.server->offerRestart(true);
    EXPECT_TRUE(page->receives(R"("restart":true)"));
    EXPECT_EQ(served.post("/restart", "{}"), 202);
    EXPECT_EQ(served.restarts, 1);
}

TEST(PanelServer, EndsWithTheNewestStateAndAllOfTheLog)
{
    Served served;
    const auto page = served.page();
    EXPECT_TRUE(page->receives("event: state"));
    const auto unread = served.page();
    for (int i = 0; i < 500; ++i) {
        served.simulation.log.remark(std::string(500, 'x'));
    }
    const Connection half(served.port(), "POST /keys HTTP/1.1\r\n");
    std::thread reading([&] {
        EXPECT_TRUE(page->receives(R"("text":"ended with status 7")"));
        EXPECT_TRUE(page->receives("the last line"));
        EXPECT_TRUE(page->receives(endOfStream));
    });
    served.simulation.log.remark("the last line");
    served.simulation.app = AppState{AppState::Phase::Exited, 7};
    served.simulation.changes.notify();
    served.server.reset();
    reading.join();
}

} // namespace
