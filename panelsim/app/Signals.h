#pragma once

#include "panelsim/board/FileDescriptor.h"

#include <optional>
#include <sys/signalfd.h>

namespace panelsim {

/**
 * The signals of the simulator's own: SIGINT, SIGTERM, SIGHUP and SIGCHLD are blocked from construction on, in this
 * thread and those that it starts, and read where the main thread waits; SIGPIPE is ignored. Those that are ignored
 * already, as under nohup, stay so.
 */
class Signals {
public:
    /** To be constructed before any other thread is started. @throws std::system_error */
    Signals();

    /** @return a descriptor that is readable when a signal has come */
    int descriptor() const { return arrivals.get(); }

    /** @return the next one that has come, without waiting */
    std::optional<signalfd_siginfo> take() const;

private:
    FileDescriptor arrivals;
};

} // namespace panelsim
