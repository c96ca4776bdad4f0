#include "panelsim/web/PanelServer.h"

#include "panelsim/board/BoardGpioFactory.h"
#include "tests/panelsim/web/EventReader.h"

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace {

using namespace panelsim;
using nlohmann::json;

const std::string jsonType = "application/json";

/** A connection that is left open after bytes were sent. */
class RawConnection {
public:
    RawConnection(int port, const std::string& bytes) : descriptor(socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }
    ~RawConnection() { close(descriptor); }
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;

    void waitForAnswer() const
    {
        char first = 0;
        EXPECT_EQ(recv(descriptor, &first, 1, MSG_PEEK), 1);
    }
    /** @return all that is answered to a client that sends no more */
    std::string answer() const
    {
        shutdown(descriptor, SHUT_WR);
        std::string bytes;
        std::array<char, 4096> buffer{};
        for (ssize_t count = 1; count > 0;) {
            count = recv(descriptor, buffer.data(), buffer.size(), 0);
            bytes.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
        return bytes;
    }

private:
    int descriptor;
};

/** A server on any free port, before a panel without an application. */
class Served {
public:
    Served()
    {
        server.emplace(simulation, PageInfo{"1.0.0", "indoor", "./app -x"}, HttpAddress(), [this] { ++restarts; });
    }

    int port() const
    {
        const std::string url = server->url();
        return std::stoi(url.substr(url.rfind(':') + 1));
    }
    std::string host() const { return "127.0.0.1:" + std::to_string(port()); }
    httplib::Result get(const std::string& path, const httplib::Headers& headers = {}) const
    {
        return httplib::Client("127.0.0.1", port()).Get(path, headers);
    }
    int post(const std::string& path, const std::string& body, const std::string& type = jsonType,
             const httplib::Headers& headers = {}) const
    {
        const auto answer = httplib::Client("127.0.0.1", port()).Post(path, headers, body, type);
        return answer ? answer->status : 0;
    }
    int key(const std::string& client, unsigned key, bool pressed) const
    {
        return post("/keys", json({{"client", client}, {"key", key}, {"pressed", pressed}}).dump());
    }
    std::string exchange(const std::string& bytes) const
    {
        const RawConnection connection(port(), bytes);
        return connection.answer();
    }

    Simulation simulation{BoardConfig()};
    std::atomic<int> restarts{0};
    std::optional<PanelServer> server;
};

EventReader::Condition keyIs(unsigned key, bool pressed)
{
    return [=](const json& state) { return state.at("keys").at(key) == pressed; };
}

TEST(PanelServer, ServesThePageWithHeadersThatKeepItToItself)
{
    const Served served;
    const std::pair<const char*, const char*> files[] = {
        {"/", "index.html"}, {"/panel.css", "panel.css"}, {"/panel.js", "panel.js"}, {"/favicon.svg", "favicon.svg"}};
    for (const auto& [path, name] : files) {
        std::ifstream file(std::string(PANELSIM_PAGE_FILES "/") + name, std::ios::binary);
        const std::string content{std::istreambuf_iterator<char>(file), {}};
        const auto answer = served.get(path, {{"Accept-Encoding", "gzip, br"}, {"Range", "bytes=0-1"}});
        ASSERT_TRUE(answer) << path;
        EXPECT_EQ(answer->status, 200) << path;
        EXPECT_EQ(answer->body, content) << path;
    }
    for (const char* path : {"/", "/nothing", "/panel.css"}) {
        const auto answer = served.get(path);
        EXPECT_EQ(answer->get_header_value("Content-Security-Policy").find("default-src 'none'; script-src 'self';"),
                  0U);
        EXPECT_EQ(answer->get_header_value("X-Content-Type-Options"), "nosniff");
        EXPECT_EQ(answer->get_header_value("Cache-Control"), "no-store");
        EXPECT_EQ(answer->get_header_value("Referrer-Policy"), "no-referrer");
    }
    EXPECT_EQ(served.get("/nothing")->status, 404);
    EXPECT_EQ(served.get("/keys")->status, 405);
    EXPECT_EQ(served.post("/events", "{}"), 405);
    EXPECT_EQ(served.get("/" + std::string(9000, 'a'))->status, 414);
    const std::pair<std::string, const char*> refused[] = {{"nonsense\r\n\r\n", "HTTP/1.1 400 "},
                                                           {"GET / HT", "HTTP/1.1 400 "},
                                                           {"GET /" + std::string(70000, 'a'), "HTTP/1.1 414 "},
                                                           {std::string(66000, 'a'), "HTTP/1.1 414 "},
                                                           {"GET / HTTP/1.1\r\n\r\n", "HTTP/1.1 403 "}};
    for (const auto& [bytes, answer] : refused) {
        EXPECT_EQ(served.exchange(bytes).find(answer), 0U) << bytes.substr(0, 60);
    }
}

TEST(PanelServer, SaysWhichAddressIsTakenAndLeavesSignalsAlone)
{
    std::signal(SIGPIPE, SIG_DFL);
    const Served served;
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
    Simulation other{BoardConfig()};
    try {
        PanelServer(other, {}, parseHttpAddress(served.host()), {});
        ADD_FAILURE() << "served twice";
    } catch (const std::system_error& error) {
        EXPECT_EQ(std::string(error.what()).find("cannot serve on " + served.host() + " (choose another port"), 0U);
    }
}

TEST(PanelServer, RefusesWhatOtherSitesSendBeforeItHasAnyEffect)
{
    Served served;
    served.server->offerRestart(true);
    EventReader page(served.port());
    const std::string press = json({{"client", page.client()}, {"key", 0}, {"pressed", true}}).dump();
    const httplib::Headers cases[] = {{{"Host", "evil.example:" + std::to_string(served.port())}},
                                      {{"Host", served.host()}, {"Host", served.host()}},
                                      {{"Origin", "http://evil.example"}},
                                      {{"Origin", "null"}},
                                      {{"Sec-Fetch-Site", "cross-site"}, {"Sec-Fetch-Mode", "no-cors"}}};
    for (const auto& headers : cases) {
        for (const char* path : {"/", "/panel.js", "/events", "/nothing"}) {
            EXPECT_EQ(served.get(path, headers)->status, 403) << path;
        }
        EXPECT_EQ(served.post("/keys", press, jsonType, headers), 403);
        EXPECT_EQ(served.post("/keys", std::string(9000, 'x'), "text/plain", headers), 403);
        EXPECT_EQ(served.post("/restart", "{}", jsonType, headers), 403);
    }
    const std::string hidden = "POST /keys HTTP/1.1\r\nHost: " + served.host() + "\r\nContent-Type: " + jsonType +
                               "\r\nContent-Length: " + std::to_string(press.size()) + "\r\n\r\n" + press;
    const std::string body = std::string(8192, ' ') + "\r\n" + hidden;
    const std::string answer =
        served.exchange("POST /keys HTTP/1.1\r\nHost: " + served.host() + "\r\nOrigin: http://evil.example\r\n" +
                        "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    EXPECT_EQ(answer.find("HTTP/1.1 403 "), 0U);
    EXPECT_EQ(answer.rfind("HTTP/1.1 "), 0U) << "one request only";
    EXPECT_EQ(served.simulation.board.view().keys, std::vector<bool>(3));
    EXPECT_EQ(served.restarts, 0);
}

TEST(PanelServer, RefusesPostsThatAreNotAsTheyShouldBe)
{
    Served served;
    EventReader page(served.port());
    const std::string client = "{\"client\":\"" + page.client() + "\",";
    const std::pair<std::string, int> bodies[] = {{"", 400},
                                                  {"x", 400},
                                                  {"[]", 400},
                                                  {"{}", 400},
                                                  {std::string(1024, '['), 400},
                                                  {std::string(1025, ' '), 413},
                                                  {std::string(200000, ' '), 413},
                                                  {client + "\"key\":0}", 400},
                                                  {client + "\"key\":-1,\"pressed\":true}", 400},
                                                  {client + "\"key\":0.0,\"pressed\":true}", 400},
                                                  {client + "\"key\":\"0\",\"pressed\":true}", 400},
                                                  {client + "\"key\":4294967296,\"pressed\":true}", 400},
                                                  {client + "\"key\":0,\"pressed\":1}", 400},
                                                  {client + "\"key\":0,\"pressed\":true,\"more\":0}", 400},
                                                  {client + "\"key\":3,\"pressed\":true}", 404},
                                                  {R"({"client":1,"key":0,"pressed":true})", 400},
                                                  {R"({"client":"1x","key":0,"pressed":true})", 400},
                                                  {R"({"client":"0","key":0,"pressed":true})", 409},
                                                  {R"({"client":"99","key":0,"pressed":true})", 409}};
    for (const auto& [body, status] : bodies) {
        EXPECT_EQ(served.post("/keys", body), status) << body.substr(0, 60);
    }
    const std::string good = client + "\"key\":0,\"pressed\":true}";
    for (const char* type : {"", "text/plain", "application/jsonx", "multipart/form-data; boundary=x"}) {
        EXPECT_EQ(served.post("/keys", good, type), 415) << type;
    }
    EXPECT_EQ(served.post("/keys", good, jsonType, {{"Content-Encoding", "gzip"}}), 415);
    const std::string head = "POST /keys HTTP/1.1\r\nHost: " + served.host() + "\r\nContent-Type: " + jsonType + "\r\n";
    EXPECT_EQ(served.exchange(head + "\r\n" + good).find("HTTP/1.1 411 "), 0U);
    EXPECT_EQ(served.exchange(head + "Transfer-Encoding: chunked\r\n\r\n5\r\n").find("HTTP/1.1 411 "), 0U);
    EXPECT_EQ(served.exchange(head + "Content-Length: -1\r\n\r\n" + good).find("HTTP/1.1 400 "), 0U);
    EXPECT_EQ(served.exchange(head + "Content-Length: 500\r\n\r\n" + good).find("HTTP/1.1 400 "), 0U) << "half a body";
    EXPECT_EQ(served.simulation.board.view().keys, std::vector<bool>(3));
    EXPECT_EQ(served.post("/keys", good, "Application/JSON; charset=utf-8"), 204);
}

TEST(PanelServer, PressesKeysForEveryPageToSeeUntilTheirPageHasGone)
{
    Served served;
    EventReader watching(served.port());
    const json hello = watching.next("hello");
    EXPECT_EQ(hello.at("keyCount"), 3);
    EXPECT_EQ(hello.at("command"), "./app -x");
    std::optional<EventReader> pressing(std::in_place, served.port());
    const std::string client = pressing->client();
    EXPECT_NE(client, hello.at("client"));
    EXPECT_EQ(served.key(client, 1, true), 204);
    EXPECT_TRUE(served.simulation.board.view().keys.at(1));
    watching.next("state", keyIs(1, true));
    EXPECT_EQ(served.key(client, 1, false), 204);
    watching.next("state", keyIs(1, false));
    EXPECT_EQ(served.key(client, 2, true), 204);
    watching.next("state", keyIs(2, true));
    pressing.reset();
    watching.next("state", keyIs(2, false));
    EXPECT_EQ(served.key(client, 2, true), 409);
}

TEST(PanelServer, TellsTheStateWheneverItChanges)
{
    Served served;
    EventReader page(served.port());
    const json first = page.next("state");
    EXPECT_EQ(first.at("app"),
              json({{"phase", "notStarted"}, {"text", "not started"}, {"succeeded", false}, {"restart", false}}));
    EXPECT_EQ(first.at("leds"), json(std::vector<bool>(8)));
    EXPECT_EQ(first.at("pinOperations"), false);
    EXPECT_EQ(first.at("busFaults"), json({{"count", 0}, {"first", json::array()}}));

    const auto id = BoardGpioFactory(served.simulation.board).create();
    id->exportGpio(served.simulation.board.getConfig().idGpioBase);
    page.next("state", [](const json& state) { return state.at("pinOperations") == true; });
    served.simulation.board.makeOutput(served.simulation.board.getConfig().ledGpioBase + 2, true);
    const json lit = page.next("state", [](const json& state) { return state.at("leds").at(2) == true; });
    EXPECT_NE(lit.at("svg"), first.at("svg"));

    EXPECT_EQ(served.post("/restart", "{}"), 409);
    served.simulation.app.set({AppState::Phase::Killed, SIGSEGV});
    served.server->offerRestart(true);
    const json ended = page.next("state", [](const json& state) { return state.at("app").at("restart") == true; });
    EXPECT_EQ(ended.at("app").at("text"), "ended by signal 11 (Segmentation fault)");
    EXPECT_EQ(served.post("/restart", "{\"now\":true}"), 400);
    EXPECT_EQ(served.post("/restart", "{}", "text/plain"), 415);
    EXPECT_EQ(served.restarts, 0);
    EXPECT_EQ(served.post("/restart", "{}"), 202);
    EXPECT_EQ(served.restarts, 1);
}

TEST(PanelServer, ContinuesTheLogFromTheFirstLineThatWasNotComplete)
{
    Served served;
    AppLog& log = served.simulation.log;
    log.append(LogLine::Source::Output, "whole\nbad \xFF\xC3(\n> ");
    EventReader page(served.port());
    EXPECT_EQ(page.next("log").at("lines"), json({{{"source", "output"}, {"text", "whole"}},
                                                  {{"source", "output"}, {"text", "bad \uFFFD\uFFFD("}},
                                                  {{"source", "output"}, {"text", "> "}}}));
    log.append(LogLine::Source::Error, "oops\n");
    const json second = page.next("log", [](const json& event) { return !event.at("lines").empty(); });
    EXPECT_EQ(second.at("first"), 2);
    EXPECT_EQ(second.at("lines").at(0).at("text"), "> ");
    EXPECT_EQ(second.at("lines").at(1), json({{"source", "error"}, {"text", "oops"}}));
    log.append(LogLine::Source::Output, "input\n");
    const json third =
        page.next("log", [](const json& event) { return event.at("lines").at(0).at("text") == "> input"; });
    EXPECT_EQ(third.at("first"), 2);
    log.remark("over");
    EXPECT_EQ(page.next("log").at("first"), 4);
}

TEST(PanelServer, AnswersWhileAsManyPagesAsItTakesAreConnected)
{
    Served served;
    std::vector<std::unique_ptr<EventReader>> pages;
    std::string client;
    while (pages.size() < EventClients::most) {
        pages.push_back(std::make_unique<EventReader>(served.port()));
        client = pages.back()->client();
    }
    const auto refused = served.get("/events");
    EXPECT_EQ(refused->status, 503);
    EXPECT_NE(refused->get_header_value("Retry-After"), "");
    EXPECT_EQ(served.key(client, 0, true), 204);
    for (const auto& page : pages) {
        page->next("state", keyIs(0, true));
    }
    pages.pop_back();
    pages.front()->next("state", keyIs(0, false));
    EXPECT_NE(std::make_unique<EventReader>(served.port())->client(), "");
}

TEST(PanelServer, TurnsAwayWhoKeepsItWaitingWhenOthersCome)
{
    Served served;
    EventReader page(served.port());
    const std::string client = page.client();
    const std::string halves[] = {"GET / HT", "GET / HTTP/1.1\r\nHo",
                                  "POST /keys HTTP/1.1\r\nHost: " + served.host() + "\r\nContent-Type: " + jsonType +
                                      "\r\nContent-Length: 500\r\n\r\n{"};
    std::vector<std::unique_ptr<RawConnection>> waiting;
    for (std::size_t i = 0; i < 2 * HttpServer::mostConnections; ++i) {
        waiting.push_back(std::make_unique<RawConnection>(served.port(), halves[i % std::size(halves)]));
    }
    const auto answer = served.get("/panel.js");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
    for (std::size_t i = 0; i < std::size(halves); ++i) {
        waiting[i]->waitForAnswer();
        EXPECT_EQ(waiting[i]->answer().find("HTTP/1.1 503 "), 0U) << halves[i];
    }
    EXPECT_EQ(served.key(client, 0, true), 204) << "the page stays";
}

TEST(PanelServer, TellsALongLogInPiecesUntilItsEnd)
{
    Served served;
    constexpr std::size_t lines = 200;
    for (std::size_t i = 0; i < lines; ++i) {
        served.simulation.log.append(LogLine::Source::Output, std::string(AppLog::longestLine - 1, '\0') + "\n");
    }
    EventReader page(served.port());
    for (std::size_t told = 0; told < lines; served.server.reset()) {
        const json event = page.next("log");
        EXPECT_EQ(event.at("first"), told);
        EXPECT_LT(event.dump().size(), 500000U);
        told += event.at("lines").size();
    }
}

TEST(PanelServer, EndsWithTheNewestStateWhilePagesAreConnected)
{
    Served served;
    for (std::size_t i = 0; i < AppLog::keptLines; ++i) {
        served.simulation.log.remark(std::string(1000, 'x'));
    }
    EventReader page(served.port());
    page.next("log");
    const RawConnection halfRequest(served.port(), "POST /keys HTTP/1.1\r\n");
    const RawConnection unread(served.port(), "GET /events HTTP/1.1\r\nHost: " + served.host() + "\r\n\r\n");
    unread.waitForAnswer();
    served.simulation.keys.press(0, 1);
    served.server.reset();
    page.next("state", keyIs(1, true));
    EXPECT_EQ(page.waitForEnd(), 200);
}

} // namespace
