#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/picture/TraceFile.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace panelsim {

/**
 * Writes the electrical levels of a board's lines to a file, as a value change dump of IEEE 1364, which programs for
 * waveforms and logic analysers open. Times are nanoseconds since the trace began, a line that floats is z, and a line
 * whose name ends in _n is active when it is low.
 *
 * One trace of a board at a time. The file is good to read whenever this process is killed: it then lacks the last
 * 100 ms at most.
 */
class VcdTrace {
public:
    /**
     * Makes the file, or empties it, and traces from now on.
     * @param board must outlive the trace
     * @throws std::system_error naming the file when it cannot be opened
     */
    VcdTrace(Board& board, const std::filesystem::path& path);

    /** Closes the file. Whether all of the trace was written is known only after close. */
    ~VcdTrace();

    VcdTrace(const VcdTrace&) = delete;
    VcdTrace& operator=(const VcdTrace&) = delete;

    /**
     * Ends the trace; without effect the second time. To be called by the thread that owns the trace.
     * @throws std::system_error naming the file when a part of the trace could not be written; it then ends before the
     *         first such part
     */
    void close();

private:
    struct Wire {
        std::string name;
        unsigned gpio;
    };

    struct Signal {
        std::string identifier;
        std::optional<LineLevel> level; ///< last written
    };

    std::string header();
    std::string declareScope(const char* name, const std::vector<Wire>& wires);
    void record(const LineChange& change);
    std::string timeStamp(std::chrono::nanoseconds time);
    void stopObserving();

    Board& board;
    std::map<unsigned, Signal> signals; ///< by GPIO
    std::size_t knownSignals = 0;       ///< whose first level is written
    std::chrono::nanoseconds begin{0};
    std::chrono::nanoseconds last{0}; ///< time written last, since the beginning
    bool observing = false;
    TraceFile file;
};

} // namespace panelsim
