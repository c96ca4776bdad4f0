#include "panelsim/app/Simulator.h"

#include "panelsim/app/Environment.h"
#include "panelsim/app/ExitStatus.h"
#include "panelsim/app/Output.h"
#include "panelsim/board/Duration.h"
#include "panelsim/scenario/Situation.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace panelsim {

namespace {

constexpr std::uint16_t usualPort = 8080;
constexpr std::chrono::seconds hintAfter{5};
constexpr std::chrono::seconds graceAfterSignal{5};

PageInfo pageInfo(const Options& options)
{
    PageInfo info;
    info.version = PANELSIM_VERSION;
    info.panel = options.board.hasLcd ? "indoor" : "outdoor";
    for (const std::string& word : options.command) {
        info.command += (info.command.empty() ? "" : " ") + word;
    }
    return info;
}

} // namespace

Simulator::Simulator(const Options& given, std::optional<Scenario> itsScenario, const Signals& itsSignals)
    : options(given), signals(itsSignals), scenario(std::move(itsScenario)),
      wakeup(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "cannot open an event"),
      simulation(given.board),
      pins(simulation.board, [this](const std::string& text) { remark(text); })
{
    for (const PinFault& fault : options.faults) {
        simulation.board.failPin(fault);
    }
    if (!options.vcd.empty()) {
        trace.emplace(simulation.board, options.vcd);
    }
    start.command = options.command;
    start.environment = environmentFor(findPreloadedLibrary(), pins.address());
    start.signalMask = signals.previousMask();
    if (options.draw) {
        printer = std::make_unique<PanelPrinter>(simulation);
    }
    openPage();
}

void Simulator::openPage()
{
    if (options.noHttp || (!options.http && scenario)) {
        return;
    }
    const auto serve = [this](const HttpAddress& address) {
        const auto restart = [this] {
            restartWanted = true;
            wakeMainThread();
        };
        page = std::make_unique<PanelServer>(simulation, pageInfo(options), address, restart);
    };
    if (options.http) {
        serve(*options.http);
    } else {
        HttpAddress usual;
        usual.port = usualPort;
        try {
            serve(usual);
        } catch (const std::exception&) {
            serve(HttpAddress()); // any free port
        }
    }
    say("the panel is at " + page->url());
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
    startScenario();
    while (!isDone()) {
        waitForEvents();
        takeSignals();
        restartIfWanted();
        takeEndOfApplication();
        takeEndOfScenario();
        checkDeadlines();
    }
    judgeEnd();
    printer.reset();
    closeTrace();
    return status();
}

void Simulator::startApplication()
{
    simulation.board.clearBusFaults();
    operationsAtStart = simulation.board.pinOperations();
    application = std::make_unique<AppProcess>(start, simulation.log);
    simulation.app.set({AppState::Phase::Running, 0});
    hintDue = Clock::now() + hintAfter;
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

void Simulator::startScenario()
{
    if (scenario) {
        playing = std::make_unique<PlayingScenario>(*scenario, simulation, [this] { wakeMainThread(); });
    }
}

bool Simulator::isDone() const
{
    const bool scenarioDone = !scenario || result;
    return application == nullptr && scenarioDone && !staying;
}

void Simulator::waitForEvents()
{
    std::array<pollfd, 2> polled{{{signals.descriptor(), POLLIN, 0}, {wakeup.get(), POLLIN, 0}}};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(nextDeadline() - Clock::now());
    poll(polled.data(), polled.size(), static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = read(wakeup.get(), &count, sizeof count);
}

Simulator::Clock::time_point Simulator::nextDeadline() const
{
    auto next = Clock::now() + std::chrono::minutes(1);
    for (const auto& deadline : {timeout, hintDue, killDue}) {
        next = deadline ? std::min(next, *deadline) : next;
    }
    return next;
}

void Simulator::takeSignals()
{
    while (const auto signal = signals.take()) {
        takeSignal(*signal);
    }
}

void Simulator::takeSignal(const Signals::Arrived& signal)
{
    if (signal.number == SIGCHLD) {
        return;
    }
    interruptedBy = signal.number;
    staying = false;
    if (playing != nullptr) {
        playing->stop();
    }
    // The terminal sends Ctrl-C to all that share its foreground; what to do about it is then the application's affair.
    const bool gotItToo =
        signal.fromTerminal && signal.number == SIGINT && application != nullptr && application->sharesProcessGroup();
    if (application != nullptr && !gotItToo) {
        application->sendSignal(signal.number);
    }
    if (application != nullptr && (!gotItToo || scenario)) {
        killDue = killDue.value_or(Clock::now() + graceAfterSignal);
    }
}

void Simulator::takeEndOfApplication()
{
    const auto state = application == nullptr ? std::nullopt : application->takeEnd();
    if (!state) {
        return;
    }
    application.reset();
    hintDue.reset();
    killDue.reset();
    simulation.log.remark("the application " + describe(*state));
    if (!scenario && !timedOut && interruptedBy == 0) {
        stayOrEnd(*state);
    }
    // The state comes last: whoever sees it finds all that the application wrote in the log.
    simulation.app.set(*state);
}

void Simulator::stayOrEnd(const AppState& state)
{
    const bool failedAtTerminal = !state.succeeded() && isatty(STDERR_FILENO) != 0;
    staying = page != nullptr && (options.stay || failedAtTerminal);
    if (staying) {
        page->offerRestart(true);
        say("the application " + describe(state) + "; the panel stays at " + page->url() + " until Ctrl-C");
    } else if (state.phase == AppState::Phase::Killed && state.status != SIGPIPE) { // which ends many a pipeline
        say("the application " + describe(state) + "\n" + describeSituation(simulation));
    }
}

void Simulator::takeEndOfScenario()
{
    if (playing == nullptr || result) {
        return;
    }
    result = playing->takeResult();
    if (!result) {
        return;
    }
    timeout.reset(); // the application has a time of its own to end
    if (result->outcome != ScenarioResult::Outcome::Passed) {
        say(result->message);
    }
    askApplicationToEnd();
}

void Simulator::checkDeadlines()
{
    const auto now = Clock::now();
    if (timeout && now >= *timeout) {
        timeout.reset();
        timedOut = true;
        staying = false;
        say("timeout after " + describe(*options.timeout) + "\n" + describeSituation(simulation));
        if (playing != nullptr) {
            playing->stop();
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
    if (killDue && now >= *killDue && application != nullptr) {
        killDue.reset();
        remark("the application did not end within 5 s of being asked to, and is killed");
        application->sendSignal(SIGKILL);
    }
}

void Simulator::askApplicationToEnd()
{
    hintDue.reset();
    // Once: to many applications a second signal says that they are not to clean up.
    if (application != nullptr && !killDue) {
        askedToEnd = true;
        application->sendSignal(SIGTERM);
        killDue = Clock::now() + graceAfterSignal;
    }
}

/** A scenario that passed is not all: the application may fail when it ends. */
void Simulator::judgeEnd()
{
    if (!result || result->outcome != ScenarioResult::Outcome::Passed) {
        return;
    }
    const AppState end = simulation.app.get();
    const bool asAsked = askedToEnd && end.shellStatus() == exitStatus::signalBase + SIGTERM;
    if (!result->exitAccepted && !end.succeeded() && !asAsked) {
        applicationFailed = true;
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
    if (timedOut) {
        return exitStatus::timeout;
    }
    const int own = scenario ? scenarioStatus() : simulation.app.get().shellStatus();
    return own == exitStatus::passed && traceFailed ? exitStatus::usageFailure : own;
}

int Simulator::scenarioStatus() const
{
    switch (result->outcome) {
    case ScenarioResult::Outcome::Failed:
        return exitStatus::stepFailed;
    case ScenarioResult::Outcome::ApplicationFailed:
        return exitStatus::applicationFailure;
    case ScenarioResult::Outcome::FileError:
        return exitStatus::usageFailure;
    case ScenarioResult::Outcome::Stopped:
        return exitStatus::signalBase + interruptedBy;
    case ScenarioResult::Outcome::Passed:
        break;
    }
    return applicationFailed ? exitStatus::applicationFailure : exitStatus::passed;
}

void Simulator::remark(const std::string& text)
{
    say(text);
    simulation.log.remark(text);
}

void Simulator::wakeMainThread() const
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t size = write(wakeup.get(), &one, sizeof one);
}

} // namespace panelsim
