#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace panelsim {

/** @return the one of the words that is likely to be meant, empty when none is near */
std::optional<std::string_view> nearestWord(std::string_view written, const std::vector<std::string_view>& words);

} // namespace panelsim
