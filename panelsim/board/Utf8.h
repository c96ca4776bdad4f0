#pragma once

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

} // namespace panelsim
