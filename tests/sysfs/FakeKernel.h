#pragma once

#include "sysfs/ISystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <linux/gpio.h>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/**
 * The kernel's GPIO interfaces in memory: /sys/class/gpio with a line of each number, chips in /dev, and a clock that
 * only sleeping moves.
 *
 * Each call is written down, with paths in /sys/class/gpio without that: "open gpio40/value rw+e" stands for read and
 * write access and close-on-exec, "write gpio40/value 1" for a level, "set 40 1" for one by the character device.
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
        std::string consumer{}; // who uses it but by sysfs
        bool output = false;
    };
    struct Chip {
        std::string name, label;
        unsigned lines, first;                // number of its line 0 in the table of lines
        std::string parent = "soc";           // none: ""
        std::optional<unsigned> base = first; // in /sys/class/gpio
    };

    std::map<unsigned, Line> lines;
    Line& line = lines[40];
    std::vector<Chip> chips = {{"gpiochip0", "bank", 64, 32}};
    std::map<std::string, std::string> files; // others, by path
    std::map<std::string, std::string> links; // in /dev
    std::string log;                          // every call
    std::map<unsigned, std::string> driven;   // settings of the lines, electrically: "low; " "high; " or "in; "
    /** @return an errno value for the call to fail with, partly to transfer one byte less (EIO elsewhere), or 0 */
    std::function<int(const std::string& call)> fault = [](const std::string&) { return 0; };

    std::size_t openFiles() const { return opened.size(); }

    int open(const char* path, int flags) override
    {
        const int access = flags & O_ACCMODE;
        const std::string mode = access == O_WRONLY ? " w" : access == O_RDWR ? " rw" : " r";
        const std::string name = belowRoot(path);
        return run("open " + name + mode + ((flags & ~O_ACCMODE) == O_CLOEXEC ? "+e" : " otherwise"), 0, [&] {
            const bool isAttribute = name.rfind("gpiochip", 0) == 0;
            if (isAttribute || (name[0] == '/' && chipAt(name) == nullptr)) {
                return isAttribute || files.count(name) != 0 ? open(name) : -ENOENT;
            }
            if (name.rfind("gpio", 0) == 0) {
                const Line& used = lineOf(name);
                if (!used.exported || time < used.granted) {
                    return used.exported ? -EACCES : -ENOENT;
                }
            }
            return open(name);
        });
    }

    int close(int descriptor) override
    {
        const std::string name = opened.at(descriptor);
        opened.erase(descriptor);
        if (name.rfind("line ", 0) == 0) {
            lineOf(name).consumer.clear();
        }
        return run("close " + name, 0, [] { return 0; });
    }

    ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t offset) override
    {
        const std::string& name = opened.at(descriptor);
        return run("read " + name + (offset == 0 ? "" : " at an offset"), size, [&] {
            const std::string content = contentOf(name).substr(static_cast<std::size_t>(offset), size);
            content.copy(static_cast<char*>(buffer), size);
            return static_cast<int>(content.size());
        });
    }

    ssize_t pwrite(int descriptor, const void* data, std::size_t size, off_t offset) override
    {
        const std::string& name = opened.at(descriptor);
        const std::string text(static_cast<const char*>(data), size);
        return run("write " + name + ' ' + text + (offset == 0 ? "" : " at an offset"), size, [&] {
            const int refusal = name.rfind("gpio", 0) == 0 ? configure(name, text) : changeExport(name, text);
            return refusal == 0 ? static_cast<int>(size) : refusal;
        });
    }

    int flock(int descriptor, int operation) override
    {
        return run("lock " + opened.at(descriptor) + ' ' + std::to_string(operation), 0, [] { return 0; });
    }

    int access(const char* path, int /*mode*/) override
    {
        const std::string name = belowRoot(path);
        return run("access " + name, 0, [&] {
            const bool there = name[0] == '/' ? files.count(name) != 0 || isBeside(name) : lineOf(name).exported;
            return there ? 0 : -ENOENT;
        });
    }

    int ioctl(int descriptor, unsigned long request, void* argument) override
    {
        const std::string name = opened.at(descriptor);
        if (const Chip* const chip = chipAt(name)) {
            return request == GPIO_GET_CHIPINFO_IOCTL  ? describe(*chip, *static_cast<gpiochip_info*>(argument))
                   : request == GPIO_V2_GET_LINE_IOCTL ? take(*chip, *static_cast<gpio_v2_line_request*>(argument))
                                                       : describe(*chip, *static_cast<gpio_v2_line_info*>(argument));
        }
        if (request == GPIO_V2_LINE_SET_CONFIG_IOCTL) {
            return configure(numberIn(name), *static_cast<gpio_v2_line_config*>(argument));
        }
        auto& values = *static_cast<gpio_v2_line_values*>(argument);
        const std::string number = std::to_string(numberIn(name)) + (values.mask == 1 ? "" : " with others");
        Line& used = lineOf(name);
        if (request == GPIO_V2_LINE_GET_VALUES_IOCTL) {
            return run("get " + number, 0, [&] {
                values.bits = used.level == '1' ? 1 : 0;
                return 0;
            });
        }
        return run("set " + number + ' ' + std::to_string(values.bits), 0, [&] {
            if (!used.output) {
                return -EPERM;
            }
            driven[numberIn(name)] += (values.bits != 0) != used.activeLow ? "high; " : "low; ";
            return 0;
        });
    }

    std::vector<std::string> list(const char* directory) override
    {
        std::vector<std::string> names = {".", "null", "gpiochip", "gpiochip0a"};
        const bool isDev = std::strcmp(directory, "/dev") == 0;
        for (const Chip& chip : chips) {
            if (isDev || chip.base) {
                names.push_back(isDev ? chip.name : "gpiochip" + std::to_string(*chip.base));
            }
        }
        for (const auto& [link, target] : links) {
            names.push_back(isDev ? link : "");
        }
        return names;
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

    int open(const std::string& name)
    {
        opened[++lastDescriptor] = name;
        return lastDescriptor;
    }

    const Chip* chipAt(const std::string& path) const
    {
        const auto link = path.rfind("/dev/", 0) == 0 ? links.find(path.substr(5)) : links.end();
        const std::string target = link == links.end() ? path : "/dev/" + link->second;
        const auto chip =
            std::find_if(chips.begin(), chips.end(), [&](const Chip& each) { return target == "/dev/" + each.name; });
        return chip == chips.end() ? nullptr : &*chip;
    }

    std::string contentOf(const std::string& name)
    {
        if (name[0] == '/') {
            return files.at(name);
        }
        for (const Chip& chip : chips) {
            const std::string directory = "gpiochip" + std::to_string(chip.base.value_or(0)) + "/";
            if (name.rfind(directory, 0) == 0) {
                const std::string attribute = name.substr(directory.size());
                return (attribute == "label"   ? chip.label
                        : attribute == "ngpio" ? std::to_string(chip.lines)
                                               : std::to_string(*chip.base)) +
                       "\n";
            }
        }
        return {lineOf(name).level, '\n'};
    }

    /** @return whether a chip of /sys/class/gpio has the parent of one in /dev, or the chip itself for a parent */
    bool isBeside(const std::string& path) const
    {
        for (const Chip& device : chips) {
            for (const Chip& chip : chips) {
                const std::string place = chip.parent.empty() ? "/gpio/gpiochip" : "/../gpio/gpiochip";
                if (chip.base && chip.parent == device.parent && (!chip.parent.empty() || chip.name == device.name) &&
                    path == "/sys/bus/gpio/devices/" + device.name + place + std::to_string(*chip.base)) {
                    return true;
                }
            }
        }
        return false;
    }

    int describe(const Chip& chip, gpiochip_info& info)
    {
        return run("describe " + chip.name, 0, [&] {
            chip.name.copy(info.name, sizeof info.name - 1);
            chip.label.copy(info.label, sizeof info.label - 1);
            info.lines = chip.lines;
            return 0;
        });
    }

    int describe(const Chip& chip, gpio_v2_line_info& info)
    {
        const Line& described = lines[chip.first + info.offset];
        return run("describe " + std::to_string(chip.first + info.offset), 0, [&] {
            (described.exported ? "sysfs" : described.consumer).copy(info.consumer, sizeof info.consumer - 1);
            return 0;
        });
    }

    int take(const Chip& chip, gpio_v2_line_request& request)
    {
        const unsigned number = chip.first + request.offsets[0];
        Line& taken = lines[number];
        const bool asItIs = request.num_lines == 1 && request.config.flags == 0 && request.config.num_attrs == 0;
        return run("request " + std::to_string(number) + (asItIs ? "" : " otherwise"), 0, [&] {
            if (taken.exported || !taken.consumer.empty()) {
                return -EBUSY;
            }
            taken.consumer = request.consumer;
            request.fd = open("line " + std::to_string(number));
            return 0;
        });
    }

    int configure(unsigned number, const gpio_v2_line_config& config)
    {
        const bool output = (config.flags & GPIO_V2_LINE_FLAG_OUTPUT) != 0;
        const bool activeLow = (config.flags & GPIO_V2_LINE_FLAG_ACTIVE_LOW) != 0;
        const bool level = output && config.num_attrs == 1 && config.attrs[0].mask == 1 &&
                           config.attrs[0].attr.id == GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES &&
                           config.attrs[0].attr.values == 1;
        const std::string setting = !output ? "in; " : level != activeLow ? "high; " : "low; ";
        return run("configure " + std::to_string(number) + ' ' + setting.substr(0, setting.size() - 2), 0, [&] {
            lines[number].activeLow = activeLow;
            lines[number].output = output;
            driven[number] += setting;
            return 0;
        });
    }

    int changeExport(const std::string& name, const std::string& number)
    {
        Line& changed = lines[numberIn(number)];
        const bool exports = name == "export";
        if (exports && (changed.exported || !changed.consumer.empty())) {
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

    static std::string belowRoot(const std::string& path)
    {
        const std::string root = "/sys/class/gpio/";
        return path.rfind(root, 0) == 0 ? path.substr(root.size()) : path;
    }

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

    std::map<int, std::string> opened; // names of files and lines
    int lastDescriptor = 100;
    TimePoint time{};
};
