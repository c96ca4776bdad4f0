#include "panelsim/web/EventStream.h"

#include "panelsim/app/AppLog.h"
#include "panelsim/web/PageState.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace panelsim {

namespace {

using namespace std::chrono_literals;

constexpr auto longestSilence = 1s;

/** JSON text has no line ends of its own. */
std::string event(const std::string& name, const std::string& json)
{
    return "event: " + name + "\ndata: " + json + "\n\n";
}

} // namespace

EventStream::EventStream(const Simulation& itsSimulation, const NewsFeed& itsFeed, EventClients::Presence itsClient,
                         const std::string& hello)
    : simulation(itsSimulation), feed(itsFeed), client(std::move(itsClient)),
      greeting("retry: 500\n" + event("hello", hello))
{
}

std::optional<std::string> EventStream::next()
{
    if (told.last) {
        return std::nullopt;
    }
    const NewsFeed::News news = feed.wait(told.number, NewsFeed::Clock::now() + longestSilence);
    std::string events = std::exchange(greeting, {});
    if (news.state != told.state) {
        events += event("state", *news.state);
    }
    if (news.logVersion > toldLog) {
        events += event("log", newLogLines());
    }
    told = news;
    return events.empty() ? ":\n\n" : events; // a comment, so that a client that has gone is noticed
}

std::string EventStream::newLogLines()
{
    toldLog = simulation.log.version(); // first: what comes in between is told again rather than never
    const AppLog::Lines lines = simulation.log.linesFrom(nextLine);
    const auto begun =
        std::find_if(lines.lines.begin(), lines.lines.end(), [](const LogLine& line) { return !line.complete; });
    nextLine = lines.first + static_cast<std::uint64_t>(begun - lines.lines.begin());
    return logJson(lines);
}

} // namespace panelsim
