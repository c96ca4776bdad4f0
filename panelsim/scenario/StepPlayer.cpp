#include "panelsim/scenario/StepPlayer.h"

#include "panelsim/board/Utf8.h"
#include "panelsim/scenario/Screenshot.h"
#include "panelsim/scenario/StepText.h"

#include <algorithm>
#include <cstddef>
#include <system_error>
#include <thread>
#include <variant>
#include <vector>

namespace panelsim {

namespace {

using Outcome = ScenarioResult::Outcome;

constexpr HeldKeys::Hand hand = 0;
constexpr std::size_t reportedFaults = 5;
/** How often a panel that changes all the time is looked at. */
constexpr std::chrono::milliseconds lookInterval{2};

StepPlayer::Failure stopFailure()
{
    return {Outcome::Stopped, "stopped"};
}

std::string endText(const AppState& app)
{
    return "the application has " + describe(app);
}

} // namespace

StepPlayer::StepPlayer(Simulation& itsSimulation, const std::atomic<bool>& itsStop)
    : simulation(itsSimulation), stopped(itsStop)
{
}

StepPlayer::~StepPlayer()
{
    simulation.keys.leave(hand);
}

StepPlayer::Result StepPlayer::play(const Step& step)
{
    if (stopped) {
        return stopFailure();
    }
    expectation = describe(step.action);
    return std::visit([this](const auto& action) { return perform(action); }, step.action);
}

StepPlayer::Result StepPlayer::perform(const steps::Delay& step)
{
    return pause(step.duration);
}

StepPlayer::Result StepPlayer::perform(const steps::Press& step)
{
    return unlessFailed([&] { simulation.keys.press(hand, step.key); });
}

StepPlayer::Result StepPlayer::perform(const steps::Release& step)
{
    return unlessFailed([&] { simulation.keys.release(hand, step.key); });
}

StepPlayer::Result StepPlayer::perform(const steps::Tap& step)
{
    if (Result failure = perform(steps::Press{step.key})) {
        return failure;
    }
    Result failure = pause(step.duration);
    simulation.keys.release(hand, step.key);
    return failure;
}

StepPlayer::Result StepPlayer::perform(const steps::WaitText& step)
{
    return await([&] { return check(step, simulation.board.view()); }, step.within);
}

StepPlayer::Result StepPlayer::perform(const steps::ExpectText& step)
{
    return judge(check(step, simulation.board.view()));
}

StepPlayer::Result StepPlayer::perform(const steps::ExpectInverted& step)
{
    return judge(check(step, simulation.board.view()));
}

StepPlayer::Result StepPlayer::perform(const steps::ExpectLed& step)
{
    return judge(check(step, simulation.board.view()));
}

StepPlayer::Result StepPlayer::perform(const steps::WaitLed& step)
{
    return await([&] { return check(step, simulation.board.view()); }, step.within);
}

StepPlayer::Result StepPlayer::perform(const steps::ExpectBacklight& step)
{
    return judge(check(step, simulation.board.view()));
}

StepPlayer::Result StepPlayer::perform(const steps::WaitOutput& step)
{
    std::optional<std::uint64_t> searched; // version of the log, which may be long
    return await(
        [&]() -> Objection {
            const std::uint64_t version = simulation.log.version();
            if (searched != version) {
                searched = version;
                if (simulation.log.find(step.text, outputPlace)) {
                    return std::nullopt;
                }
            }
            return "it has not";
        },
        step.within);
}

StepPlayer::Result StepPlayer::perform(const steps::WaitExit& step)
{
    AppState app;
    const auto look = [&] {
        app = simulation.app.get();
        return app.hasEnded() ? Objection() : "it is " + describe(app);
    };
    if (Result failure = await(look, step.within)) {
        return failure;
    }
    if (app.shellStatus() != step.status) {
        return disappointed("it has " + describe(app));
    }
    exitAccepted = true;
    return std::nullopt;
}

StepPlayer::Result StepPlayer::perform(const steps::ExpectNoBusFaults& /*step*/)
{
    const std::uint64_t count = simulation.board.busFaultCount();
    if (count == 0) {
        return std::nullopt;
    }
    std::string objection = "there are " + std::to_string(count) + ":";
    const std::vector<BusFault> faults = simulation.board.busFaults();
    for (std::size_t i = 0; i < std::min(faults.size(), reportedFaults); ++i) {
        objection += "\n  " + describe(faults[i]);
    }
    return judge(objection + (count > reportedFaults ? "\n  ..." : ""));
}

StepPlayer::Result StepPlayer::perform(const steps::FailPin& step)
{
    return unlessFailed([&] { simulation.board.failPin(step.fault); });
}

StepPlayer::Result StepPlayer::perform(const steps::TakeScreenshot& step)
{
    const PanelView view = simulation.board.view();
    Objection difference;
    try {
        if (step.saveTo) {
            saveScreenshot(simulation.board.getConfig(), view, *step.saveTo);
        }
        if (step.compareWith) {
            difference = compareScreenshot(simulation.board.getConfig(), view, *step.compareWith);
        }
    } catch (const std::system_error& e) {
        return Failure{Outcome::FileError, printable(e.what())};
    }
    if (difference) {
        const std::string golden = step.compareWith->string();
        *difference +=
            "\nTo accept the panel as it is, " + (step.saveTo ? "copy " + step.saveTo->string() + " to " + golden
                                                              : "write save-to in place of compare-with for one run");
    }
    return judge(difference);
}

StepPlayer::Result StepPlayer::judge(const Objection& objection) const
{
    if (!objection) {
        return std::nullopt;
    }
    const AppState app = simulation.app.get();
    return hasFailed(app) ? disappointed(*objection, app) : disappointed(*objection);
}

/** Looks until there is no objection left. */
StepPlayer::Result StepPlayer::await(const std::function<Objection()>& look, std::chrono::milliseconds within) const
{
    const Clock::time_point deadline = Clock::now() + within;
    for (;;) {
        // All of these before the look, so that it sees the last of the time and of the application.
        const std::uint64_t seen = simulation.changes.count();
        const bool isOver = Clock::now() >= deadline;
        const AppState app = simulation.app.get();
        const Objection objection = look();
        if (!objection) {
            return std::nullopt;
        }
        if (stopped) {
            return stopFailure();
        }
        if (app.hasEnded()) {
            return disappointed(*objection, app);
        }
        if (isOver) {
            return disappointed(*objection);
        }
        sleepUntilChange(seen, deadline);
    }
}

StepPlayer::Result StepPlayer::pause(std::chrono::milliseconds duration) const
{
    const Clock::time_point deadline = Clock::now() + duration;
    for (;;) {
        const std::uint64_t seen = simulation.changes.count();
        if (stopped) {
            return stopFailure();
        }
        if (Result failure = unlessFailed([] {})) {
            return failure;
        }
        if (Clock::now() >= deadline) {
            return std::nullopt;
        }
        sleepUntilChange(seen, deadline);
    }
}

StepPlayer::Result StepPlayer::unlessFailed(const std::function<void()>& action) const
{
    const AppState app = simulation.app.get();
    if (hasFailed(app)) {
        return Failure{Outcome::ApplicationFailed, endText(app)};
    }
    action();
    return std::nullopt;
}

void StepPlayer::sleepUntilChange(std::uint64_t seen, Clock::time_point deadline) const
{
    simulation.changes.wait(seen, deadline);
    std::this_thread::sleep_until(std::min(Clock::now() + lookInterval, deadline));
}

bool StepPlayer::hasFailed(const AppState& app) const
{
    return app.hasEnded() && !app.succeeded() && !exitAccepted;
}

StepPlayer::Failure StepPlayer::disappointed(const std::string& objection) const
{
    return {Outcome::Failed, "expected " + expectation + ", but " + objection};
}

StepPlayer::Failure StepPlayer::disappointed(const std::string& objection, const AppState& ended) const
{
    if (hasFailed(ended)) {
        return {Outcome::ApplicationFailed, endText(ended) + "; " + disappointed(objection).text};
    }
    return disappointed(endText(ended) + " and " + objection);
}

} // namespace panelsim
