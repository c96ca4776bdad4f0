#include "panelsim/web/EventStreams.h"

#include "panelsim/picture/PanelSvg.h"

#include <algorithm>
#include <microhttpd.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

namespace panelsim {

namespace {

using namespace std::chrono_literals;
using nlohmann::json;

constexpr std::size_t mostPages = 64;
constexpr auto gathering = 20ms;   // of changes: a person sees no delay, and a page gets fifty states a second at most
constexpr auto pauseOfLog = 200ms; // what a page needs for many lines
constexpr auto heartbeat = 1s;     // by which either side notices that the other has gone
constexpr auto patienceAtTheEnd = 1s;         // with pages that take nothing
constexpr std::size_t enoughLogBytes = 65536; // in one event

/** @return an event of JSON text, which has no line ends of its own; what is not UTF-8 in it is replaced */
std::string event(const char* name, const json& value)
{
    const std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
    return "event: " + std::string(name) + "\ndata: " + text + "\n\n";
}

std::string controllerText(const std::optional<LcdView>& lcd)
{
    if (!lcd) {
        return "none: this panel has no display";
    }
    return std::string(lcd->chip == ChipVariant::Ra8803 ? "RA8803" : "RA8806") +
           (lcd->identified ? " (identified by the application)" : " (not identified yet)");
}

/** @return a heading and the first faults */
std::vector<std::string> describeBus(const Board& board)
{
    const std::uint64_t count = board.busFaultCount();
    if (count == 0) {
        return {"\u2713 no bus faults"};
    }
    std::vector<std::string> texts = {"\u26A0 " + std::to_string(count) + (count == 1 ? " bus fault" : " bus faults")};
    for (const BusFault& fault : board.busFaults()) {
        texts.push_back(describe(fault));
    }
    if (count >= texts.size()) {
        texts.push_back("and " + std::to_string(count + 1 - texts.size()) + " more");
    }
    return texts;
}

/** @return who a page is and what is simulated */
std::string helloEvent(Board::Hand page, const std::string& command, const BoardConfig& board)
{
    json keys = json::array();
    for (unsigned key = 0; key < board.keyCount; ++key) {
        keys.push_back((board.keyNames.empty() ? "Key " : "") + keyName(board, key));
    }
    static const auto run = std::chrono::system_clock::now().time_since_epoch().count();
    return event("hello", {{"client", page},
                           {"run", std::to_string(run)},
                           {"version", PANELSIM_VERSION},
                           {"panel", board.panel},
                           {"command", command},
                           {"keys", keys}});
}

/** @return all that a page shows but the log */
std::string stateEvent(const Simulation& simulation, bool restart)
{
    const AppState app = simulation.app;
    const PanelView view = simulation.board.view();
    const bool untouched = app.phase == AppState::Phase::Running && simulation.board.pinOperations() == 0;
    const char* const hint = untouched ? ". It has not used any pin yet. An application that never does may not be "
                                         "linked with the shared GPIO library."
                                       : "";
    return event("state", {{"app",
                            {{"running", !app.hasEnded()},
                             {"text", describe(app)},
                             {"hint", hint},
                             {"failed", app.hasEnded() && !app.succeeded()},
                             {"restart", restart}}},
                           {"keys", view.keys},
                           {"controller", controllerText(view.lcd)},
                           {"svg", drawPanelSvg(simulation.board.getConfig(), view, SvgExtent::Face)},
                           {"bus", view.lcd ? describeBus(simulation.board) : std::vector<std::string>()},
                           {"hasBusFaults", simulation.board.busFaultCount() != 0}});
}

std::string logEvent(const AppLog::Lines& lines)
{
    json texts = json::array();
    for (const LogLine& line : lines.lines) {
        const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(line.time.time_since_epoch());
        const char* const source = line.source == LogLine::Source::Output  ? ""
                                   : line.source == LogLine::Source::Error ? "stderr"
                                                                           : "panelsim";
        texts.push_back({{"time", time.count()}, {"source", source}, {"text", line.text}});
    }
    return event("log", {{"first", lines.first}, {"lines", texts}});
}

} // namespace

EventStreams::EventStreams(Simulation& itsSimulation, std::string itsCommand)
    : simulation(itsSimulation), command(std::move(itsCommand))
{
    follower = std::thread([this] { follow(); });
}

MHD_Response* EventStreams::open(MHD_Connection* connection)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (streams.size() == mostPages) {
        return nullptr;
    }
    const Board::Hand page = ++lastPage;
    const std::string hello = helloEvent(page, command, simulation.board.getConfig());
    Stream& stream = streams.emplace(page, Stream{*this, connection, page, hello}).first->second;
    constexpr std::size_t block = 1024;
    return MHD_create_response_from_callback(
        MHD_SIZE_UNKNOWN, block,
        [](void* itself, std::uint64_t /*position*/, char* bytes, std::size_t most) {
            auto& read = *static_cast<Stream*>(itself);
            return read.owner.read(read, bytes, most);
        },
        &stream,
        [](void* itself) {
            const auto& ended = *static_cast<Stream*>(itself);
            ended.owner.close(ended.page);
        });
}

bool EventStreams::isConnected(Board::Hand page)
{
    const std::lock_guard<std::mutex> lock(mutex);
    return streams.count(page) != 0;
}

void EventStreams::offerRestart(bool offered)
{
    restart = offered;
    simulation.changes.notify();
}

void EventStreams::finish()
{
    if (!follower.joinable()) {
        return;
    }
    finishing = true;
    simulation.changes.notify();
    follower.join();
    std::unique_lock<std::mutex> lock(mutex);
    closed.wait_for(lock, patienceAtTheEnd, [this] { return streams.empty(); });
}

/** Gives the next bytes, or suspends the connection until there are some. */
ssize_t EventStreams::read(Stream& stream, char* bytes, std::size_t most)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (stream.unsent.empty()) {
        stream.unsent = newEvents(stream);
    }
    if (stream.unsent.empty() && last) {
        return MHD_CONTENT_READER_END_OF_STREAM;
    }
    if (stream.unsent.empty()) {
        stream.suspended = true;
        MHD_suspend_connection(stream.connection);
    }
    const std::size_t count = stream.unsent.copy(bytes, most);
    stream.unsent.erase(0, count);
    return static_cast<ssize_t>(count);
}

std::string EventStreams::newEvents(Stream& stream) const
{
    std::string events;
    if (stream.state != stateVersion) {
        stream.state = stateVersion;
        events += state;
    }
    if (stream.log != log) {
        const AppLog::Lines lines = simulation.log.linesFrom(stream.nextLine, enoughLogBytes);
        const auto begun =
            std::find_if(lines.lines.begin(), lines.lines.end(), [](const LogLine& line) { return !line.complete; });
        stream.nextLine = lines.first + static_cast<std::uint64_t>(begun - lines.lines.begin());
        stream.log = lines.last ? log : stream.log;
        events += logEvent(lines);
    }
    if (std::exchange(stream.due, false) && events.empty()) {
        events = event("alive", 0);
    }
    return events;
}

void EventStreams::close(Board::Hand page)
{
    const std::lock_guard<std::mutex> lock(mutex);
    streams.erase(page);
    simulation.board.releaseAll(page);
    closed.notify_all();
}

void EventStreams::follow()
{
    std::uint64_t seen = 0;
    for (publish(); !last; publish()) {
        const bool linesWait = simulation.log.version() != log;
        if (simulation.changes.wait(seen, linesWait ? logDue : beatDue) != seen && !finishing) {
            std::this_thread::sleep_for(gathering);
        }
        seen = simulation.changes.count();
    }
}

/** Has the connections go on when there is something to send. */
void EventStreams::publish()
{
    const auto now = Clock::now();
    const bool isLast = finishing; // before what it is to show
    const std::uint64_t version = simulation.log.version();
    std::string newState = stateEvent(simulation, restart);
    const std::lock_guard<std::mutex> lock(mutex);
    last = isLast;
    const bool isNewLog = version != log && (last || now >= logDue);
    if (isNewLog) {
        log = version;
        logDue = now + pauseOfLog;
    }
    const bool isNewState = newState != state;
    if (isNewState) {
        state = std::move(newState);
        ++stateVersion;
    }
    if (isNewState || isNewLog || last || now >= beatDue) {
        beatDue = now + heartbeat;
        for (auto& [page, stream] : streams) {
            stream.due = true;
            if (std::exchange(stream.suspended, false)) {
                MHD_resume_connection(stream.connection);
            }
        }
    }
}

} // namespace panelsim
