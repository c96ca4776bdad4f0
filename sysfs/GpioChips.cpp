#include "sysfs/GpioChips.h"

#include "sysfs/GpioFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <linux/gpio.h>
#include <map>
#include <sstream>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace sysfs {

namespace {

const std::string chipPrefix = "gpiochip";
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
    const auto readOn = [&] {
        const auto offset = static_cast<off_t>(content.size());
        return uninterrupted([&] { return calls.pread(descriptor, buffer, sizeof buffer, offset); });
    };
    ssize_t size = readOn();
    for (; size > 0; size = readOn()) {
        content.append(buffer, static_cast<std::size_t>(size));
    }
    const int readError = errno;
    calls.close(descriptor);
    if (size < 0) {
        throw failure(readError, "cannot read " + path);
    }
    return content;
}

/** @return names of chips in the directory, by their numbers */
std::map<unsigned, std::string> chipNames(ISystemCalls& calls, const char* directory)
{
    std::map<unsigned, std::string> names;
    for (const std::string& name : calls.list(directory)) {
        const bool isChip = name.compare(0, chipPrefix.size(), chipPrefix) == 0;
        if (const auto number = parseNumber(isChip ? name.substr(chipPrefix.size()) : "")) {
            names[*number] = name;
        }
    }
    return names;
}

/** @return whether a chip that was listed has been unplugged since */
bool hasGone(const std::system_error& error)
{
    return error.code().value() == ENOENT || error.code().value() == ENODEV;
}

std::vector<GpioChip> readCharacterDevices(ISystemCalls& calls)
{
    std::vector<GpioChip> chips;
    for (const auto& [number, name] : chipNames(calls, "/dev/")) {
        gpiochip_info info{};
        name.copy(info.name, sizeof info.name - 1);
        try {
            GpioFile(calls, 0, "/dev/" + name, O_RDWR).control(GPIO_GET_CHIPINFO_IOCTL, &info, "describe");
        } catch (const std::system_error& error) {
            // Another chip is listed: its number may be known, and a line of it reports why it cannot be used.
            if (hasGone(error)) {
                continue;
            }
        }
        if (info.name == name) { // else a link, by which some systems give a chip a second name
            GpioChip chip;
            chip.name = name;
            chip.label = info.label;
            chip.lines = info.lines;
            chips.push_back(chip);
        }
    }
    return chips;
}

/** @return as much of a label as the character device shows */
std::string shortLabel(const std::string& label)
{
    return label.substr(0, GPIO_MAX_NAME_SIZE - 1);
}

/** What the two interfaces show of one chip has the same parent and, where it can be read, lines and label. */
bool mayBeSame(ISystemCalls& calls, const GpioChip& device, const GpioChip& listed)
{
    const bool sameLabel = listed.label.empty() || shortLabel(listed.label) == device.label;
    if (device.lines != 0 && (device.lines != listed.lines || !sameLabel)) {
        return false;
    }
    const std::string directory = "/sys/bus/gpio/devices/" + device.name;
    const std::string name = "/gpio/" + chipPrefix + std::to_string(*listed.sysfsBase);
    return GpioFile::exists(calls, directory + "/.." + name) || GpioFile::exists(calls, directory + name);
}

std::vector<GpioChip> readSysfsChips(ISystemCalls& calls)
{
    std::vector<GpioChip> chips;
    for (const auto& [base, name] : chipNames(calls, sysfsDirectory)) {
        const std::string directory = sysfsDirectory + name;
        const auto read = [&](const char* attribute) {
            const std::string content = readFile(calls, directory + attribute);
            return content.substr(0, content.find('\n'));
        };
        try {
            GpioChip chip;
            chip.sysfsBase = base;
            chip.source = directory + "/base";
            chip.lines = parseNumber(read("/ngpio")).value_or(0);
            chip.label = read("/label");
            chips.push_back(chip);
        } catch (const std::system_error& error) {
            if (!hasGone(error)) {
                throw;
            }
        }
    }
    return chips;
}

/** Adds what /sys/class/gpio shows of the chips, and the chips that only it shows or that may be several of /dev. */
void addSysfsChips(ISystemCalls& calls, std::vector<GpioChip>& chips)
{
    const std::vector<GpioChip> listed = readSysfsChips(calls);
    std::vector<GpioChip> unmatched;
    for (GpioChip chip : listed) {
        std::vector<GpioChip*> matches;
        for (GpioChip& device : chips) {
            if (mayBeSame(calls, device, chip)) {
                chip.candidates += (matches.empty() ? "" : " or ") + device.name;
                matches.push_back(&device);
            }
        }
        const auto isMatch = [&](const GpioChip& other) { return mayBeSame(calls, *matches[0], other); };
        if (matches.size() == 1 && std::count_if(listed.begin(), listed.end(), isMatch) == 1) {
            matches[0]->sysfsBase = chip.sysfsBase;
            matches[0]->source = chip.source;
            if (matches[0]->lines == 0) {
                matches[0]->lines = chip.lines;
                matches[0]->label = chip.label;
            }
        } else {
            unmatched.push_back(chip);
        }
    }
    chips.insert(chips.end(), unmatched.begin(), unmatched.end());
}

/** @return the chip that has this name or, if none has, the only one with this label */
GpioChip& findChip(std::vector<GpioChip>& chips, const std::string& designation, const std::string& source)
{
    std::vector<GpioChip*> labelled;
    for (GpioChip& chip : chips) {
        if (chip.name == designation) {
            return chip;
        }
        if (shortLabel(chip.label) == shortLabel(designation)) {
            labelled.push_back(&chip);
        }
    }
    if (labelled.empty()) {
        throw failure(EINVAL, source + ": no chip that may be read has the name or label '" + designation + "'");
    }
    if (labelled.size() > 1) {
        throw failure(EINVAL, source + ": several chips have the label '" + designation + "', give the chip's name");
    }
    return *labelled[0];
}

bool overlap(const GpioChip& one, const GpioChip& two)
{
    const auto end = [](const GpioChip& chip) { return std::uint64_t{*chip.base} + chip.lines; };
    return one.base && two.base && *one.base < end(two) && *two.base < end(one);
}

/** Numbers the chips by a text with lines like "512 30200000.gpio". What comes after a # is a comment. */
void numberByFile(std::vector<GpioChip>& chips, const std::string& path, const std::string& content)
{
    std::istringstream lines(content);
    std::string line;
    for (unsigned number = 1; std::getline(lines, line); ++number) {
        const std::string source = path + ":" + std::to_string(number);
        std::istringstream words(line.substr(0, line.find('#')));
        std::string base;
        std::string designation;
        std::getline(words >> base >> std::ws, designation);
        if (base.empty()) {
            continue;
        }
        designation.erase(designation.find_last_not_of(" \t\r") + 1);
        if (!parseNumber(base) || designation.empty()) {
            throw failure(EINVAL, source + ": this is not a base and a chip's label or name");
        }
        GpioChip& chip = findChip(chips, designation, source);
        if (chip.base) {
            throw failure(EINVAL, source + ": this chip has a base already");
        }
        chip.base = parseNumber(base);
        chip.source = source;
        for (const GpioChip& other : chips) {
            if (&other != &chip && overlap(chip, other)) {
                throw failure(EINVAL, source + ": its numbers overlap those of " + other.source);
            }
        }
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
    const char* const variable = secure_getenv("SYSFSGPIO_CONFIG");
    const bool isNamed = variable != nullptr && *variable != '\0';
    const std::string path = isNamed ? variable : defaultConfig;
    if (isNamed || GpioFile::exists(calls, path)) {
        numberByFile(chips, path, readFile(calls, path));
    } else if (std::any_of(chips.begin(), chips.end(), [](const GpioChip& chip) { return chip.sysfsBase; })) {
        for (GpioChip& chip : chips) {
            chip.base = chip.sysfsBase;
        }
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
