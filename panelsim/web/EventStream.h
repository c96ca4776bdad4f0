#pragma once

#include "panelsim/board/Simulation.h"
#include "panelsim/web/EventClients.h"
#include "panelsim/web/NewsFeed.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace panelsim {

/** The server-sent events for one client. Whatever the client has missed, it is told the newest state only. */
class EventStream {
public:
    /**
     * @param simulation, feed must outlive the stream
     * @param hello text of the first event
     */
    EventStream(const Simulation& simulation, const NewsFeed& feed, EventClients::Presence client,
                const std::string& hello);

    /** @return what to send next, after a second at the latest; empty at the end */
    std::optional<std::string> next();

private:
    using Clock = NewsFeed::Clock;

    std::string newEvents();
    std::string newLogLines();
    bool linesWait() const { return news.logVersion > toldLog; }

    const Simulation& simulation;
    const NewsFeed& feed;
    EventClients::Presence client;
    std::string greeting;
    NewsFeed::News news; ///< the newest
    std::shared_ptr<const std::string> toldState;
    std::optional<std::uint64_t> toldLog; ///< version of the log; older than the news while lines wait
    Clock::time_point logDue{};           ///< when lines may be told again
    std::uint64_t nextLine = 0;           ///< of the log: the first that is not complete on the page
};

} // namespace panelsim
