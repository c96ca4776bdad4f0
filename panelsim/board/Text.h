#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace panelsim {

/** @return how many bytes from the first one on are whole characters of UTF-8 */
std::size_t validUtf8(std::string_view bytes);

/** @return the bytes as UTF-8 on one line: control codes become a middle dot, what is not UTF-8 U+FFFD */
std::string printable(std::string_view bytes);

/** @return the same in quotes */
std::string inQuotes(std::string_view bytes);

/** @return the same in quotes, the end of a long text left out */
std::string excerpt(std::string_view bytes);

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
