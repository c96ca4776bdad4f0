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
 * The kernel's GPIO interface in memory, at /sys/class/gpio, with a line of each number and a clock that only sleeping
 * moves.
 *
 * Each call is written down with the path below the root: "open gpio40/value rw+e" stands for read and write access
 * and close-on-exec, "write gpio40/value 1" for a level.
 */
class FakeKernel final : public sysfs::ISystemCalls {
public:
    static constexpr int partly = -1;

    struct Line {
        bool exported = false;
        std::chrono::milliseconds udevDelay{0}; // from the export until the files are accessible
        char level = '0';                       // what the value reads
        bool activeLow = false;                 // as written
        TimePoint granted{};
    };

    std::map<unsigned, Line> lines;
    Line& line = lines[40];
    std::string log;                        // every call
    std::map<unsigned, std::string> driven; // settings of the lines, electrically: "low; " "high; " or "in; "
    /** @return an errno value for the call to fail with, partly to transfer one byte less (EIO elsewhere), or 0 */
    std::function<int(const std::string& call)> fault = [](const std::string&) { return 0; };

    std::size_t openFiles() const { return files.size(); }

    int open(const char* path, int flags) override
    {
        const bool writes = flags == (O_WRONLY | O_CLOEXEC);
        const std::string access = writes ? " w+e" : flags == (O_RDWR | O_CLOEXEC) ? " rw+e" : " otherwise";
        const std::string name = belowRoot(path);
        return run("open " + name + access, 0, [&] {
            if (name.rfind("gpio", 0) == 0) {
                const Line& opened = lineOf(name);
                if (!opened.exported || time < opened.granted) {
                    return opened.exported ? -EACCES : -ENOENT;
                }
            }
            files[++lastDescriptor] = name;
            return lastDescriptor;
        });
    }

    int close(int descriptor) override
    {
        const std::string name = files.at(descriptor);
        files.erase(descriptor);
        return run("close " + name, 0, [] { return 0; });
    }

    ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t offset) override
    {
        const std::string& name = files.at(descriptor);
        return run("read " + name + (offset == 0 ? "" : " at an offset"), size, [&] {
            *static_cast<char*>(buffer) = lineOf(name).level;
            return 1;
        });
    }

    ssize_t pwrite(int descriptor, const void* data, std::size_t size, off_t offset) override
    {
        const std::string& name = files.at(descriptor);
        const std::string text(static_cast<const char*>(data), size);
        return run("write " + name + ' ' + text + (offset == 0 ? "" : " at an offset"), size, [&] {
            const int refusal = name.rfind("gpio", 0) == 0 ? configure(name, text) : changeExport(name, text);
            return refusal == 0 ? static_cast<int>(size) : refusal;
        });
    }

    int flock(int descriptor, int operation) override
    {
        return run("lock " + files.at(descriptor) + ' ' + std::to_string(operation), 0, [] { return 0; });
    }

    int access(const char* path, int /*mode*/) override
    {
        const std::string name = belowRoot(path);
        return run("access " + name, 0, [&] { return lineOf(name).exported ? 0 : -ENOENT; });
    }

    TimePoint now() override
    {
        errno = ERANGE;
        return time;
    }
    void sleepFor(std::chrono::milliseconds duration) override { time += duration; }

private:
    Line& lineOf(const std::string& name) { return lines[numberIn(name)]; }

    static unsigned numberIn(const std::string& name)
    {
        return static_cast<unsigned>(std::stoul(name.substr(name.find_first_of("0123456789"))));
    }

    int changeExport(const std::string& name, const std::string& number)
    {
        Line& changed = lines[numberIn(number)];
        const bool exports = name == "export";
        if (exports && changed.exported) {
            return -EBUSY;
        }
        if (!exports && !changed.exported) {
            return -EINVAL;
        }
        changed.exported = exports;
        changed.granted = time + changed.udevDelay;
        return 0;
    }

    // The polarity counts for levels, not for directions, and changes nothing by itself.
    int configure(const std::string& name, const std::string& text)
    {
        Line& written = lineOf(name);
        if (name.find("/active_low") != std::string::npos) {
            written.activeLow = text == "1";
        } else if (name.find("/direction") != std::string::npos) {
            driven[numberIn(name)] += text + "; ";
        } else {
            driven[numberIn(name)] += (text == "1") != written.activeLow ? "high; " : "low; ";
        }
        return 0;
    }

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
        errno = result < 0 ? -result : ERANGE; // success may leave anything there
        return result < 0 ? -1 : result;
    }

    std::map<int, std::string> files; // names of those that are open
    int lastDescriptor = 100;
    TimePoint time{};
};
