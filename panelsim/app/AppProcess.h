#pragma once

#include "panelsim/board/AppLog.h"
#include "panelsim/board/FileDescriptor.h"
#include "panelsim/board/Simulation.h"

#include <array>
#include <optional>
#include <string>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace panelsim {

/**
 * Sets the environment of this process to what an application needs to use simulated pins: the library that is loaded
 * into it ahead of its own, which is beside this program in a build tree or where it is installed, and the address.
 * @param pinAddress as the pin server gives it
 * @throws std::runtime_error when the library is not there or its path cannot be preloaded
 */
void preparePreloading(const std::string& pinAddress);

/**
 * An application, from its start to its end. Its standard output and error are copied to this process's own. It gets a
 * process group of its own unless standard input is a terminal, whose foreground it then shares. What it leaves behind
 * when it ends becomes a child of this process.
 */
class AppProcess {
public:
    /**
     * @param command searched for in PATH
     * @param log     must outlive this object
     * @throws std::system_error naming the command when it cannot be started
     */
    AppProcess(const std::vector<std::string>& command, AppLog& log);

    /** Copies output that has come; waits so long for it, or until the other descriptor can be read. */
    void copyOutput(int otherDescriptor, int milliseconds);

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
    /** What it writes to a standard stream, on its way to the one of this process. */
    struct Stream {
        int to;
        LogLine::Source source;
        FileDescriptor from = {};
        std::string unwritten = {};
        bool discarding = false; ///< whether bytes could not be written
    };

    void readWhatIsThere(Stream& stream);

    AppLog& log;
    const bool ownGroup;
    pid_t pid = -1;
    bool ended = false;
    std::array<Stream, 2> streams{{{STDOUT_FILENO, LogLine::Source::Output}, {STDERR_FILENO, LogLine::Source::Error}}};
};

} // namespace panelsim
