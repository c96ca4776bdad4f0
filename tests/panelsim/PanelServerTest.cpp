#include "panelsim/web/PanelServer.h"

#include "tests/panelsim/FakeApplication.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>
#include <thread>
#include <tuple>
#include <unistd.h>

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

/** A server on any free port, in front of a panel without an application. */
struct Served {
    explicit Served(const std::string& address = "0", const BoardConfig& board = FakeApplication::boardConfig(),
                    const std::function<void(Simulation&)>& prepare = nullptr)
        : simulation(board, [] { return std::chrono::nanoseconds(0); })
    {
        if (prepare) {
            prepare(simulation);
        }
        server.emplace(simulation, "./app \"x", parseHttpAddress(address), [this] { ++restarts; });
    }

    int port() const { return std::stoi(server->url().substr(server->url().rfind(':') + 1)); }
    std::string host(const std::string& name = "127.0.0.1") const { return name + ":" + std::to_string(port()); }
    std::string request(const std::string& line, const std::string& body, const std::string& headers) const
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

    Simulation simulation;
    std::atomic<int> restarts{0};
    std::optional<PanelServer> server;
};

TEST(PanelServer, ReadsAddressesAndSaysWhichIsTaken)
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
    const Served served;
    EXPECT_EQ(served.server->url(), "http://" + served.host() + "/");
    try {
        const Served other(served.host());
        ADD_FAILURE() << "served twice";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.what(), "cannot serve on " + served.host() +
                                    " (choose another, or port 0 for any free one): Address already in use");
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
    const std::string keys = ours + json;
    const std::string longest = press + std::string(1024 - press.size(), ' ');
    const std::string local = served.host("localhost");
    using Row = std::tuple<const char*, std::string, std::string, int>; // with the answer's status
    const Row cases[] = {
        Row("GET /panel.js", ours, "", 200),
        Row("GET /", "Host: " + local + "\r\nOrigin: http://" + local + "\r\n", "", 200),
        Row("GET /", "", "", 403),
        Row("GET /", "Host: evil.example:" + std::to_string(served.port()) + "\r\n", "", 403),
        Row("GET /events", "Host: 127.0.0.1\r\n", "", 403),
        Row("GET /", "Host: " + served.host("192.168.0.9") + "\r\n", "", 403),
        Row("POST /keys", keys + "Origin: http://evil.example\r\n", press, 403),
        Row("POST /keys", keys + "Origin: null\r\n", press, 403),
        Row("POST /keys", ours + "Content-Type: text/plain\r\n", press, 415),
        Row("POST /keys", ours, press, 415),
        Row("GET /keys", ours, "", 405),
        Row("POST /", keys, "{}", 405),
        Row("GET /nothing", ours, "", 404),
        Row("POST /keys", keys, "x", 400),
        Row("POST /keys", keys, R"({"client":1,"key":0})", 400),
        Row("POST /keys", keys, R"({"client":1,"key":0,"pressed":"true"})", 400),
        Row("POST /keys", keys, R"({"client":1,"key":3,"pressed":true})", 404),
        Row("POST /keys", keys, R"({"client":1,"key":-1,"pressed":true})", 404),
        Row("POST /keys", keys, R"({"client":2,"key":0,"pressed":true})", 409),
        Row("POST /keys", keys, std::string(200000, ' '), 413),
        Row("POST /keys", keys, longest + " ", 413),
        Row("POST /restart", keys, "{}", 409),
    };
    for (const auto& [line, headers, body, status] : cases) {
        EXPECT_EQ(served.ask(served.request(line, body, headers)), status) << line << "\n"
                                                                           << headers << body.substr(0, 60);
    }
    EXPECT_EQ(served.simulation.board.view().keys, std::vector<bool>(3));
    EXPECT_EQ(served.post("/keys", longest), 204);
    EXPECT_TRUE(page->receives(R"("keys":[true,false,false])"));
    served.server->offerRestart(true);
    EXPECT_TRUE(page->receives(R"("restart":true)"));
    EXPECT_EQ(served.post("/restart", "{}"), 202);
    EXPECT_EQ(served.restarts, 1);
    Connection refused(served.port(), served.request("GET /nothing", "", ours));
    EXPECT_NE(refused.readUntil("\r\n\r\n").find("Content-Security-Policy: default-src 'none'; script-src 'self';"),
              std::string::npos);
    EXPECT_TRUE(refused.receives("there is no such page\n"));
    const Served everywhere("0.0.0.0:0");
    EXPECT_EQ(everywhere.server->url(), "http://" + everywhere.host() + "/");
    EXPECT_EQ(everywhere.ask(everywhere.request("GET /", "", "Host: " + everywhere.host("192.168.0.9") + "\r\n")), 200);
    EXPECT_EQ(everywhere.ask(everywhere.request("GET /", "", "Host: " + everywhere.host("my-box.lan") + "\r\n")), 403);
    const Served onIp6("[::]:0");
    EXPECT_EQ(onIp6.server->url(), "http://" + onIp6.host("[::1]") + "/");
    EXPECT_EQ(onIp6.ask(onIp6.request("GET /", "", "Host: " + onIp6.host("[fe80::9]") + "\r\n")), 200);
}

TEST(PanelServer, SendsThePanelAsJson)
{
    BoardConfig outdoor = boardOf(panelKind("outdoor"));
    outdoor.keyNames = {"Up", "\xFF"};
    const struct {
        BoardConfig config;
        int faults;
        AppState app;
        std::string sent; ///< the keys' names and the state, with sizes of what is long
    } cases[] = {
        {FakeApplication::boardConfig(),
         0,
         {},
         R"j(["Key 0","Key 1","Key 2"] ["✓ no bus faults"] "RA8806 (not identified yet)" false [false,true,false] )j"
         R"j({"failed":false,"hint":0,"restart":false,"running":true,"text":"not started"})j"},
        {FakeApplication::boardConfig(),
         1,
         {AppState::Phase::Running, 0},
         R"j(["Key 0","Key 1","Key 2"] ["⚠ 1 bus fault","chip select changed during a strobe at 0 ns"] )j"
         R"j("RA8806 (not identified yet)" true [false,true,false] )j"
         R"j({"failed":false,"hint":109,"restart":false,"running":true,"text":"running"})j"},
        {FakeApplication::boardConfig(),
         102,
         {AppState::Phase::Killed, 9},
         R"j(["Key 0","Key 1","Key 2"] ["⚠ 102 bus faults","and 2 more",102] )j"
         R"j("RA8806 (not identified yet)" true [false,true,false] )j"
         R"j({"failed":true,"hint":0,"restart":false,"running":false,"text":"ended by signal 9 (Killed)"})j"},
        {outdoor,
         0,
         {AppState::Phase::Exited, 0},
         "[\"Up\",\"\uFFFD\"] [] \"none: this panel has no display\" false [false,true] "
         R"j({"failed":false,"hint":0,"restart":false,"running":false,"text":"ended with status 0"})j"},
    };
    for (const auto& c : cases) {
        const Served served("0", c.config, [&](Simulation& simulation) {
            for (int i = 0; i < c.faults; ++i) {
                FakeApplication(simulation.board).disturbBus();
            }
            simulation.board.press(1);
            simulation.app = c.app;
        });
        const auto page = served.page();
        page->readUntil("event: hello\ndata: ");
        const auto hello = nlohmann::json::parse(page->readUntil("\n"));
        EXPECT_EQ(hello["command"], "./app \"x");
        EXPECT_EQ(hello["panel"], c.config.panel);
        page->readUntil("event: state\ndata: ");
        auto state = nlohmann::json::parse(page->readUntil("\n"));
        EXPECT_NE(state["svg"].get<std::string>().find("<desc>"), std::string::npos);
        state["app"]["hint"] = state["app"]["hint"].get<std::string>().size();
        if (auto& bus = state["bus"]; bus.size() > 2) {
            bus = {bus.front(), bus.back(), bus.size()};
        }
        std::string sent = hello["keys"].dump();
        for (const char* const part : {"bus", "controller", "hasBusFaults", "keys", "app"}) {
            sent += " " + state[part].dump();
        }
        EXPECT_EQ(sent, c.sent);
    }
}

TEST(PanelServer, SendsTheLogAndReleasesTheKeysOfAPageThatIsGone)
{
    Served served;
    AppLog& log = served.simulation.log;
    log.append(LogLine::Source::Output, "whole\nbad \xFF\n> ");
    auto first = served.page();
    const auto second = served.page();
    EXPECT_TRUE(second->receives("\"text\":\"bad \uFFFD\","));
    EXPECT_TRUE(second->receives(R"("text":"> ",)"));
    log.append(LogLine::Source::Error, "oops\n");
    log.append(LogLine::Source::Output, "go\n");
    log.remark("remark");
    EXPECT_TRUE(second->receives(R"({"first":2,)")) << "from the first line that was not complete";
    EXPECT_TRUE(second->receives(R"({"source":"","text":"> go",)"));
    EXPECT_TRUE(second->receives(R"({"source":"stderr","text":"oops",)"));
    EXPECT_TRUE(second->receives(R"({"source":"panelsim","text":"remark",)"));
    ASSERT_EQ(served.post("/keys", R"({"client":1,"key":1,"pressed":true})"), 204);
    EXPECT_TRUE(second->receives(R"("keys":[false,true,false])"));
    ASSERT_EQ(served.post("/keys", R"({"client":2,"key":1,"pressed":true})"), 204);
    ASSERT_EQ(served.post("/keys", R"({"client":2,"key":1,"pressed":false})"), 204);
    ASSERT_EQ(served.post("/keys", R"({"client":2,"key":2,"pressed":true})"), 204);
    EXPECT_TRUE(second->receives(R"("keys":[false,true,true])")) << "the first page still holds it";
    first.reset();
    EXPECT_TRUE(second->receives(R"("keys":[false,false,true])"));
    EXPECT_TRUE(second->receives("event: alive"));
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
        EXPECT_TRUE(page->receives("0\r\n\r\n")) << "the end of the stream";
    });
    served.simulation.log.remark("the last line");
    served.simulation.app = AppState{AppState::Phase::Exited, 7};
    served.simulation.changes.notify();
    served.server.reset();
    reading.join();
}

} // namespace
