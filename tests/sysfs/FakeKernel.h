#pragma once

#include "sysfs/ISystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <functional>
#include <linux/gpio.h>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

/**
 * The kernel's GPIO interfaces in memory: /sys/class/gpio, chips in /dev, and a clock that only sleeping moves. Lines
 * read 1 and 0 in turns. Each call is written down, without the path of /sys/class/gpio: "write gpio40/value: 1", say.
 * "configure line 8 of /dev/gpiochip0: 10 to 1" gives flags (2 active-low, 4 input, 8 output) and level.
 */
class FakeKernel final : public sysfs::ISystemCalls {
public:
    static constexpr int partly = -1;

    struct Chip {
        std::string name, label;
        unsigned lines, first;                // number of its line 0 in the table of users
        std::string parent = "soc";           // of at most one chip none: ""
        std::optional<unsigned> base = first; // in /sys/class/gpio
    };

    std::vector<Chip> chips = {{"gpiochip0", "bank", 64, 32}};
    using Users = std::map<unsigned long, std::string>;
    Users users;                              // of lines: a consumer, or "sysfs" for what is exported
    std::map<std::string, std::string> files; // others, by path; for a link in /dev the path of its chip
    std::string log;
    /** @return an errno value for the call to fail with, partly to transfer one byte less (EIO elsewhere), or 0 */
    std::function<int(const std::string& call)> fault = [](const std::string&) { return 0; };

    std::size_t openFiles() const { return opened.size(); }

    int open(const char* path, int flags) override
    {
        const char* const modes[] = {"", ": w", ": rw"};
        return run(std::string("open ") + path + modes[flags & O_ACCMODE], 0, [&] {
            const auto all = tree();
            const auto found = all.find(path);
            const bool isFound = found != all.end() && (flags & O_CLOEXEC) != 0;
            return isFound ? openAs(found->second.rfind("/dev/", 0) == 0 ? found->second : path) : -ENOENT;
        });
    }

    int close(int descriptor) override
    {
        const auto [name, line] = opened.at(descriptor);
        opened.erase(descriptor);
        users.erase(line);
        return run("close " + name);
    }

    ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t offset) override
    {
        const std::string& path = opened.at(descriptor).first;
        return run("read " + path + (offset == 0 ? "" : ": at an offset"), size, [&] {
            const std::size_t piece = std::min<std::size_t>(size, 5);
            isHigh = !isHigh;
            return tree().at(path).copy(static_cast<char*>(buffer), piece, static_cast<std::size_t>(offset));
        });
    }

    ssize_t pwrite(int descriptor, const void* data, std::size_t size, off_t offset) override
    {
        const std::string& path = opened.at(descriptor).first;
        const std::string text(static_cast<const char*>(data), size);
        return run("write " + path + ": " + text + (offset == 0 ? "" : " at an offset"), size, [&] {
            if (path == root + "unexport") {
                users.erase(std::stoul(text));
            }
            const bool isBusy = path == root + "export" && !users.emplace(std::stoul(text), "sysfs").second;
            return isBusy ? -EBUSY : static_cast<int>(size);
        });
    }

    int flock(int descriptor, int operation) override
    {
        return run("lock " + opened.at(descriptor).first + ": " + std::to_string(operation));
    }

    int access(const char* path, int /*mode*/) override
    {
        return run(std::string("access ") + path, 0, [&] { return tree().count(path) != 0 ? 0 : -ENOENT; });
    }

    int ioctl(int descriptor, unsigned long request, void* argument) override
    {
        const std::string name = opened.at(descriptor).first;
        const auto hasName = [&](const Chip& each) { return name == "/dev/" + each.name; };
        const auto chip = std::find_if(chips.begin(), chips.end(), hasName);
        auto& values = *static_cast<gpio_v2_line_values*>(argument);
        switch (request) {
        case GPIO_GET_CHIPINFO_IOCTL:
            return run("describe " + name, 0, [chip, &info = *static_cast<gpiochip_info*>(argument)] {
                info = {{}, {}, chip->lines};
                chip->name.copy(info.name, sizeof info.name - 1);
                chip->label.copy(info.label, sizeof info.label - 1);
                return 0;
            });
        case GPIO_V2_GET_LINEINFO_IOCTL:
            return run("describe a line of " + name, 0, [&, &info = *static_cast<gpio_v2_line_info*>(argument)] {
                const auto user = users.find(chip->first + info.offset);
                (user == users.end() ? "" : user->second).copy(info.consumer, sizeof info.consumer - 1);
                return 0;
            });
        case GPIO_V2_GET_LINE_IOCTL: {
            auto& wanted = *static_cast<gpio_v2_line_request*>(argument);
            const std::string line = "line " + std::to_string(wanted.offsets[0]) + " of " + name;
            return run("request " + line, 0, [&] {
                const unsigned number = chip->first + wanted.offsets[0];
                const bool asItIs = wanted.num_lines == 1 && wanted.config.flags == 0;
                const bool isFree = asItIs && users.emplace(number, wanted.consumer).second;
                wanted.fd = isFree ? openAs(line, number) : -1;
                return isFree ? 0 : -EBUSY;
            });
        }
        case GPIO_V2_LINE_SET_CONFIG_IOCTL: {
            const auto& config = *static_cast<gpio_v2_line_config*>(argument);
            const auto& [attribute, mask] = config.attrs[0];
            const bool hasLevel = config.num_attrs == 1 && attribute.id == GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
            const std::string level = hasLevel ? " to " + std::to_string(attribute.values & mask) : "";
            return run("configure " + name + ": " + std::to_string(config.flags) + level);
        }
        case GPIO_V2_LINE_SET_VALUES_IOCTL:
            return run("set " + name + ": " + std::to_string(values.bits & values.mask));
        default:
            return run("get " + name, 0, [&] {
                isHigh = !isHigh;
                values.bits = isHigh ? values.mask : 0;
                return 0;
            });
        }
    }

    std::vector<std::string> list(const char* directory) override
    {
        const std::size_t length = std::strlen(directory);
        std::vector<std::string> names = {".", "null", "gpiochip", "gpiochip0a"};
        for (const auto& [path, content] : tree()) {
            const bool isInside = path.rfind(directory, 0) == 0;
            names.push_back(isInside ? path.substr(length, path.find('/', length) - length) : "");
        }
        return names;
    }

    TimePoint now() override { return time; }
    void sleepFor(std::chrono::milliseconds duration) override { time += duration; }

private:
    int openAs(const std::string& name, unsigned long line = ~0UL)
    {
        opened[++lastOpened] = {name, line};
        return lastOpened;
    }

    /** @return contents of all files. A chip's entry beside its device is in that of its parent. */
    std::map<std::string, std::string> tree() const
    {
        auto tree = files;
        tree[root + "export"] = tree[root + "unexport"] = "";
        for (const auto& [number, user] : users) {
            for (const char* file : {"", "/active_low", "/direction", "/value"}) {
                tree[user == "sysfs" ? root + "gpio" + std::to_string(number) + file : ""] = isHigh ? "1\n" : "0\n";
            }
        }
        for (const Chip& chip : chips) {
            tree["/dev/" + chip.name] = "/dev/" + chip.name;
            const std::string entry = "gpiochip" + std::to_string(chip.base.value_or(0));
            for (const Chip& device : chips) {
                if (chip.base && chip.parent == device.parent) {
                    const std::string place = chip.parent.empty() ? "/gpio/" : "/../gpio/";
                    tree["/sys/bus/gpio/devices/" + device.name + place + entry];
                    tree[root + entry + "/ngpio"] = std::to_string(chip.lines) + "\n";
                    tree[root + entry + "/label"] = chip.label + "\n";
                }
            }
        }
        return tree;
    }

    /**
     * @param size   of the transfer, 0 for other calls
     * @param effect returns what the call returns, or an errno value made negative
     */
    int run(
        const std::string& call, std::size_t size = 0, const std::function<int()>& effect = [] { return 0; })
    {
        log += std::regex_replace(call, leftOut, "") + "; ";
        const int injected = fault(call);
        const int partial = size > 0 ? static_cast<int>(size) - 1 : -EIO;
        const int result = injected == 0 ? effect() : injected == partly ? partial : -injected;
        errno = result < 0 ? -result : EINTR; // success may leave anything there
        return result < 0 ? -1 : result;
    }

    const std::string root = "/sys/class/gpio/";
    const std::regex leftOut{root + "| line \\d+ of /dev/gpiochip0"};
    std::map<int, std::pair<std::string, unsigned long>> opened; // names and numbers of lines by descriptor

    TimePoint time{};
    int lastOpened = -1;
    bool isHigh = false;
};

/** @return the text of the error that the action throws, "" without one */
template <typename Action>
std::string errorOf(Action action)
{
    try {
        action();
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
}
