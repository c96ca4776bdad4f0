#include "panelsim/web/EventStream.h"

#include "panelsim/board/AppLog.h"
#include "panelsim/web/PageState.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace panelsim {

namespace {

using namespace std::chrono_literals;

constexpr auto longestSilence = 1s;

/** A page gets no more log lines than it can show besides the panel: a pause for each, up to a whole. */
constexpr auto pausePerLine = 1ms;
constexpr auto longestPause = 250ms;

/** Of the log in one event: with a control code in JSON having six bytes, each of many pages needs some of these. */
constexpr std::size_t enoughLogBytes = 65536;

/** JSON text has no line ends of its own. */
std::string event(const std::string& name, const std::string& json)
{
    return "event: " + name + "\ndata: " + json + "\n\n";
}

} // namespace

EventStream::EventStream(const Simulation& itsSimulation, const NewsFeed& itsFeed, EventClients::Presence itsClient,
                         const std::string& hello)
    : simulation(itsSimulation), feed(itsFeed), client(std::move(itsClient)), greeting(event("hello", hello))
{
}

std::optional<std::string> EventStream::next()
{
    if (news.last && !linesWait()) {
        return std::nullopt;
    }
    const auto deadline = Clock::now() + longestSilence;
    std::string events = std::exchange(greeting, {});
    do {
        const auto due = news.last ? Clock::time_point() : logDue;
        news = feed.wait(news.number, linesWait() ? std::min(due, deadline) : deadline);
        events += newEvents();
    } while (events.empty() && !news.last && Clock::now() < deadline);
    return events.empty() ? event("alive", "0") : events; // either side notices when the other has gone
}

std::string EventStream::newEvents()
{
    std::string events;
    if (news.state != toldState) {
        toldState = news.state;
        events += event("state", *news.state);
    }
    if (linesWait() && (news.last || Clock::now() >= logDue)) {
        events += event("log", newLogLines());
    }
    return events;
}

std::string EventStream::newLogLines()
{
    const std::uint64_t version = simulation.log.version(); // first: better to tell twice what comes in between
    const AppLog::Lines lines = simulation.log.linesFrom(nextLine, enoughLogBytes);
    if (lines.last) {
        toldLog = version;
    }
    const auto begun =
        std::find_if(lines.lines.begin(), lines.lines.end(), [](const LogLine& line) { return !line.complete; });
    nextLine = lines.first + static_cast<std::uint64_t>(begun - lines.lines.begin());
    logDue = Clock::now() + std::min<Clock::duration>(lines.lines.size() * pausePerLine, longestPause);
    return logJson(lines);
}

} // namespace panelsim
