#pragma once

#include "panelsim/FileDescriptor.h"
#include "panelsim/app/AppLog.h"

#include <thread>

namespace panelsim {

/** Copies what an application writes to one of its standard streams, on a thread of its own, and logs it. */
class OutputCopier {
public:
    /**
     * @param from the reading end of a pipe
     * @param to   a descriptor that outlives this object
     * @param log  must outlive this object
     */
    OutputCopier(FileDescriptor from, int to, LogLine::Source source, AppLog& log);
    /** Copies what the pipe still holds, without waiting for those who have it open and write no more. */
    ~OutputCopier();

    OutputCopier(const OutputCopier&) = delete;
    OutputCopier& operator=(const OutputCopier&) = delete;

private:
    void copy();
    bool waitForMore();

    FileDescriptor from;
    const int to;
    const LogLine::Source source;
    AppLog& log;
    FileDescriptor endEvent;
    std::thread copying;
};

} // namespace panelsim
