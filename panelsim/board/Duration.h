#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace panelsim {

/**
 * Reads a number with or without decimals, directly followed by its unit: 300ms, 1.5s or 2m. It is rounded to whole
 * milliseconds.
 * @return 0 to 24 hours
 * @throws std::invalid_argument for anything else, with one line that says what is wrong
 */
std::chrono::milliseconds parseDuration(std::string_view text);

/** @return in seconds, "1.5 s", or below one in milliseconds, "300 ms" */
std::string describe(std::chrono::milliseconds duration);

} // namespace panelsim
