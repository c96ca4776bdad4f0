#include "panelsim/scenario/NearestWord.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace panelsim {

namespace {

constexpr std::size_t longestMistake = 40; ///< anything longer is no word that was mistyped

/** @return how many characters are to be added, removed or changed to come from one word to the other */
std::size_t distance(std::string_view from, std::string_view to)
{
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

} // namespace

std::optional<std::string_view> nearestWord(std::string_view written, const std::vector<std::string_view>& words)
{
    std::optional<std::string_view> nearest;
    std::size_t least = written.size() > longestMistake ? 0 : written.size() / 3 + 1;
    for (const std::string_view word : words) {
        const std::size_t changes = least == 0 ? 0 : distance(written, word);
        if (changes < least) {
            least = changes;
            nearest = word;
        }
    }
    return nearest;
}

} // namespace panelsim
