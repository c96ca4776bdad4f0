#include "panelsim/app/Simulator.h"

#include "panelsim/board/Duration.h"

#include <exception>
#include <system_error>
#include <unistd.h>

namespace panelsim {

namespace {

using namespace std::chrono_literals;
using Outcome = ScenarioResult::Outcome;

constexpr const char* usualPort = "8080";
constexpr auto hintAfter = 5s;
constexpr auto graceAfterSignal = 5s;
constexpr auto betweenKills = 50ms;
constexpr auto betweenFlushes = 200ms;
constexpr int mostKills = 20;
constexpr int playingTick = 2; // milliseconds
constexpr int usualTick = 20;  // milliseconds

} // namespace

Simulator::Simulator(const Options& itsOptions, const std::optional<Scenario>& itsScenario)
    : options(itsOptions), scenario(itsScenario), simulation(options.board),
      pins(simulation.board, [this](const std::string& text) { remark(text); })
{
    for (const PinFault& fault : options.faults) {
        simulation.board.failPin(fault);
    }
    if (!options.vcd.empty()) {
        trace.emplace(simulation.board, options.vcd);
    }
    preparePreloading(pins.address());
    if (options.draw) {
        printer.emplace(simulation.board);
    }
    openPage();
}

void Simulator::openPage()
{
    if (options.noHttp || (!options.http && scenario)) {
        return;
    }
    std::string command;
    for (const std::string& word : options.command) {
        command += (command.empty() ? "" : " ") + word;
    }
    const auto serve = [&](const std::string& address) {
        page.emplace(simulation, command, address, [this] { restart(); });
    };
    try {
        serve(options.http.value_or(usualPort));
    } catch (const std::exception&) {
        if (options.http) {
            throw;
        }
        serve("0"); // any free port
    }
}

int Simulator::run()
{
    if (options.timeout) {
        timeout = Clock::now() + *options.timeout;
    }
    takeSignals();
    if (interruptedBy != 0) {
        return exitStatus::signalBase + interruptedBy;
    }
    startApplication();
    if (page) {
        say("the panel is at " + page->url());
    }
    if (scenario) {
        player.emplace(*scenario, simulation);
    }
    while (!application->hasEnded() || killDue || player || staying) {
        application->copyOutput(signals.descriptor(), player ? playingTick : usualTick);
        takeSignals();
        takeEndOfApplication();
        if (const auto end = player ? player->advance() : std::nullopt) {
            endScenario(*end);
        }
        checkDeadlines();
        if (page) {
            page->update();
        }
        if (printer) {
            printer->update(false);
        }
        if (trace && Clock::now() >= flushDue) {
            trace->flush();
            flushDue = Clock::now() + betweenFlushes;
        }
    }
    if (printer) {
        printer->update(true);
    }
    int status = judge();
    try {
        if (trace) {
            trace->close();
        }
    } catch (const std::exception& error) {
        say(error.what());
        status = status == exitStatus::passed ? exitStatus::usageFailure : status;
    }
    return status;
}

void Simulator::startApplication()
{
    simulation.board.clearBusFaults();
    operationsAtStart = simulation.board.pinOperations();
    application.emplace(options.command, signals.previousMask(), simulation.log);
    simulation.app = {AppState::Phase::Running, 0};
    hintDue = Clock::now() + hintAfter;
}

void Simulator::takeSignals()
{
    while (const auto signal = signals.take()) {
        if (signal->number == SIGCHLD) {
            continue;
        }
        interruptedBy = signal->number;
        staying = false;
        if (player) {
            endScenario(player->stop());
        }
        if (!application || application->hasEnded()) {
            continue;
        }
        // The terminal sends Ctrl-C to all in its foreground; what to do about it is then the application's affair.
        const bool gotItToo = signal->fromTerminal && signal->number == SIGINT && application->sharesProcessGroup();
        if (!gotItToo) {
            application->sendSignal(signal->number);
        }
        if (!gotItToo || scenario) {
            killDue = killDue.value_or(Clock::now() + graceAfterSignal);
        }
    }
}

void Simulator::restart()
{
    try {
        remark("the application is started again");
        startApplication();
        staying = false;
        page->offerRestart(false);
    } catch (const std::system_error& error) {
        remark(error.what()); // it is being built just now, say
    }
}

void Simulator::takeEndOfApplication()
{
    const auto state = application->takeEnd();
    if (state) {
        hintDue.reset();
        simulation.log.remark("the application " + describe(*state));
        if (!scenario && !timedOut && interruptedBy == 0) {
            stayOrEnd(*state);
        }
        if (killDue) {
            application->sendSignal(SIGTERM); // to what it has left behind
        }
        // The state comes last: whoever sees it finds all that the application wrote in the log.
        simulation.app = *state;
    }
    if (application->hasEnded() && !application->hasLeftOthers()) {
        killDue.reset();
    }
}

void Simulator::stayOrEnd(const AppState& state)
{
    const bool failedAtTerminal = !state.succeeded() && isatty(STDERR_FILENO) != 0;
    staying = page && (options.stay || failedAtTerminal);
    if (staying) {
        page->offerRestart(true);
        say("the application " + describe(state) + "; the panel stays at " + page->url() + " until Ctrl-C");
    } else if (state.phase == AppState::Phase::Killed && state.status != SIGPIPE) { // which ends many a pipeline
        say("the application " + describe(state) + "\n" + describeSituation(simulation));
    }
}

void Simulator::endScenario(const ScenarioResult& end)
{
    result = end;
    player.reset();
    timeout.reset(); // the application has a time of its own to end
    if (end.outcome != Outcome::Passed) {
        say(end.message);
    }
    if (end.outcome != Outcome::Stopped) {
        askApplicationToEnd();
    }
}

void Simulator::checkDeadlines()
{
    const auto now = Clock::now();
    if (timeout && now >= *timeout) {
        timeout.reset();
        timedOut = true;
        staying = false;
        say("timeout after " + describe(*options.timeout) + "\n" + describeSituation(simulation));
        if (player) {
            endScenario(player->stop());
        }
        askApplicationToEnd();
    }
    if (hintDue && now >= *hintDue) {
        hintDue.reset();
        if (simulation.board.pinOperations() == operationsAtStart) {
            remark("the application has not used a pin for 5 s. If it should have: is it statically linked, "
                   "or set-user-ID, so that libpanelsim-gpio.so cannot be loaded into it? Does it use another GPIO "
                   "library than libsysfsgpio.so?");
        }
    }
    if (killDue && now >= *killDue) {
        killApplication();
    }
}

/** Kills it and what it has left behind, several times, since each that dies may leave others behind. */
void Simulator::killApplication()
{
    if (kills++ == 0) {
        remark("the application did not end within 5 s of being asked to, and is killed");
    }
    application->sendSignal(SIGKILL);
    killDue = kills < mostKills ? std::optional(Clock::now() + betweenKills) : std::nullopt;
}

void Simulator::askApplicationToEnd()
{
    hintDue.reset();
    // Once: to many applications a second signal says that they are not to clean up.
    if (!application->hasEnded() && !killDue) {
        askedToEnd = true;
        application->sendSignal(SIGTERM);
        killDue = Clock::now() + graceAfterSignal;
    }
}

/** @return the exit status, but for a trace that could not be written */
int Simulator::judge() const
{
    const AppState end = simulation.app;
    if (timedOut || !result) {
        return timedOut ? exitStatus::timeout : end.shellStatus();
    }
    switch (result->outcome) {
    case Outcome::Failed:
        return exitStatus::stepFailed;
    case Outcome::ApplicationFailed:
        return exitStatus::applicationFailure;
    case Outcome::FileError:
        return exitStatus::usageFailure;
    case Outcome::Stopped:
        return exitStatus::signalBase + interruptedBy;
    case Outcome::Passed:
        break;
    }
    // That is not all: the application may fail when it ends.
    if (result->exitAccepted || end.succeeded() ||
        (askedToEnd && end.shellStatus() == exitStatus::signalBase + SIGTERM)) {
        say("the scenario '" + scenario->name + "' passed");
        return exitStatus::passed;
    }
    say("the scenario passed, but the application " + describe(end) + "\n" + describeSituation(simulation));
    return exitStatus::applicationFailure;
}

void Simulator::remark(const std::string& text)
{
    say(text);
    simulation.log.remark(text);
}

} // namespace panelsim
