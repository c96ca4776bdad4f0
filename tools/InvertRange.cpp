#include "tools/InvertRange.h"

#include "tools/DisplaySize.h"
#include "tools/Number.h"
#include "tools/UsageError.h"

#include <string>

namespace tools {

InvertRange parseInvertRange(std::string_view text)
{
    constexpr unsigned lastLine = DisplaySize::lines - 1;
    constexpr unsigned lastColumn = DisplaySize::chars - 1;

    const auto colon = text.find(':');
    const unsigned line = parseNumber(text.substr(0, colon), lastLine);
    if (colon == std::string_view::npos) {
        return {line, 0, lastColumn};
    }
    const auto columns = text.substr(colon + 1);
    const auto dash = columns.find('-');
    const unsigned from = parseNumber(columns.substr(0, dash), lastColumn);
    const unsigned to = dash == std::string_view::npos ? from : parseNumber(columns.substr(dash + 1), lastColumn);
    if (from > to) {
        throw UsageError("'" + std::string(columns) + "' runs backwards");
    }
    return {line, from, to};
}

} // namespace tools
