#pragma once

#include "panelsim/board/AppLog.h"
#include "panelsim/board/FileDescriptor.h"

#include <cstddef>
#include <poll.h>
#include <string>

namespace panelsim {

/** Writes to standard output or error; drops the rest when nothing was taken for two seconds. */
void writeAll(int descriptor, std::string bytes);

/** Writes "panelsim: " and the text, of one or more lines, to standard error, without control characters. */
void say(const std::string& text);

/** Copies what an application writes to one of its standard streams, and logs it. */
class OutputCopier {
public:
    /**
     * @param to  standard output or error
     * @param log must outlive this object
     * @throws std::system_error
     */
    OutputCopier(int to, LogLine::Source source, AppLog& log);

    /** @return the application's end, to be closed once the application has it */
    FileDescriptor& writingEnd() { return writing; }
    /** @return what to wait for before the next step: bytes to read, or that those that were read are taken */
    pollfd awaited() const;
    void step();
    /** Copies what the pipe still holds, and no more, even if another process has it open. The log gets all of it. */
    void finish();

private:
    void read(std::size_t most);

    FileDescriptor from;
    FileDescriptor writing;
    const int to;
    const LogLine::Source source;
    AppLog& log;
    std::string unwritten;
    bool discarding = false; ///< whether bytes could not be written
};

} // namespace panelsim
