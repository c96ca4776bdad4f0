#pragma once

#include "panelsim/app/AppProcess.h"
#include "panelsim/app/Options.h"
#include "panelsim/app/PanelPrinter.h"
#include "panelsim/app/PlayingScenario.h"
#include "panelsim/app/Signals.h"
#include "panelsim/board/FileDescriptor.h"
#include "panelsim/board/Simulation.h"
#include "panelsim/picture/VcdTrace.h"
#include "panelsim/scenario/Scenario.h"
#include "panelsim/scenario/ScenarioResult.h"
#include "panelsim/web/PanelServer.h"
#include "panelsim/wire/PinServer.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace panelsim {

/** A run of panelsim: an application in front of a simulated panel, from its start until the user or it is done. */
class Simulator {
public:
    /**
     * Sets everything up but the application.
     * @param signals must outlive this object
     * @throws std::exception when a file, a port or anything else cannot be had
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
    void restartIfWanted();
    void startScenario();
    bool isDone() const;
    void waitForEvents();
    Clock::time_point nextDeadline() const;
    void takeSignals();
    void takeSignal(const Signals::Arrived& signal);
    void takeEndOfApplication();
    void takeEndOfScenario();
    void checkDeadlines();
    void askApplicationToEnd();
    void stayOrEnd(const AppState& state);
    int status() const;
    int scenarioStatus() const;
    void judgeEnd();
    void closeTrace();
    void remark(const std::string& text);
    void wakeMainThread() const;

    const Options options;
    const Signals& signals;
    const std::optional<Scenario> scenario;
    const FileDescriptor wakeup;
    std::atomic<bool> restartWanted{false};
    Simulation simulation;
    std::optional<VcdTrace> trace;
    PinServer pins;
    AppProcess::Start start;
    std::unique_ptr<PanelServer> page;
    std::unique_ptr<PanelPrinter> printer;
    std::unique_ptr<AppProcess> application;

    std::unique_ptr<PlayingScenario> playing;
    std::optional<ScenarioResult> result;
    bool applicationFailed = false; ///< although the scenario passed

    bool staying = false;
    std::uint64_t operationsAtStart = 0; ///< pin operations when the application was started
    bool timedOut = false;
    bool askedToEnd = false; ///< whether the application was, by this program
    bool traceFailed = false;
    int interruptedBy = 0;
    std::optional<Clock::time_point> timeout;
    std::optional<Clock::time_point> hintDue;
    std::optional<Clock::time_point> killDue;
};

} // namespace panelsim
