#pragma once

#include "panelsim/board/AppLog.h"
#include "panelsim/board/FileDescriptor.h"

#include <cstddef>
#include <poll.h>
#include <string>

namespace panelsim {

/** Copies what an application writes to one of its standard streams, and logs it. */
class OutputCopier {
public:
    /**
     * @param from the reading end of a pipe
     * @param to   standard output or error
     * @param log  must outlive this object
     */
    OutputCopier(FileDescriptor from, int to, LogLine::Source source, AppLog& log);

    /** @return what to wait for before the next step: bytes to read, or that those that were read are taken */
    pollfd awaited() const;
    void step();
    /**
     * Copies what the pipe still holds, and no more, whoever else may have it open. The log gets all of it; to be
     * written it is given up when nothing was taken for two seconds.
     */
    void finish();

private:
    void read(std::size_t most);
    void write();

    FileDescriptor from;
    const int to;
    const LogLine::Source source;
    AppLog& log;
    std::string unwritten;
    bool discarding = false; ///< whether what was copied so far could not all be written
};

} // namespace panelsim
