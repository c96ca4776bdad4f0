#pragma once

#include <algorithm>
#include <vector>

namespace frontpanelhw {

inline bool contains(const std::vector<unsigned>& list, unsigned number)
{
    return std::find(list.begin(), list.end(), number) != list.end();
}

} // namespace frontpanelhw
