#pragma once

#include "panelsim/app/OutputCopier.h"
#include "panelsim/board/AppLog.h"
#include "panelsim/board/AppState.h"

#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace panelsim {

/**
 * An application, from its start to its end. Its standard output and error are copied to this process's own. It gets a
 * process group of its own unless standard input is a terminal, whose foreground it then shares.
 */
class AppProcess {
public:
    /** What an application is started with. */
    struct Start {
        std::vector<std::string> command;     ///< searched for in PATH
        std::vector<std::string> environment; ///< NAME=value
        sigset_t signalMask = {};             ///< signals that are blocked
    };

    /**
     * @param log must outlive this object
     * @throws std::system_error naming the command when it cannot be started
     */
    AppProcess(const Start& start, AppLog& log);
    /** Leaves an application that has not ended alone. */
    ~AppProcess();

    AppProcess(const AppProcess&) = delete;
    AppProcess& operator=(const AppProcess&) = delete;

    /** @return its state once it has ended and all of its output is copied, for the first time only */
    std::optional<AppState> takeEnd();

    /** Sends a signal, if it has not ended: to it and, if it has a process group of its own, to the others in there. */
    void sendSignal(int number) const;

    /** @return whether it has not ended and gets the signals of the same terminal as this process */
    bool sharesProcessGroup() const;

private:
    const bool ownGroup;
    pid_t pid = -1;
    std::unique_ptr<OutputCopier> output;
    std::unique_ptr<OutputCopier> error;
};

} // namespace panelsim
