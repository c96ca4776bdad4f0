#pragma once

#include "panelsim/app/OutputCopier.h"
#include "panelsim/board/AppLog.h"
#include "panelsim/board/AppState.h"

#include <csignal>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace panelsim {

/**
 * An application, from its start to its end. Its standard output and error are copied to this process's own. It gets a
 * process group of its own unless standard input is a terminal, whose foreground it then shares. What it leaves behind
 * when it ends becomes a child of this process.
 */
class AppProcess {
public:
    /**
     * @param command searched for in PATH
     * @param mask    signals that are blocked in it
     * @param log     must outlive this object
     * @throws std::system_error naming the command when it cannot be started
     */
    AppProcess(const std::vector<std::string>& command, const sigset_t& mask, AppLog& log);

    AppProcess(const AppProcess&) = delete;
    AppProcess& operator=(const AppProcess&) = delete;

    /** @return the copying of its standard output and error */
    std::vector<OutputCopier>& outputs() { return copiers; }

    /** @return its state once it has ended, with all of its output copied, for the first time only */
    std::optional<AppState> takeEnd();
    bool hasEnded() const { return ended; }
    /** @return whether processes are left that it has started and that have lost their parent */
    bool hasLeftOthers() const;

    /**
     * Sends a signal: to it, to the others of its process group if that is its own, and to processes that it has left
     * behind. Those get it even when they have left the process group.
     */
    void sendSignal(int number) const;

    /** @return whether it has not ended and gets the signals of the same terminal as this process */
    bool sharesProcessGroup() const;

private:
    const bool ownGroup;
    pid_t pid = -1;
    bool ended = false;
    std::vector<OutputCopier> copiers;
};

} // namespace panelsim
