#include "panelsim/board/Duration.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <system_error>

namespace panelsim {

namespace {

struct Unit {
    std::string_view name;
    std::chrono::milliseconds length;
};

constexpr std::array<Unit, 3> units = {{
    {"ms", std::chrono::milliseconds(1)},
    {"s", std::chrono::seconds(1)},
    {"m", std::chrono::minutes(1)},
}};
constexpr std::chrono::milliseconds longest = std::chrono::hours(24);

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

} // namespace

std::chrono::milliseconds parseDuration(std::string_view text)
{
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    const std::string_view digits = text.substr(0, static_cast<std::size_t>(rest - text.data()));
    const std::string_view name = text.substr(digits.size());
    const auto* const unit = std::find_if(units.begin(), units.end(), [&](const Unit& u) { return u.name == name; });
    if (digits.empty() || !isDigit(digits.front()) || !isDigit(digits.back()) ||
        (unit == units.end() && !name.empty())) {
        throw std::invalid_argument("\"" + std::string(text) + "\" is not a duration such as 300ms, 1.5s or 2m");
    }
    if (unit == units.end()) {
        const std::string given(text);
        throw std::invalid_argument(given + " has no unit: write " + given + "ms, " + given + "s or " + given + "m");
    }
    const double milliseconds = std::round(number * static_cast<double>(unit->length.count()));
    if (error != std::errc() || milliseconds > static_cast<double>(longest.count())) {
        throw std::invalid_argument(std::string(text) + " is longer than 24 hours");
    }
    return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(milliseconds));
}

std::string describe(std::chrono::milliseconds duration)
{
    constexpr std::chrono::milliseconds second = std::chrono::seconds(1);
    if (duration < second) {
        return std::to_string(duration.count()) + " ms";
    }
    const std::string fraction = std::to_string((duration % second + second).count()).substr(1);
    const std::string decimals = fraction.substr(0, fraction.find_last_not_of('0') + 1);
    return std::to_string(duration / second) + (decimals.empty() ? "" : "." + decimals) + " s";
}

} // namespace panelsim
