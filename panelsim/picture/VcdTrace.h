#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/board/FileDescriptor.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace panelsim {

/**
 * Writes the electrical levels of a board's lines to a file, as a value change dump of IEEE 1364, which programs for
 * waveforms and logic analysers open. Times are nanoseconds since the trace began, a line that floats is z, and a line
 * whose name ends in _n is active when it is low.
 *
 * One trace of a board at a time. No operation waits for a pipe that takes nothing: it is tried again, and the trace
 * fails when 64 MiB are waiting. The process has to ignore SIGPIPE and SIGXFSZ.
 */
class VcdTrace {
public:
    /**
     * Makes the file, or empties it, and traces from now on. A named pipe has to have its reader.
     * @param board must outlive the trace
     * @throws std::system_error naming the file when it cannot be opened
     */
    VcdTrace(Board& board, std::filesystem::path path);

    /** Closes the file. Whether all of the trace was written is known only after close. */
    ~VcdTrace();

    VcdTrace(const VcdTrace&) = delete;
    VcdTrace& operator=(const VcdTrace&) = delete;

    /**
     * Writes what waits to the file. To be called a few times a second; while lines change, the trace
     * does so itself every 100 ms.
     */
    void flush();

    /**
     * Ends the trace; without effect the second time. A pipe has two seconds to take the rest.
     * @throws std::system_error naming the file when a part of the trace could not be written; it then ends before the
     *         first such part
     */
    void close();

private:
    struct Wire {
        std::string identifier;
        std::optional<LineLevel> level = {}; ///< written last
    };

    std::string header();
    void record(const LineChange& change);
    std::string timeStamp(std::chrono::nanoseconds time);
    void write();

    Board& board;
    const std::filesystem::path path;
    FileDescriptor file;
    std::mutex mutex;               ///< of all that follows; the board's lock is taken first
    std::map<unsigned, Wire> wires; ///< by GPIO
    std::size_t begun = 0;          ///< wires that have a level
    std::chrono::nanoseconds begin{0};
    std::chrono::nanoseconds last{0}; ///< time written last, since the beginning
    std::string waiting;              ///< lines that are not in the file yet
    std::chrono::steady_clock::time_point written;
    int error = 0; ///< errno of the first failure
};

} // namespace panelsim
