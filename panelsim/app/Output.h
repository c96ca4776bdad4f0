#pragma once

#include "panelsim/board/AppLog.h"
#include "panelsim/board/FileDescriptor.h"

#include <cstddef>
#include <poll.h>
#include <string>
#include <string_view>

namespace panelsim {

/**
 * Opens descriptors 0 to 2, where one is closed, so that it can neither be read nor written as intended. Otherwise the
 * next file that is opened would get the number, and the application's text would end up there.
 */
void occupyStandardDescriptors();

/**
 * Writes to standard output or error; drops the rest when nothing was taken for two seconds.
 * @return whether all was taken
 */
bool writeAll(int descriptor, std::string_view bytes);

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
    /** Copies what the pipe still holds, and no more, whoever else may have it open. The log gets all of it. */
    void finish();

private:
    std::size_t read(std::size_t most);

    FileDescriptor from;
    FileDescriptor writing;
    const int to;
    const LogLine::Source source;
    AppLog& log;
    std::string unwritten;
    bool discarding = false; ///< whether what was copied so far could not all be written
};

} // namespace panelsim
