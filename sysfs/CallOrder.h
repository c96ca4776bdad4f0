#pragma once

#include <memory>

namespace sysfs {

/** @throws std::logic_error always: the pin has no line */
[[noreturn]] void failBeforeExport(const char* operation);

/** @throws std::logic_error always: the pin has a line already */
[[noreturn]] void failExportedAgain(unsigned gpioNumber);

/** @throws std::logic_error always: the polarity of the line is not set */
[[noreturn]] void failBeforeInit(unsigned gpioNumber);

/** @return what a pin has from exportGpio to deinit */
template <typename Line>
Line& exported(const std::unique_ptr<Line>& line, const char* operation)
{
    if (!line) {
        failBeforeExport(operation);
    }
    return *line;
}

} // namespace sysfs
