#include "panelsim/board/BoardConfig.h"

#include <algorithm>
#include <stdexcept>

namespace panelsim {

namespace {

template <typename Table>
const typename Table::value_type& rowOf(const Table& table, const char* what, std::string_view name)
{
    const auto found = std::find_if(table.begin(), table.end(), [&](const auto& row) { return row.name == name; });
    if (found == table.end()) {
        throw std::invalid_argument("there is no " + std::string(what) + " " + std::string(name));
    }
    return *found;
}

} // namespace

BoardConfig boardOf(const PanelKind& kind)
{
    BoardConfig config;
    config.panel = kind.name;
    config.panelId = kind.id;
    config.hasLcd = kind.hasLcd;
    config.keyCount = kind.keyCount;
    config.ledCount = kind.ledCount;
    return config;
}

const PanelKind& panelKind(std::string_view name)
{
    return rowOf(panelKinds, "panel", name);
}

std::string keyName(const BoardConfig& config, unsigned key)
{
    return config.keyNames.empty() ? std::to_string(key) : config.keyNames.at(key);
}

std::string ledName(const BoardConfig& config, unsigned led)
{
    return config.ledNames.empty() ? std::to_string(led) : config.ledNames.at(led);
}

const LedColour& ledColour(const BoardConfig& config, unsigned led)
{
    return config.ledColours.empty() ? ledColours.front() : rowOf(ledColours, "LED colour", config.ledColours.at(led));
}

} // namespace panelsim
