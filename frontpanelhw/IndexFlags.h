#pragma once

#include <cstddef>
#include <vector>

namespace frontpanelhw {

/** @return for each index below count, whether it is in the list */
std::vector<bool> indexFlags(const std::vector<unsigned>& list, std::size_t count);

} // namespace frontpanelhw
