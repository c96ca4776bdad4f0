#include "panelsim/board/Duration.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace panelsim {

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
