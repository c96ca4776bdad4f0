#include "panelsim/web/PanelServer.h"

#include "panelsim/board/FileDescriptor.h"
#include "tests/panelsim/FakeApplication.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <exception>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace {

using namespace panelsim;

/** A connection to a server, over which a request was sent. */
struct Client {
    FileDescriptor descriptor;
    std::string received = {};
};

/** A server in front of a panel without an application. It works while a client reads. */
struct Served {
    explicit Served(const std::string& address = "0", const BoardConfig& board = FakeApplication::boardConfig())
        : simulation(board, [] { return std::chrono::nanoseconds(0); })
    {
        server.emplace(simulation, "./app \"x", address, [this] { ++restarts; });
        port = server->url().substr(server->url().rfind(':') + 1);
        port.pop_back();
    }
    std::string host(const std::string& name = "127.0.0.1") const { return "Host: " + name + ":" + port + "\r\n"; }
    Client connect(const std::string& line, const std::string& headers, const std::string& body = "") const
    {
        const std::string length = "Content-Length: " + std::to_string(body.size()) + "\r\n";
        const std::string bytes = line + " HTTP/1.1\r\nConnection: close\r\n" + length + headers + "\r\n" + body;
        const auto number = static_cast<std::uint16_t>(std::stoi(port));
        const sockaddr_in address{AF_INET, htons(number), {htonl(INADDR_LOOPBACK)}, {}};
        Client client{FileDescriptor(socket(AF_INET, SOCK_STREAM, 0), "no socket")};
        ::connect(client.descriptor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
        send(client.descriptor.get(), bytes.data(), bytes.size(), 0);
        return client;
    }
    Client page() const { return connect("GET /events", host()); }
    /** Takes what has come up to the text. @return whether the text came: within 30 s, before the end */
    bool receives(Client& client, const std::string& text)
    {
        std::array<char, 65536> buffer{};
        ssize_t count = -1;
        for (int i = 0; client.received.find(text) == std::string::npos; ++i) {
            if (i == 30000 || count == 0) {
                return false;
            }
            server ? server->update() : void();
            usleep(1000);
            count = recv(client.descriptor.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
            client.received.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
        client.received.erase(0, client.received.find(text) + text.size());
        return true;
    }
    bool answers(const char* status, const std::string& line, const std::string& headers, const std::string& body = "")
    {
        Client client = connect(line, headers, body);
        return receives(client, std::string("HTTP/1.1 ") + status);
    }

    Simulation simulation;
    int restarts = 0;
    std::optional<PanelServer> server;
    std::string port;
};

TEST(PanelServer, ReadsAddressesAndSaysWhichIsTaken)
{
    const Served served;
    const std::string junk = " is no address to serve on: it has to be PORT or ADDR:PORT";
    const std::pair<std::string, std::string> cases[] = {
        {"localhost:0", "http://127.0.0.1:"},
        {"0.0.0.0:0", "http://127.0.0.1:"},
        {"[0:0::1]:0", "http://[::1]:"},
        {"[::]:0", "http://[::1]:"},
        {served.port,
         "cannot serve on 127.0.0.1:" + served.port + " (choose another, or port 0 for any free one): Addr"},
        {":80", "':80'" + junk},
        {"8080x", "'8080x'" + junk},
        {"65536", "'65536'" + junk},
        {"1.2.3.4:", "'1.2.3.4:'" + junk},
        {"my-box:1", "'my-box:1'" + junk}};
    for (const auto& [address, expected] : cases) {
        std::string result;
        try {
            result = Served(address).server->url();
        } catch (const std::exception& error) {
            result = error.what();
        }
        EXPECT_EQ(result.substr(0, expected.size()), expected);
    }
}

TEST(PanelServer, RefusesRequestsOfOtherSitesAndThoseThatAreNotAsTheyShouldBe)
{
    Served served;
    Client page = served.page();
    ASSERT_TRUE(served.receives(page, R"("client":1,)") && served.receives(page, "✓ no bus faults"));
    const std::string keys = served.host() + "Content-Type: application/json\r\n";
    const std::string press = R"({"client":1,"key":0,"pressed":true})";
    const std::string longest = press + std::string(1024 - press.size(), ' ');
    const std::tuple<const char*, const char*, std::string, std::string> cases[] = {
        {"200", "GET /", served.host("localhost") + "Origin: http://localhost:" + served.port + "\r\n", ""},
        {"403", "GET /", "", ""},
        {"403", "GET /", served.host("evil.example"), ""},
        {"403", "GET /events", "Host: 127.0.0.1\r\n", ""},
        {"403", "GET /", served.host("192.168.0.9"), ""},
        {"403", "POST /keys", keys + "Origin: http://evil.example\r\n", press},
        {"415", "POST /keys", served.host() + "Content-Type: text/plain\r\n", press},
        {"415", "POST /keys", served.host(), press},
        {"405", "GET /keys", served.host(), ""},
        {"404", "GET /nothing", served.host(), ""},
        {"400", "POST /keys", keys, R"({"client":1,"key":0})"},
        {"400", "POST /keys", keys, R"({"client":1,"key":0,"pressed":"true"})"},
        {"404", "POST /keys", keys, R"({"client":1,"key":3,"pressed":true})"},
        {"409", "POST /keys", keys, R"({"client":2,"key":0,"pressed":true})"},
        {"413", "POST /keys", keys, std::string(200000, ' ')},
        {"413", "POST /keys", keys, longest + " "},
        {"409", "POST /restart", keys, "{}"}};
    for (const auto& [status, line, headers, body] : cases) {
        EXPECT_TRUE(served.answers(status, line, headers, body)) << status << line << headers << body.substr(0, 60);
    }
    EXPECT_EQ(served.simulation.board.view().keys, std::vector<bool>(3));
    EXPECT_TRUE(served.answers("204", "POST /keys", keys, longest));
    EXPECT_TRUE(served.receives(page, R"("keys":[true,false,false])"));
    served.server->offerRestart(true);
    EXPECT_TRUE(served.receives(page, R"("restart":true)"));
    EXPECT_TRUE(served.answers("202", "POST /restart", keys, "{}") && served.restarts == 1);
    Client script = served.connect("GET /panel.js", served.host());
    EXPECT_TRUE(served.receives(script, "Content-Security-Policy: default-src 'none'; script-src 'self';"));
}

TEST(PanelServer, ServesAPanelWithoutDisplayAtAllAddressesButNotByName)
{
    BoardConfig outdoor = boardOf(panelKind("outdoor"));
    outdoor.keyNames = {"Up", "\xFF"};
    Served served("[::]:0", outdoor);
    Client page = served.page();
    EXPECT_TRUE(served.receives(page, "\"keys\":[\"Up\",\"\uFFFD\"],\"panel\":\"outdoor\""));
    EXPECT_TRUE(served.receives(page, R"("bus":[],"controller":"none: this panel has no display",)"));
    for (const auto& [name, status] : {std::pair("192.168.0.9", "200"), {"[fe80::9]", "200"}, {"my-box.lan", "403"}}) {
        EXPECT_TRUE(served.answers(status, "GET /", served.host(name))) << name;
    }
}

TEST(PanelServer, SendsWhatChangesAndReleasesTheKeysOfAPageThatIsGone)
{
    Served served;
    Board& board = served.simulation.board;
    AppLog& log = served.simulation.log;
    served.simulation.app = {AppState::Phase::Running, 0};
    FakeApplication(board).disturbBus();
    std::optional<Client> first = served.page();
    Client second = served.page();
    const auto sends = [&](const std::string& text) { EXPECT_TRUE(served.receives(second, text)) << text; };
    sends(R"j("client":2,"command":"./app \"x","keys":["Key 0","Key 1","Key 2"],"panel":"indoor",)j");
    sends(R"j("app":{"failed":false,"hint":". It has not used any pin yet.)j");
    sends(R"j("restart":false,"running":true,"text":"running"},"bus":["⚠ 1 bus fault","chip select changed during)j");
    sends(R"j("controller":"RA8806 (not identified yet)","hasBusFaults":true,"keys":[false,false,false],"svg":"<svg)j");
    board.admit(PinOperation::Export, 40);
    sends(R"("hint":"")");
    for (int i = 0; i < 101; ++i) {
        FakeApplication(board).disturbBus();
    }
    sends(R"("bus":["⚠ 102 bus faults","chip)");
    sends(R"(,"and 2 more"])");
    log.append(LogLine::Source::Output, "whole\nbad \xFF\n> ");
    sends("\"text\":\"bad \uFFFD\"");
    sends(R"("text":"> ")");
    log.append(LogLine::Source::Output, "go\n");
    sends(R"({"first":2,"lines":[{"source":"","text":"> go",)");
    log.append(LogLine::Source::Error, "oops\n");
    log.remark("remark");
    sends(R"({"source":"stderr","text":"oops",)");
    sends(R"({"source":"panelsim","text":"remark",)");
    board.press(1, 1);
    board.press(2, 2);
    sends(R"("keys":[false,true,true])");
    first.reset();
    sends(R"("keys":[false,false,true])");
    sends("event: alive");
    const Client unread = served.page();
    log.append(LogLine::Source::Error, std::string(300000, 'x'));
    log.remark("the last line");
    served.simulation.app = {AppState::Phase::Killed, 9};
    served.server.reset();
    sends(R"j("failed":true,"hint":"","restart":false,"running":false,"text":"ended by signal 9 (Killed)")j");
    sends("the last line");
    sends("0\r\n\r\n");
}

} // namespace
