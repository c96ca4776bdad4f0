#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace panelsim {

/**
 * A file that text is added to and that a thread of its own writes, in large pieces: who adds text never waits for the
 * disk. Text reaches the file 100 ms after it was added, or sooner, and in whole lines, so that the file can be read
 * whenever this process is killed.
 */
class TraceFile {
public:
    /**
     * Opens the file, empty, or makes it. A named pipe has to have its reader.
     * @throws std::system_error naming the file when that fails
     */
    explicit TraceFile(std::filesystem::path path);

    /** Closes the file. Whether all of it was written is known only after close. */
    ~TraceFile();

    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    /** Adds whole lines; lost once a write has failed. Not after close. May be called from several threads. */
    void append(std::string_view lines);

    /**
     * Writes what remains and closes the file; without effect the second time.
     * @throws std::system_error naming the file when anything could not be written since it was opened, or when a pipe
     *         takes nothing for two seconds
     */
    void close();

private:
    void startWriter();
    void writeUntilClosed();
    int write(std::string_view lines) const;
    int waitUntilTaken() const;

    const std::filesystem::path path;
    const int descriptor;
    std::mutex mutex;
    std::condition_variable changed;
    std::string waiting; ///< lines that the writer has not taken yet
    std::atomic<bool> closing{false};
    int error = 0; ///< errno of the first failure
    std::thread writer;
};

} // namespace panelsim
