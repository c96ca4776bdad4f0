#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/board/FileDescriptor.h"

#include <chrono>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

namespace panelsim {

/**
 * Writes the electrical levels of a board's lines to a file, as a value change dump of IEEE 1364, which programs for
 * waveforms and logic analysers open. Times are nanoseconds since the trace began, a line that floats is z, and a line
 * whose name ends in _n is active when it is low.
 *
 * One trace of a board at a time. What happens on the board waits in memory until it is flushed. The process has to
 * ignore or block SIGPIPE and SIGXFSZ.
 */
class VcdTrace {
public:
    /**
     * Makes the file, or empties it, and traces from now on. A named pipe has to have its reader.
     * @param board must outlive the trace
     * @throws std::system_error naming the file when it cannot be opened
     */
    VcdTrace(Board& board, std::filesystem::path path);

    /** Flushes. Whether all of the trace was written is known only after close. */
    ~VcdTrace();

    VcdTrace(const VcdTrace&) = delete;
    VcdTrace& operator=(const VcdTrace&) = delete;

    /**
     * Writes what waits to the file. To be called a few times a second. The trace ends when the reader of a pipe takes
     * nothing for two seconds, and at any error.
     */
    void flush();

    /**
     * Ends the trace.
     * @throws std::system_error naming the file when a part of the trace could not be written; it then ends before the
     *         first such part
     */
    void close();

private:
    void record(const LineChange& change);
    void addTime(std::chrono::nanoseconds time);

    Board& board;
    const std::filesystem::path path;
    const FileDescriptor file;
    int error = 0;    ///< errno of the first failure
    std::mutex mutex; ///< of all that follows; the board's lock is taken first
    std::optional<std::chrono::nanoseconds> begin;
    std::chrono::nanoseconds last{0}; ///< time written last, since the beginning
    std::string waiting;              ///< lines that are not in the file yet
};

} // namespace panelsim
