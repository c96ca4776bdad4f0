#pragma once

#include <string_view>
#include <vector>

namespace tools {

/**
 * Reads a number made of decimal digits only: neither signs nor blanks, and a leading zero does not mean octal.
 * @throws UsageError when the text is anything else or the number is greater than max
 */
unsigned parseNumber(std::string_view text, unsigned max);

/** Reads numbers separated by single commas, as parseNumber does; there is at least one. */
std::vector<unsigned> parseNumberList(std::string_view text, unsigned max);

} // namespace tools
