#pragma once

#include "panelsim/board/AppLog.h"
#include "panelsim/board/FileDescriptor.h"

#include <cstddef>
#include <string_view>
#include <thread>

namespace panelsim {

/** Copies what an application writes to one of its standard streams, on a thread of its own, and logs it. */
class OutputCopier {
public:
    /**
     * @param from the reading end of a pipe
     * @param to   standard output or error
     * @param log  must outlive this object
     */
    OutputCopier(FileDescriptor from, int to, LogLine::Source source, AppLog& log);
    /**
     * Copies what the pipe still holds, and no more, whoever else may have it open; gives up when nothing was taken for
     * two seconds.
     */
    ~OutputCopier();

    OutputCopier(const OutputCopier&) = delete;
    OutputCopier& operator=(const OutputCopier&) = delete;

private:
    void copy();
    bool waitForMore();
    void pass(std::string_view bytes);
    bool waitUntilTaken();
    void takeEnd();

    FileDescriptor from;
    const int to;
    const LogLine::Source source;
    AppLog& log;
    FileDescriptor endEvent;
    bool ending = false;
    std::size_t left = 0;    ///< bytes to copy once it is ending
    bool discarding = false; ///< whether what was copied so far could not all be written
    std::thread copying;
};

} // namespace panelsim
