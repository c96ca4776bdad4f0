#include "panelsim/app/AppProcess.h"
#include "panelsim/app/Options.h"
#include "panelsim/app/Output.h"
#include "panelsim/board/FileDescriptor.h"
#include "panelsim/board/Simulation.h"
#include "panelsim/board/Text.h"
#include "panelsim/picture/PanelText.h"
#include "panelsim/picture/VcdTrace.h"
#include "panelsim/scenario/Scenario.h"
#include "panelsim/scenario/ScenarioPlayer.h"
#include "panelsim/web/PanelServer.h"
#include "panelsim/wire/PinServer.h"

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

using namespace panelsim;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Outcome = ScenarioResult::Outcome;

constexpr int usageFailure = 2; // an option or a file is wrong, or something is not available
constexpr int timeoutOver = 42;
constexpr int signalBase = 128; // added to the number of a signal, as shells do
constexpr const char* usualPort = "8080";
constexpr auto hintAfter = 5s;
constexpr auto graceAfterSignal = 5s;
constexpr auto killingTime = 1s; // each process that is killed may leave others behind
// A page takes some ten milliseconds to write, and nobody wants to see each of its characters come.
constexpr auto restBeforeDrawing = 80ms;
constexpr unsigned mostLooksUndrawn = 12;
constexpr int playingTick = 2; // milliseconds
constexpr int usualTick = 20;  // milliseconds

/** Opens descriptors 0 to 2 where they are closed: the next file that is opened would otherwise be written to as one.
 */
void occupyStandardDescriptors()
{
    int opened = STDIN_FILENO;
    while (opened >= STDIN_FILENO && opened <= STDERR_FILENO) {
        opened = open("/dev/null", O_RDWR);
    }
    close(opened);
}

/**
 * Blocks the signals that panelsim reads where it waits, in this thread and those that it starts. Those that are
 * ignored already, as under nohup, stay so. What can no longer be written to is an error, and no signal.
 * @return what they are read from
 * @throws std::system_error
 */
FileDescriptor takeOverSignals()
{
    sigset_t ours;
    sigemptyset(&ours);
    std::signal(SIGCHLD, SIG_DFL); // ignored, the end of a child would go by without a trace
    std::signal(SIGPIPE, SIG_DFL); // for the application
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        struct sigaction action {};
        sigaction(number, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {
            sigaddset(&ours, number);
        }
    }
    FileDescriptor arrivals(signalfd(-1, &ours, SFD_NONBLOCK | SFD_CLOEXEC), "cannot wait for signals");
    sigaddset(&ours, SIGPIPE);
    sigaddset(&ours, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &ours, nullptr);
    return arrivals;
}

/** A run of panelsim: an application in front of a simulated panel, until the user or it is done. */
class Simulator {
public:
    Simulator(const Options& itsOptions, const std::optional<Scenario>& itsScenario)
        : options(itsOptions), scenario(itsScenario), simulation(options.board),
          pins(simulation.board, [this](const std::string& text) { remark(text); }), drawn(look()), seen(drawn)
    {
        for (const PinFault& fault : options.faults) {
            simulation.board.failPin(fault);
        }
        if (!options.vcd.empty()) {
            trace.emplace(simulation.board, options.vcd);
        }
        preparePreloading(pins.address());
        if (!options.noHttp && (options.http || !scenario)) {
            openPage();
        }
    }

    /** @return the exit status */
    int run()
    {
        if (options.timeout) {
            timeout = Clock::now() + *options.timeout;
        }
        takeSignals();
        if (interruptedBy != 0) {
            return signalBase + interruptedBy;
        }
        startApplication();
        if (page) {
            say("the panel is at " + page->url());
        }
        if (scenario) {
            player.emplace(*scenario, simulation);
        }
        while (!application->hasEnded() || killDue || player || staying) {
            application->copyOutput(signals.get(), player ? playingTick : usualTick);
            takeSignals();
            takeEndOfApplication();
            if (const auto end = player ? player->advance() : std::nullopt) {
                endScenario(*end);
            }
            checkDeadlines();
            if (page) {
                page->update();
            }
            draw(false);
            if (trace) {
                trace->flush();
            }
        }
        draw(true);
        const int status = judge();
        if (trace) {
            trace->close();
        }
        return status;
    }

private:
    void openPage()
    {
        std::string command;
        for (const std::string& word : options.command) {
            command += (command.empty() ? "" : " ") + word;
        }
        const auto serve = [&](const std::string& address) {
            page.emplace(simulation, command, address, [this] { restart(); });
        };
        try {
            serve(options.http.value_or(usualPort));
        } catch (const std::exception& error) {
            if (options.http) {
                throw std::runtime_error(std::string("--http: ") + error.what());
            }
            serve("0"); // any free port
        }
    }

    void startApplication()
    {
        simulation.board.clearBusFaults();
        operationsAtStart = simulation.board.pinOperations();
        application.emplace(options.command, simulation.log);
        simulation.app = {AppState::Phase::Running, 0};
        hintDue = Clock::now() + hintAfter;
    }

    void takeSignals()
    {
        signalfd_siginfo signal{};
        while (read(signals.get(), &signal, sizeof signal) == sizeof signal) {
            const int number = static_cast<int>(signal.ssi_signo);
            if (number == SIGCHLD) {
                continue;
            }
            interruptedBy = number;
            staying = false;
            if (player) {
                endScenario(player->stop());
            }
            if (!application || application->hasEnded()) {
                continue;
            }
            // The terminal sends Ctrl-C to all in its foreground; the application decides what it does about it.
            const bool gotItToo = signal.ssi_code == SI_KERNEL && number == SIGINT && application->sharesProcessGroup();
            if (!gotItToo) {
                application->sendSignal(number);
            }
            if (!gotItToo || scenario) {
                killDue = killDue.value_or(Clock::now() + graceAfterSignal);
            }
        }
    }

    void restart()
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

    void takeEndOfApplication()
    {
        if (const auto state = application->takeEnd()) {
            hintDue.reset();
            simulation.log.remark("the application " + describe(*state));
            if (!scenario && !timedOut && interruptedBy == 0) {
                stayOrReport(*state);
            }
            if (killDue) {
                application->sendSignal(SIGTERM); // to what it has left behind
            }
            // The state comes last: when it is seen, the log has all that the application wrote.
            simulation.app = *state;
        }
        if (application->hasEnded() && !application->hasLeftOthers()) {
            killDue.reset();
        }
    }

    void stayOrReport(const AppState& state)
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

    void endScenario(const ScenarioResult& end)
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

    void checkDeadlines()
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
                remark("the application has not used a pin for 5 s. If it should have: is it statically linked, or "
                       "set-user-ID, so that libpanelsim-gpio.so cannot be loaded into it? Does it use another GPIO "
                       "library than libsysfsgpio.so?");
            }
        }
        if (killDue && now >= *killDue) {
            if (!std::exchange(killing, true)) {
                remark("the application did not end within 5 s of being asked to, and is killed");
            }
            application->sendSignal(SIGKILL);
            killDue = now < *killDue + killingTime ? killDue : std::nullopt;
        }
    }

    void askApplicationToEnd()
    {
        hintDue.reset();
        // Once: to many applications a second signal says that they are not to clean up.
        if (!application->hasEnded() && !killDue) {
            askedToEnd = true;
            application->sendSignal(SIGTERM);
            killDue = Clock::now() + graceAfterSignal;
        }
    }

    /** Draws a panel at rest that is not drawn yet, or one that has been changing for long or for the last time. */
    void draw(bool last)
    {
        if (!options.draw || (!last && Clock::now() < lookDue)) {
            return;
        }
        lookDue = Clock::now() + restBeforeDrawing;
        const std::string text = look();
        looksUndrawn = text == drawn ? 0 : looksUndrawn + 1;
        if (looksUndrawn != 0 && (last || text == seen || looksUndrawn > mostLooksUndrawn)) {
            writeAll(STDOUT_FILENO, "\n" + text);
            drawn = text;
        }
        seen = text;
    }

    std::string look() const
    {
        const bool inColour = isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
        return drawPanel(options.board, simulation.board.view(), inColour ? TextStyle::Terminal : TextStyle::Plain);
    }

    int judge() const
    {
        const AppState end = simulation.app;
        if (timedOut || !result) {
            return timedOut ? timeoutOver : end.shellStatus();
        }
        if (result->outcome != Outcome::Passed) {
            return result->outcome == Outcome::Stopped ? signalBase + interruptedBy : static_cast<int>(result->outcome);
        }
        // That is not all: the application may fail when it ends.
        if (result->exitAccepted || end.succeeded() || (askedToEnd && end.shellStatus() == signalBase + SIGTERM)) {
            say("the scenario '" + scenario->name + "' passed");
            return EXIT_SUCCESS;
        }
        say("the scenario passed, but the application " + describe(end) + "\n" + describeSituation(simulation));
        return static_cast<int>(Outcome::ApplicationFailed);
    }

    void remark(const std::string& text)
    {
        say(text);
        simulation.log.remark(text);
    }

    const FileDescriptor signals = takeOverSignals(); // first: threads that the others start block them, too
    const Options& options;
    const std::optional<Scenario>& scenario;
    Simulation simulation;
    std::optional<VcdTrace> trace;
    PinServer pins;
    std::optional<PanelServer> page;
    std::optional<AppProcess> application;
    std::optional<ScenarioPlayer> player;
    std::optional<ScenarioResult> result;

    bool staying = false;                ///< without an application, for the page
    std::uint64_t operationsAtStart = 0; ///< pin operations when the application was started
    bool timedOut = false;
    bool askedToEnd = false; ///< whether the application was, after the scenario or the time
    bool killing = false;    ///< whether it is being killed
    int interruptedBy = 0;   ///< number of a signal
    std::optional<Clock::time_point> timeout;
    std::optional<Clock::time_point> hintDue;
    std::optional<Clock::time_point> killDue;

    std::string drawn; ///< what standard output shows of the panel
    std::string seen;  ///< at the last look
    Clock::time_point lookDue = {};
    unsigned looksUndrawn = 0; ///< the last ones that saw something else than what is drawn
};

int run(const Options& options)
{
    // Before signals wait to be read: the file may be a pipe, or a terminal, and Ctrl-C then ends the wait for it.
    std::optional<Scenario> scenario;
    if (const std::string file = options.lint + options.scenario; !file.empty()) {
        scenario = readScenario(file, Board(options.board));
    }
    if (options.lint.empty()) {
        return Simulator(options, scenario).run();
    }
    const std::size_t steps = scenario->steps.size();
    std::cout << scenario->file << ": " << steps << (steps == 1 ? " step" : " steps") << ", no fault found"
              << std::endl;
    return std::cout ? EXIT_SUCCESS : throw std::runtime_error("cannot write to standard output");
}

} // namespace

int main(int argc, char** argv)
{
    occupyStandardDescriptors();
    try {
        const std::optional<Options> options = parseOptions(argc, argv);
        return options ? run(*options) : EXIT_SUCCESS;
    } catch (const std::exception& error) {
        say(error.what());
        return usageFailure;
    }
}
