#include "panelsim/web/EventStreams.h"

#include "panelsim/web/PageJson.h"

#include <algorithm>
#include <microhttpd.h>
#include <utility>

namespace panelsim {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t mostPages = 64;
constexpr auto gathering = 20ms;   // of changes: a person sees no delay, and a page gets fifty states a second at most
constexpr auto pauseOfLog = 200ms; // what a page needs for many lines
constexpr auto heartbeat = 1s;     // by which either side notices that the other has gone
constexpr auto patienceAtTheEnd = 1s;         // with pages that take nothing
constexpr std::size_t enoughLogBytes = 65536; // in one event

/** JSON text has no line ends of its own. */
std::string event(const std::string& name, const std::string& json)
{
    return "event: " + name + "\ndata: " + json + "\n\n";
}

} // namespace

EventStreams::EventStreams(Simulation& itsSimulation, PageInfo itsInfo)
    : simulation(itsSimulation), info(std::move(itsInfo))
{
    publish();
    follower = std::thread([this] { follow(); });
}

MHD_Response* EventStreams::open(MHD_Connection* connection)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (streams.size() == mostPages) {
        return nullptr;
    }
    const Board::Hand page = ++lastPage;
    const std::string hello = event("hello", helloJson(page, info, simulation.board.getConfig()));
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
    publish();
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
    if (stream.state != state) {
        stream.state = state;
        events += event("state", *state);
    }
    if (stream.log != log) {
        const AppLog::Lines lines = simulation.log.linesFrom(stream.nextLine, enoughLogBytes);
        const auto begun =
            std::find_if(lines.lines.begin(), lines.lines.end(), [](const LogLine& line) { return !line.complete; });
        stream.nextLine = lines.first + static_cast<std::uint64_t>(begun - lines.lines.begin());
        stream.log = lines.last ? log : stream.log;
        events += event("log", logJson(lines));
    }
    if (std::exchange(stream.beat, beat) != beat && events.empty()) {
        events = event("alive", "0");
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
    while (!finishing) {
        const bool linesWait = simulation.log.version() != log;
        if (simulation.changes.wait(seen, linesWait ? logDue : beatDue) != seen && !finishing) {
            std::this_thread::sleep_for(gathering);
        }
        seen = simulation.changes.count();
        publish();
    }
}

/** Has the connections go on for which there is something to send. */
void EventStreams::publish()
{
    const auto now = Clock::now();
    const std::uint64_t version = simulation.log.version();
    std::string json = stateJson(simulation, restart);
    const std::lock_guard<std::mutex> lock(mutex);
    last = finishing;
    const bool isNewState = state == nullptr || json != *state;
    const bool isNewLog = version != log && (last || now >= logDue);
    if (isNewState) {
        state = std::make_shared<const std::string>(std::move(json));
    }
    if (isNewLog) {
        log = version;
        logDue = now + pauseOfLog;
    }
    if (isNewState || isNewLog || last || now >= beatDue) {
        beatDue = now + heartbeat;
        ++beat;
        for (auto& [page, stream] : streams) {
            if (std::exchange(stream.suspended, false)) {
                MHD_resume_connection(stream.connection);
            }
        }
    }
}

} // namespace panelsim
