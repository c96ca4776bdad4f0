#include "panelsim/app/Simulator.h"

#include "panelsim/app/ExitStatus.h"
#include "panelsim/app/Output.h"
#include "panelsim/app/Preload.h"
#include "panelsim/board/Duration.h"
#include "panelsim/scenario/Situation.h"

#include <csignal>
#include <exception>
#include <poll.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace panelsim {

namespace {

using namespace std::chrono_literals;
using Outcome = ScenarioResult::Outcome;

constexpr std::uint16_t usualPort = 8080;
constexpr auto hintAfter = 5s;
constexpr auto graceAfterSignal = 5s;
constexpr auto betweenKills = 50ms;
constexpr auto betweenFlushes = 200ms;
constexpr int mostKills = 20;
constexpr int playingTick = 2; // milliseconds
constexpr int usualTick = 50;  // milliseconds

std::string commandLine(const Options& options)
{
    std::string line;
    for (const std::string& word : options.command) {
        line += (line.empty() ? "" : " ") + word;
    }
    return line;
}

} // namespace

Simulator::Simulator(const Options& given, std::optional<Scenario> itsScenario, const Signals& itsSignals)
    : options(given), signals(itsSignals), scenario(std::move(itsScenario)), simulation(given.board),
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
    const auto serve = [this](const HttpAddress& address) {
        page.emplace(simulation, commandLine(options), address, [this] { restartWanted = true; });
    };
    HttpAddress usual;
    usual.port = usualPort;
    try {
        serve(options.http.value_or(usual));
    } catch (const std::exception&) {
        if (options.http) {
            throw;
        }
        serve(HttpAddress()); // any free port
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
    while (!isDone()) {
        waitForEvents();
        takeSignals();
        restartIfWanted();
        takeEndOfApplication();
        playScenario();
        checkDeadlines();
        if (printer) {
            printer->update();
        }
        if (trace && Clock::now() >= flushDue) {
            trace->flush();
            flushDue = Clock::now() + betweenFlushes;
        }
    }
    judgeEnd();
    if (printer) {
        printer->draw();
    }
    closeTrace();
    return status();
}

void Simulator::startApplication()
{
    simulation.board.clearBusFaults();
    operationsAtStart = simulation.board.pinOperations();
    application.emplace(options.command, signals.previousMask(), simulation.log);
    simulation.app.set({AppState::Phase::Running, 0});
    hintDue = Clock::now() + hintAfter;
}

bool Simulator::isDone() const
{
    return application->hasEnded() && !killDue && !player && !staying;
}

void Simulator::waitForEvents()
{
    std::vector<pollfd> polled = {{signals.descriptor(), POLLIN, 0}};
    std::vector<OutputCopier>& outputs = application->outputs();
    for (const OutputCopier& output : outputs) {
        polled.push_back(output.awaited());
    }
    poll(polled.data(), polled.size(), player ? playingTick : usualTick);
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        if (polled[i + 1].revents != 0) {
            outputs[i].step();
        }
    }
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

void Simulator::restartIfWanted()
{
    if (!restartWanted.exchange(false) || !staying) {
        return;
    }
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
        simulation.app.set(*state);
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

void Simulator::playScenario()
{
    if (player) {
        if (const auto end = player->advance()) {
            endScenario(*end);
        }
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

/** A scenario that passed is not all: the application may fail when it ends. */
void Simulator::judgeEnd()
{
    if (!result || result->outcome != Outcome::Passed) {
        return;
    }
    const AppState end = simulation.app.get();
    const bool asAsked = askedToEnd && end.shellStatus() == exitStatus::signalBase + SIGTERM;
    applicationFailed = !result->exitAccepted && !end.succeeded() && !asAsked;
    if (applicationFailed) {
        say("the scenario passed, but the application " + describe(end) + "\n" + describeSituation(simulation));
    } else {
        say("the scenario '" + scenario->name + "' passed");
    }
}

void Simulator::closeTrace()
{
    try {
        if (trace) {
            trace->close();
        }
    } catch (const std::exception& error) {
        traceFailed = true;
        say(error.what());
    }
}

int Simulator::status() const
{
    int own = simulation.app.get().shellStatus();
    if (timedOut) {
        own = exitStatus::timeout;
    } else if (result) {
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
            own = applicationFailed ? exitStatus::applicationFailure : exitStatus::passed;
        }
    }
    return own == exitStatus::passed && traceFailed ? exitStatus::usageFailure : own;
}

void Simulator::remark(const std::string& text)
{
    say(text);
    simulation.log.remark(text);
}

} // namespace panelsim
