#include "sysfs/GpioChips.h"

#include "sysfs/GpioFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/gpio.h>
#include <sstream>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace sysfs {

namespace {

constexpr const char* chipPrefix = "gpiochip";
constexpr const char* sysfsDirectory = "/sys/class/gpio/";
constexpr const char* defaultConfig = "/etc/sysfsgpio.conf";

std::system_error failure(int errnoValue, const std::string& text)
{
    return {errnoValue, std::generic_category(), text};
}

std::optional<unsigned> parseNumber(std::string_view text)
{
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::string readFile(ISystemCalls& calls, const std::string& path)
{
    const int descriptor = uninterrupted([&] { return calls.open(path.c_str(), O_RDONLY | O_CLOEXEC); });
    if (descriptor < 0) {
        throw failure(errno, "cannot open " + path);
    }
    std::string content;
    char buffer[1024];
    ssize_t size = 0;
    do {
        const auto offset = static_cast<off_t>(content.size());
        size = uninterrupted([&] { return calls.pread(descriptor, buffer, sizeof buffer, offset); });
        content.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    } while (size > 0);
    const int readError = errno;
    calls.close(descriptor);
    if (size < 0) {
        throw failure(readError, "cannot read " + path);
    }
    return content;
}

/** @return names of chips in the directory, by their numbers */
std::vector<std::string> chipNames(ISystemCalls& calls, const char* directory)
{
    std::vector<std::pair<unsigned, std::string>> found;
    for (const std::string& name : calls.list(directory)) {
        const bool isChip = name.rfind(chipPrefix, 0) == 0;
        const auto number = parseNumber(isChip ? name.c_str() + std::strlen(chipPrefix) : "");
        if (number) {
            found.emplace_back(*number, name);
        }
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> names;
    for (auto& [number, name] : found) {
        names.push_back(std::move(name));
    }
    return names;
}

std::vector<GpioChip> readCharacterDevices(ISystemCalls& calls)
{
    std::vector<GpioChip> chips;
    for (const std::string& name : chipNames(calls, "/dev")) {
        gpiochip_info info{};
        try {
            const GpioFile device(calls, 0, "/dev/" + name, O_RDWR);
            if (device.control(GPIO_GET_CHIPINFO_IOCTL, &info) && info.name != name) {
                continue; // a link, by which some systems give a chip a second name
            }
        } catch (const std::system_error&) {
            // It is listed all the same: its number may be known, and a line of it reports why it cannot be used.
        }
        GpioChip chip;
        chip.name = name;
        chip.label = info.label;
        chip.lines = info.lines;
        chips.push_back(chip);
    }
    return chips;
}

/** What the two interfaces show of one chip has the same parent and, where it can be read, lines and label. */
bool mayBeSame(ISystemCalls& calls, const GpioChip& device, const GpioChip& listed)
{
    const std::string label = listed.label.substr(0, GPIO_MAX_NAME_SIZE - 1);
    if (device.lines != 0 && (device.lines != listed.lines || (!label.empty() && label != device.label))) {
        return false;
    }
    const std::string directory = "/sys/bus/gpio/devices/" + device.name;
    const std::string name = std::string("/gpio/") + chipPrefix + std::to_string(*listed.sysfsBase);
    return GpioFile::exists(calls, directory + "/.." + name) || GpioFile::exists(calls, directory + name);
}

std::vector<GpioChip> readSysfsChips(ISystemCalls& calls)
{
    std::vector<GpioChip> chips;
    for (const std::string& name : chipNames(calls, sysfsDirectory)) {
        const auto read = [&](const char* attribute) {
            const std::string content = readFile(calls, sysfsDirectory + name + attribute);
            return content.substr(0, content.find('\n'));
        };
        GpioChip chip;
        chip.sysfsBase = parseNumber(read("/base")).value_or(0);
        chip.lines = parseNumber(read("/ngpio")).value_or(0);
        chip.label = read("/label");
        chips.push_back(chip);
    }
    return chips;
}

/** Adds what /sys/class/gpio shows of the chips, and the chips that only it shows or that may be several of /dev. */
void addSysfsChips(ISystemCalls& calls, std::vector<GpioChip>& chips)
{
    const std::vector<GpioChip> listed = readSysfsChips(calls);
    std::vector<GpioChip> unmatched;
    for (GpioChip chip : listed) {
        GpioChip* match = nullptr;
        for (GpioChip& device : chips) {
            if (mayBeSame(calls, device, chip)) {
                chip.nameSakes.push_back(device.name);
                match = &device;
            }
        }
        const auto isMatch = [&](const GpioChip& other) { return mayBeSame(calls, *match, other); };
        if (chip.nameSakes.size() == 1 && std::count_if(listed.begin(), listed.end(), isMatch) == 1) {
            match->sysfsBase = chip.sysfsBase;
            if (match->lines == 0) {
                match->lines = chip.lines;
                match->label = chip.label;
            }
        } else {
            unmatched.push_back(chip);
        }
    }
    chips.insert(chips.end(), unmatched.begin(), unmatched.end());
}

/** @return the one chip that has this name or, if none has, this label */
GpioChip& findChip(std::vector<GpioChip>& chips, const std::string& designation, const std::string& place)
{
    const auto find = [&chips](auto matches) {
        std::vector<GpioChip*> found;
        for (GpioChip& chip : chips) {
            if (matches(chip)) {
                found.push_back(&chip);
            }
        }
        return found;
    };
    auto found = find([&](const GpioChip& chip) { return chip.name == designation; });
    if (found.empty()) {
        found = find([&](const GpioChip& chip) {
            return chip.label == designation ||
                   (!chip.label.empty() && chip.label == designation.substr(0, GPIO_MAX_NAME_SIZE - 1));
        });
    }
    if (found.empty()) {
        throw failure(EINVAL, place + "no chip that may be read has the name or label '" + designation + "'");
    }
    if (found.size() > 1) {
        throw failure(EINVAL, place + "several chips have the label '" + designation + "', give the chip's name");
    }
    return *found[0];
}

bool overlap(const GpioChip& one, const GpioChip& other)
{
    const auto end = [](const GpioChip& chip) { return std::uint64_t{*chip.base} + std::max(chip.lines, 1U); };
    return one.base && other.base && *one.base < end(other) && *other.base < end(one);
}

/** Numbers the chips by a text with lines like "512 30200000.gpio". What comes after a # is a comment. */
void numberByFile(std::vector<GpioChip>& chips, const std::string& path, const std::string& content)
{
    constexpr const char* blanks = " \t\r";
    std::istringstream lines(content);
    std::string line;
    for (unsigned number = 1; std::getline(lines, line); ++number) {
        const std::string source = path + ":" + std::to_string(number);
        const std::string place = source + ": ";
        line.erase(std::min(line.find('#'), line.size()));
        line.erase(line.find_last_not_of(blanks) + 1);
        line.erase(0, line.find_first_not_of(blanks));
        if (line.empty()) {
            continue;
        }
        const std::size_t baseEnd = std::min(line.find_first_of(blanks), line.size());
        const auto base = parseNumber(std::string_view(line).substr(0, baseEnd));
        const std::size_t nameStart = line.find_first_not_of(blanks, baseEnd);
        if (!base || nameStart == std::string::npos) {
            throw failure(EINVAL, place + "'" + line + "' is not a base and a chip's label or name");
        }
        GpioChip& chip = findChip(chips, line.substr(nameStart), place);
        if (chip.base) {
            throw failure(EINVAL, place + "this chip has a base already");
        }
        chip.base = base;
        chip.source = source;
        for (const GpioChip& other : chips) {
            if (&other != &chip && overlap(other, chip)) {
                throw failure(EINVAL, place + "its numbers overlap those of " + other.source);
            }
        }
    }
}

void numberBySysfs(std::vector<GpioChip>& chips)
{
    for (GpioChip& chip : chips) {
        chip.base = chip.sysfsBase;
        chip.source = std::string(sysfsDirectory) + chipPrefix + std::to_string(chip.base.value_or(0)) + "/base";
    }
}

/** Those that follow a chip whose number of lines is unknown get no numbers. */
void numberInOrder(std::vector<GpioChip>& chips)
{
    unsigned base = 0;
    for (GpioChip& chip : chips) {
        if (chip.lines == 0) {
            return;
        }
        chip.base = base;
        chip.source = "the order in /dev";
        base += chip.lines;
    }
}

} // namespace

std::vector<GpioChip> readGpioChips(ISystemCalls& calls)
{
    std::vector<GpioChip> chips = readCharacterDevices(calls);
    addSysfsChips(calls, chips);
    const char* const named = secure_getenv("SYSFSGPIO_CONFIG");
    const std::string path = named != nullptr ? named : defaultConfig;
    if (named != nullptr || GpioFile::exists(calls, path)) {
        numberByFile(chips, path, readFile(calls, path));
    } else if (std::any_of(chips.begin(), chips.end(), [](const GpioChip& chip) { return chip.sysfsBase; })) {
        numberBySysfs(chips);
    } else {
        numberInOrder(chips);
    }
    return chips;
}

GpioLine findGpioLine(ISystemCalls& calls, unsigned gpioNumber)
{
    const std::vector<GpioChip> chips = readGpioChips(calls);
    for (const GpioChip& chip : chips) {
        if (chip.base && gpioNumber >= *chip.base && gpioNumber - *chip.base < chip.lines) {
            return {chip, gpioNumber - *chip.base};
        }
    }
    for (const GpioChip& chip : chips) {
        if (chip.lines == 0) {
            const GpioFile reasonWhyItsLinesAreUnknown(calls, gpioNumber, "/dev/" + chip.name, O_RDWR);
        }
    }
    const std::string gpio = "GPIO " + std::to_string(gpioNumber) + ": ";
    if (chips.empty()) {
        throw failure(ENODEV, gpio + "there are neither chips in /dev (CONFIG_GPIO_CDEV) nor in /sys/class/gpio "
                                     "(CONFIG_GPIO_SYSFS)");
    }
    throw failure(EINVAL, gpio + "no chip has this number, see 'frontpanel chips'");
}

} // namespace sysfs
