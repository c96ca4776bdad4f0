#pragma once

#include "sysfs/ISystemCalls.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <fcntl.h>
#include <functional>
#include <map>
#include <string>
#include <sys/types.h>

/**
 * The kernel's GPIO interface in memory, at /sys/class/gpio, with one line of any number and a clock that only sleeping
 * moves.
 *
 * Each call is written down with the path below the root: "open gpio40/value rw+e" stands for read and write access
 * and close-on-exec, "write gpio40/value 1" for a level.
 */
class FakeKernel final : public sysfs::ISystemCalls {
public:
    static constexpr int partly = -1;

    struct Line {
        bool heldByDriver = false;
        bool exported = false;
        bool lockedByAnother = false;
        std::chrono::milliseconds udevDelay{0}; // from the export until the files are opened to us
        char level = '0';                       // what the value reads
    };

    Line line;
    std::string log;  // every call
    std::string wire; // what was written to the line's files with success
    /** @return an errno value for the call to fail with, partly to transfer one byte less (EIO elsewhere), or 0 */
    std::function<int(const std::string& call)> fault = [](const std::string&) { return 0; };

    std::size_t openFiles() const { return files_.size(); }

    int open(const char* path, int flags) override
    {
        const bool writes = flags == (O_WRONLY | O_CLOEXEC);
        const std::string access = writes ? " w+e" : flags == (O_RDWR | O_CLOEXEC) ? " rw+e" : " otherwise";
        const std::string name = belowRoot(path);
        return run("open " + name + access, 0, [&] {
            const bool ofLine = name.rfind("gpio", 0) == 0;
            if (ofLine && (!line.exported || now_ < granted_)) {
                return line.exported ? -EACCES : -ENOENT;
            }
            files_[++lastDescriptor_] = name;
            return lastDescriptor_;
        });
    }

    int close(int descriptor) override
    {
        const std::string name = files_.at(descriptor);
        files_.erase(descriptor);
        return run("close " + name, 0, [] { return 0; });
    }

    ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t offset) override
    {
        return run("read " + files_.at(descriptor) + (offset == 0 ? "" : " at an offset"), size, [&] {
            *static_cast<char*>(buffer) = line.level;
            return 1;
        });
    }

    ssize_t pwrite(int descriptor, const void* data, std::size_t size, off_t offset) override
    {
        const std::string& name = files_.at(descriptor);
        const std::string text = ' ' + std::string(static_cast<const char*>(data), size);
        return run("write " + name + text + (offset == 0 ? "" : " at an offset"), size, [&] {
            if (name == "export" && (line.exported || line.heldByDriver)) {
                return -EBUSY;
            }
            if (name == "export" || name == "unexport") {
                line.exported = name == "export";
                granted_ = now_ + line.udevDelay;
            } else {
                wire += name.substr(name.find('/') + 1) + text + "; ";
            }
            return static_cast<int>(size);
        });
    }

    int flock(int descriptor, int operation) override
    {
        const std::string call = "lock " + files_.at(descriptor) + ' ' + std::to_string(operation);
        return run(call, 0, [&] { return line.lockedByAnother ? -EWOULDBLOCK : 0; });
    }

    int access(const char* path, int /*mode*/) override
    {
        return run("access " + belowRoot(path), 0, [&] { return line.exported ? 0 : -ENOENT; });
    }

    TimePoint now() override { return now_; }
    void sleepFor(std::chrono::milliseconds duration) override { now_ += duration; }

private:
    static std::string belowRoot(const std::string& path) { return path.substr(sizeof "/sys/class/gpio"); }

    /**
     * @param size   of the transfer, 0 for other calls
     * @param effect returns what the call returns, or an errno value made negative
     */
    int run(const std::string& call, std::size_t size, const std::function<int()>& effect)
    {
        log += call + "; ";
        const int injected = fault(call);
        const int partial = size > 0 ? static_cast<int>(size) - 1 : -EIO;
        const int result = injected == 0 ? effect() : injected == partly ? partial : -injected;
        errno = result < 0 ? -result : errno;
        return result < 0 ? -1 : result;
    }

    std::map<int, std::string> files_; // names of those that are open
    int lastDescriptor_ = 100;
    TimePoint now_{};
    TimePoint granted_{};
};
