#include "tools/Number.h"

#include "tools/UsageError.h"

#include <charconv>
#include <string>
#include <system_error>

namespace tools {

unsigned parseNumber(std::string_view text, unsigned max)
{
    unsigned number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end || number > max) {
        throw UsageError("'" + std::string(text) + "' is not a number from 0 to " + std::to_string(max));
    }
    return number;
}

std::vector<unsigned> parseNumberList(std::string_view text, unsigned max)
{
    std::vector<unsigned> numbers;
    for (auto comma = text.find(','); comma != std::string_view::npos; comma = text.find(',')) {
        numbers.push_back(parseNumber(text.substr(0, comma), max));
        text.remove_prefix(comma + 1);
    }
    numbers.push_back(parseNumber(text, max));
    return numbers;
}

} // namespace tools
