#pragma once

#include "panelsim/app/AppProcess.h"
#include "panelsim/app/Options.h"
#include "panelsim/app/PanelPrinter.h"
#include "panelsim/app/Signals.h"
#include "panelsim/board/Simulation.h"
#include "panelsim/picture/VcdTrace.h"
#include "panelsim/scenario/Scenario.h"
#include "panelsim/scenario/ScenarioPlayer.h"
#include "panelsim/scenario/ScenarioResult.h"
#include "panelsim/web/PanelServer.h"
#include "panelsim/wire/PinServer.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace panelsim {

/** A run of panelsim: an application in front of a simulated panel, from its start until the user or it is done. */
class Simulator {
public:
    /**
     * Sets everything up but the application.
     * @param signals must outlive this object
     * @throws std::exception when a file, a port or anything else is not available
     */
    Simulator(const Options& options, std::optional<Scenario> scenario, const Signals& signals);

    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    /** @return the exit status @throws std::system_error when the application cannot be started */
    int run();

private:
    using Clock = std::chrono::steady_clock;

    void openPage();
    void startApplication();
    bool isDone() const;
    void waitForEvents();
    void takeSignals();
    void restartIfWanted();
    void takeEndOfApplication();
    void stayOrEnd(const AppState& state);
    void playScenario();
    void endScenario(const ScenarioResult& end);
    void checkDeadlines();
    void killApplication();
    void askApplicationToEnd();
    void judgeEnd();
    void closeTrace();
    int status() const;
    void remark(const std::string& text);

    const Options options;
    const Signals& signals;
    const std::optional<Scenario> scenario;
    Simulation simulation;
    std::optional<VcdTrace> trace;
    PinServer pins;
    std::atomic<bool> restartWanted{false};
    std::optional<PanelServer> page;
    std::optional<PanelPrinter> printer;
    std::optional<AppProcess> application;
    std::optional<ScenarioPlayer> player;
    std::optional<ScenarioResult> result;

    bool staying = false;                ///< without an application, for the page
    std::uint64_t operationsAtStart = 0; ///< pin operations when the application was started
    bool timedOut = false;
    bool askedToEnd = false;        ///< whether the application was, after the scenario or the time
    bool applicationFailed = false; ///< although the scenario passed
    bool traceFailed = false;
    int interruptedBy = 0;           ///< number of a signal
    int kills = 0;                   ///< how often the application was killed
    Clock::time_point flushDue = {}; ///< of the trace
    std::optional<Clock::time_point> timeout;
    std::optional<Clock::time_point> hintDue;
    std::optional<Clock::time_point> killDue;
};

} // namespace panelsim
