#pragma once

#include <cstddef>
#include <vector>

namespace frontpanelhw {

/** @return for each number below count, whether the list has it */
std::vector<bool> listed(const std::vector<unsigned>& list, std::size_t count);

} // namespace frontpanelhw
