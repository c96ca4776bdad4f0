#pragma once

#include "panelsim/app/AppProcess.h"
#include "panelsim/app/Options.h"
#include "panelsim/app/PanelPrinter.h"
#include "panelsim/app/Signals.h"
#include "panelsim/board/Simulation.h"
#include "panelsim/picture/VcdTrace.h"
#include "panelsim/scenario/ScenarioPlayer.h"
#include "panelsim/web/PanelServer.h"
#include "panelsim/wire/PinServer.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace panelsim {

/** What the program exits with, unless the status is the application's. */
namespace exitStatus {

constexpr int passed = 0;
constexpr int stepFailed = 1;         ///< of a scenario
constexpr int usageFailure = 2;       ///< an option or a file is wrong, or something is not available
constexpr int applicationFailure = 3; ///< while a scenario was played or when it was over
constexpr int timeout = 42;
constexpr int signalBase = 128; ///< added to the number of a signal, as shells do

} // namespace exitStatus

/** A run of panelsim: an application in front of a simulated panel, from its start until the user or it is done. */
class Simulator {
public:
    /**
     * Sets everything up but the application. Both parameters must outlive this object.
     * @throws std::exception when a file, a port or anything else is not available
     */
    Simulator(const Options& options, const std::optional<Scenario>& scenario);

    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    /** @return the exit status @throws std::system_error when the application cannot be started */
    int run();

private:
    using Clock = std::chrono::steady_clock;

    void openPage();
    void startApplication();
    void takeSignals();
    void restart();
    void takeEndOfApplication();
    void stayOrEnd(const AppState& state);
    void endScenario(const ScenarioResult& end);
    void checkDeadlines();
    void killApplication();
    void askApplicationToEnd();
    int judge() const;
    void remark(const std::string& text);

    const Signals signals; // the first: threads that the others start block them, too
    const Options& options;
    const std::optional<Scenario>& scenario;
    Simulation simulation;
    std::optional<VcdTrace> trace;
    PinServer pins;
    std::optional<PanelServer> page;
    std::optional<PanelPrinter> printer;
    std::optional<AppProcess> application;
    std::optional<ScenarioPlayer> player;
    std::optional<ScenarioResult> result;

    bool staying = false;                ///< without an application, for the page
    std::uint64_t operationsAtStart = 0; ///< pin operations when the application was started
    bool timedOut = false;
    bool askedToEnd = false;         ///< whether the application was, after the scenario or the time
    int interruptedBy = 0;           ///< number of a signal
    int kills = 0;                   ///< how often the application was killed
    Clock::time_point flushDue = {}; ///< of the trace
    std::optional<Clock::time_point> timeout;
    std::optional<Clock::time_point> hintDue;
    std::optional<Clock::time_point> killDue;
};

} // namespace panelsim
