#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace panelsim {

/** A line of the log. */
struct LogLine {
    enum class Source {
        Output,   ///< the application's standard output
        Error,    ///< the application's standard error
        Simulator ///< a remark of the simulator's own
    };

    /** Bytes of text that each source has written since the start. */
    using Bytes = std::array<std::size_t, 3>;

    Source source = Source::Output;
    std::chrono::system_clock::time_point time = {}; ///< when it began
    Bytes before = {};                               ///< written when it began
    std::string text = {};                           ///< bytes as they were written, without the newline
    bool complete = false;                           ///< whether no more is to come
};

/**
 * What the application has written, line by line, with remarks between. It keeps the last lines only, and cuts a line
 * that grows too long. Lines are numbered from 0 on, in the order in which they were completed. Those that are not
 * complete come last, and their numbers change. All operations may be called from several threads.
 */
class AppLog {
public:
    static constexpr std::size_t keptLines = 4000;
    static constexpr std::size_t longestLine = 1024; ///< bytes

    /** What has been searched: so many bytes of each source. */
    using Position = LogLine::Bytes;

    /** Some lines that follow each other. */
    struct Lines {
        std::uint64_t first = 0; ///< number of the first one
        std::vector<LogLine> lines = {};
        bool last = true; ///< whether no line follows them
    };

    /** Takes output, in pieces of any size. */
    void append(LogLine::Source source, std::string_view bytes);
    /** Ends the line that the source began, if it did. */
    void endLine(LogLine::Source source);
    /** Adds a whole line. */
    void remark(std::string_view text) { append(LogLine::Source::Simulator, std::string(text) + "\n"); }

    /** @return how often text has come */
    std::uint64_t version() const { return appended; }
    /**
     * @return the lines from that number on, as far as they are kept: all, or the first ones, until they have so many
     * bytes of text
     */
    Lines linesFrom(std::uint64_t number, std::size_t enoughBytes = std::numeric_limits<std::size_t>::max()) const;

    /**
     * Looks for text within one line of the application's.
     * @param position where to begin; moved right behind the text when it is found
     */
    bool find(std::string_view text, Position& position) const;

private:
    using Lock = std::lock_guard<std::mutex>;

    void complete(LogLine& line);

    mutable std::mutex mutex;
    std::deque<LogLine> completed;
    std::uint64_t firstLine = 0;  ///< number of the first one
    std::array<LogLine, 3> begun; ///< by each source; empty between its lines
    LogLine::Bytes written{};
    std::atomic<std::uint64_t> appended{0};
};

} // namespace panelsim
