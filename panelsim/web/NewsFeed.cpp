#include "panelsim/web/NewsFeed.h"

#include "panelsim/web/PageState.h"

#include <utility>

namespace panelsim {

namespace {

using namespace std::chrono_literals;
using Clock = NewsFeed::Clock;

/** How long changes are gathered. A person sees no delay, and a page gets fifty states a second at most. */
constexpr auto gathering = 20ms;

/** The board tells nobody of pin operations that change no level, so their begin has to be looked for. */
constexpr Clock::duration lookForPinOperations = 100ms;
constexpr Clock::duration longestSleep = 1h;

} // namespace

NewsFeed::NewsFeed(Simulation& itsSimulation) : simulation(itsSimulation)
{
    publish(false);
    follower = std::thread([this] { follow(); });
}

NewsFeed::~NewsFeed()
{
    finish();
}

void NewsFeed::offerRestart(bool offered)
{
    restart = offered;
    simulation.changes.notify();
}

bool NewsFeed::offersRestart() const
{
    return restart;
}

NewsFeed::News NewsFeed::wait(std::uint64_t seen, Clock::time_point deadline) const
{
    std::unique_lock<std::mutex> lock(mutex);
    published.wait_until(lock, deadline, [&] { return news.number != seen; });
    return news;
}

void NewsFeed::finish()
{
    if (follower.joinable()) {
        finishing = true;
        simulation.changes.notify();
        follower.join();
        publish(true);
    }
}

void NewsFeed::follow()
{
    std::uint64_t seen = 0;
    bool operated = false;
    while (!finishing) {
        const auto deadline = Clock::now() + (operated ? longestSleep : lookForPinOperations);
        const std::uint64_t count = simulation.changes.wait(seen, deadline);
        const bool beginsToOperate = !operated && simulation.board.pinOperations() != 0;
        if (finishing || (count == seen && !beginsToOperate)) {
            continue;
        }
        std::this_thread::sleep_for(gathering);
        operated = operated || beginsToOperate;
        seen = simulation.changes.count();
        publish(false);
    }
}

void NewsFeed::publish(bool last)
{
    const std::uint64_t logVersion = simulation.log.version();
    std::string state = stateJson(simulation, restart);
    const std::lock_guard<std::mutex> lock(mutex);
    const bool changed = news.state == nullptr || *news.state != state;
    if (!changed && logVersion == news.logVersion && !last) {
        return;
    }
    if (changed) {
        news.state = std::make_shared<const std::string>(std::move(state));
    }
    news.logVersion = logVersion;
    news.last = last;
    ++news.number;
    published.notify_all();
}

} // namespace panelsim
