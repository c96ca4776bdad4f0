#include "panelsim/board/Text.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace panelsim {

namespace {

constexpr std::size_t longestExcerpt = 60; ///< bytes

/** Removes the first character. @return its code; empty when the first byte, which is removed, begins none */
std::optional<std::uint32_t> takeCharacter(std::string_view& bytes)
{
    constexpr std::uint32_t ends[] = {0, 0x80, 0x800, 0x10000, 0x110000}; // of the codes of so many bytes
    const auto lead = static_cast<unsigned char>(bytes.front());
    const std::size_t length = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t code = length == 1 ? lead : lead & (length == 2 ? 0x1FU : 0x0FU);
    bool isWhole = length <= bytes.size();
    for (std::size_t i = 1; isWhole && i < length; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        isWhole = (byte & 0xC0U) == 0x80U;
        code = code << 6U | (byte & 0x3FU);
    }
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    const bool isValid = isWhole && code >= ends[length - 1] && code < ends[length] && !isSurrogate;
    bytes.remove_prefix(isValid ? length : 1);
    return isValid ? std::optional(code) : std::nullopt;
}

} // namespace

std::size_t validUtf8(std::string_view bytes)
{
    std::string_view rest = bytes;
    std::size_t valid = 0;
    while (!rest.empty() && takeCharacter(rest)) {
        valid = bytes.size() - rest.size();
    }
    return valid;
}

std::string printable(std::string_view bytes)
{
    std::string text;
    while (!bytes.empty()) {
        const std::string_view before = bytes;
        const auto code = takeCharacter(bytes);
        const bool isControl = code && (*code < 0x20 || (*code >= 0x7F && *code < 0xA0));
        text += !code ? "\uFFFD" : isControl ? "\u00B7" : before.substr(0, before.size() - bytes.size());
    }
    return text;
}

std::string inQuotes(std::string_view bytes)
{
    return "\"" + printable(bytes) + "\"";
}

std::string excerpt(std::string_view bytes)
{
    if (bytes.size() <= longestExcerpt) {
        return inQuotes(bytes);
    }
    const std::string_view start = bytes.substr(0, longestExcerpt);
    return inQuotes(start.substr(0, validUtf8(start))) + "...";
}

std::chrono::milliseconds parseDuration(std::string_view text)
{
    constexpr std::chrono::duration<double, std::milli> longest = std::chrono::hours(24);
    const std::string given(text);
    double number = 0;
    const auto [rest, error] =
        std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    const std::string_view unit = text.substr(static_cast<std::size_t>(rest - text.data()));
    const std::string digits = given.substr(0, given.size() - unit.size());
    const double length = unit == "ms" ? 1 : unit == "s" ? 1e3 : unit == "m" ? 6e4 : 0;
    if (digits.empty() || std::isdigit(digits.front()) == 0 || std::isdigit(digits.back()) == 0 ||
        (length == 0 && !unit.empty())) {
        throw std::invalid_argument("\"" + given + "\" is not a duration such as 300ms, 1.5s or 2m");
    }
    if (unit.empty()) {
        throw std::invalid_argument(given + " has no unit: write " + given + "ms, " + given + "s or " + given + "m");
    }
    if (error != std::errc() || std::round(number * length) > longest.count()) {
        throw std::invalid_argument(given + " is longer than 24 hours");
    }
    return std::chrono::milliseconds(std::llround(number * length));
}

std::string describe(std::chrono::milliseconds duration)
{
    if (duration < std::chrono::seconds(1)) {
        return std::to_string(duration.count()) + " ms";
    }
    std::ostringstream text;
    text << std::setprecision(9) << std::chrono::duration<double>(duration).count() << " s";
    return text.str();
}

} // namespace panelsim
