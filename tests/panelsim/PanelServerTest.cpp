#include "panelsim/web/PanelServer.h"

#include "panelsim/board/FileDescriptor.h"
#include "tests/panelsim/FakeApplication.h"

#include <arpa/inet.h>
#include <cstdint>
#include <exception>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <regex>
#include <string>
#include <sys/socket.h>
#include <tuple>
#include <unistd.h>
#include <utility>

using namespace panelsim;

/** A server in front of a panel without an application. It works while a client reads. */
struct Served {
    explicit Served(const std::string& address = "0", const BoardConfig& board = FakeApplication::boardConfig())
        : simulation(board, [] { return std::chrono::nanoseconds(0); }),
          server(std::make_unique<PanelServer>(simulation, "./app \"x", address, nullptr)),
          port(std::regex_replace(server->url(), std::regex(".*:|/"), ""))
    {
    }
    /** @param headers with PORT for the server's @return the connection that the request was sent on */
    FileDescriptor ask(const std::string& line, const std::string& headers, const std::string& body = "") const
    {
        const std::string length = "Content-Length: " + std::to_string(body.size()) + "\r\n";
        const std::string head = line + " HTTP/1.1\r\nConnection: close\r\n" + length + headers + "\r\n";
        const std::string bytes = std::regex_replace(head, std::regex("PORT"), port) + body;
        const auto number = static_cast<std::uint16_t>(std::stoi(port));
        const sockaddr_in address{AF_INET, htons(number), {htonl(INADDR_LOOPBACK)}, {}};
        FileDescriptor client(socket(AF_INET, SOCK_STREAM, 0), "no socket");
        connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
        send(client.get(), bytes.data(), bytes.size(), 0);
        return client;
    }
    FileDescriptor openPage() const { return ask("GET /events", "Host: 127.0.0.1:PORT\r\n"); }
    /** Takes what comes, up to the text. @return whether it came: before the end, and before 30 s without anything */
    bool sends(const FileDescriptor& client, const std::string& text) const
    {
        std::string received;
        for (int pauses = 0; pauses < 30000;) {
            char byte = 0;
            const ssize_t count = recv(client.get(), &byte, 1, MSG_DONTWAIT);
            received.append(&byte, count > 0 ? 1 : 0);
            if (count == 0 || (byte == text.back() && received.rfind(text) != std::string::npos)) {
                return count > 0;
            }
            if (count < 0 && ++pauses > 0) {
                server ? server->update() : void();
                usleep(1000);
            }
        }
        return false;
    }

    Simulation simulation;
    std::unique_ptr<PanelServer> server;
    const std::string port;
};

TEST(PanelServer, RefusesRequestsOfOtherSitesAndThoseThatAreNotAsTheyShouldBe)
{
    BoardConfig outdoor = boardOf(panelKind("outdoor"));
    outdoor.keyNames = {"Up", "\xFF"};
    Served local;
    const Served everywhere("[::]:0", outdoor);
    const FileDescriptor page = local.openPage();
    EXPECT_TRUE(local.sends(page, R"("client":1,)") && local.sends(page, "✓ no bus faults"));
    EXPECT_TRUE(everywhere.sends(everywhere.openPage(), "\"keys\":[\"Up\",\"\uFFFD\"],\"panel\":\"outdoor\""));
    const std::string host = "Host: 127.0.0.1:PORT\r\n";
    const std::string keys = host + "Content-Type: application/json\r\n";
    const std::string press = R"({"client":1,"key":0,"pressed":true})";
    const std::string longest = press + std::string(1024 - press.size(), ' ');
    const std::tuple<const Served&, const char*, std::string, std::string, std::string> cases[] = {
        {local, "200", "GET /", "Host: localhost:PORT\r\nOrigin: http://localhost:PORT\r\n", ""},
        {local, "403", "GET /", "Host: 192.168.0.9:PORT\r\n", ""},
        {everywhere, "200", "GET /", "Host: 192.168.0.9:PORT\r\n", ""},
        {everywhere, "403", "GET /", "Host: my-box.lan:PORT\r\n", ""},
        {local, "403", "POST /keys", keys + "Origin: http://evil.example\r\n", press},
        {local, "415", "POST /keys", host, press},
        {local, "400", "POST /keys", keys, R"({"client":1,"key":0.5,"pressed":true})"},
        {local, "404", "POST /keys", keys, R"({"client":1,"key":3,"pressed":true})"},
        {local, "409", "POST /keys", keys, R"({"client":2,"key":0,"pressed":true})"},
        {local, "413", "POST /keys", keys, longest + " "}};
    for (const auto& [served, status, line, headers, body] : cases) {
        EXPECT_TRUE(served.sends(served.ask(line, headers, body), std::string("HTTP/1.1 ") + status))
            << status << line << headers << body.substr(0, 60);
    }
    EXPECT_TRUE(local.sends(local.ask("POST /keys", keys, longest), "HTTP/1.1 204"));
    EXPECT_TRUE(local.sends(page, R"("keys":[true,false,false])"));
    EXPECT_TRUE(local.sends(local.ask("GET /panel.js", host), "default-src 'none'; script-src 'self';"));
}

TEST(PanelServer, SendsWhatChangesAndReleasesTheKeysOfAPageThatIsGone)
{
    Served served;
    Board& board = served.simulation.board;
    AppLog& log = served.simulation.log;
    FakeApplication application(board);
    served.simulation.app = {AppState::Phase::Running, 0};
    application.disturbBus();
    auto first = std::make_unique<FileDescriptor>(served.openPage());
    const FileDescriptor second = served.openPage();
    const auto sends = [&](const std::string& text) { EXPECT_TRUE(served.sends(second, text)) << text; };
    sends(R"j("client":2,"command":"./app \"x","keys":["Key 0","Key 1","Key 2"],"panel":"indoor",)j");
    sends(R"j("controller":"RA8806 (not identified yet)","hasBusFaults":true,"keys":[false,false,false],"svg":"<svg)j");
    log.append(LogLine::Source::Output, "bad \xFF\n> ");
    sends(R"("text":"> ")");
    log.append(LogLine::Source::Output, "go\n");
    sends(R"({"first":1,"lines":[{"source":"","text":"> go",)");
    board.press(1, 1);
    board.press(2, 2);
    sends(R"("keys":[false,true,true])");
    first.reset();
    sends(R"("keys":[false,false,true])");
    sends("event: alive");
    const FileDescriptor unread = served.openPage();
    log.append(LogLine::Source::Error, std::string(251, '\n') + std::string(300000, 'x'));
    log.remark("the last line");
    served.simulation.app = {AppState::Phase::Killed, 9};
    served.server.reset();
    sends(R"j("failed":true,"hint":"","restart":false,"running":false,"text":"ended by signal 9 (Killed)")j");
    sends(R"("source":"stderr","text":"")");
    sends(R"({"first":252,)"); // after 250 lines at most
    sends(R"("source":"panelsim","text":"the last line")");
    sends("0\r\n\r\n");
}
