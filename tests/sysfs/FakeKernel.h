#pragma once

#include "sysfs/ISystemCalls.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <sys/types.h>

/**
 * The kernel's GPIO interface in memory, at /sys/class/gpio, with a clock that only sleeping moves.
 *
 * Each call is written down with the path below the root: "open gpio40/value rw+e" stands for read and write access
 * and close-on-exec, "pwrite gpio40/value 1" for a level.
 */
class FakeKernel final : public sysfs::ISystemCalls {
public:
    struct Line {
        bool heldByDriver = false;
        bool exported = false;
        bool activeLow = false;
        bool output = false;
        bool high = false;   // the electrical level; low when nothing drives the wire
        int lockedBy = 0;    // a descriptor, or any other number for another process
        TimePoint granted{}; // until then udev has not opened the files to us
        std::string history; // what was done to the wire in turn: L and H driven low and high, i input
    };

    static constexpr int partly = -1;

    std::map<unsigned, Line> lines{{40, {}}, {41, {}}};
    std::chrono::milliseconds udevDelay{0};
    std::string log;
    /** @return an errno value for the call to fail with, partly to transfer one byte less (EIO elsewhere), or 0 */
    std::function<int(const std::string& call)> fault = [](const std::string&) { return 0; };

    std::size_t openFiles() const { return files_.size(); }

    int open(const char* path, int flags) override;
    int close(int descriptor) override;
    ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t offset) override;
    ssize_t pwrite(int descriptor, const void* data, std::size_t size, off_t offset) override;
    int flock(int descriptor, int operation) override;
    int access(const char* path, int mode) override;
    TimePoint now() override { return now_; }
    void sleepFor(std::chrono::milliseconds duration) override { now_ += duration; }

private:
    struct File {
        std::string name;
        std::string attribute;
        Line* line; // null for export and unexport
    };

    /**
     * @param size   of the transfer, 0 for other calls
     * @param effect returns what the call returns, or an errno value made negative
     */
    int run(const std::string& call, std::size_t size, const std::function<int()>& effect);
    Line* exportedLine(const std::string& name);
    int write(const File& file, const std::string& text);
    int setExported(unsigned number, bool exported);

    std::map<int, File> files_;
    int lastDescriptor_ = 100;
    TimePoint now_{};
};
