#include "frontpanelhw/IndexFlags.h"

namespace frontpanelhw {

std::vector<bool> indexFlags(const std::vector<unsigned>& list, std::size_t count)
{
    std::vector<bool> flags(count);
    for (const unsigned index : list) {
        if (index < count) {
            flags[index] = true;
        }
    }
    return flags;
}

} // namespace frontpanelhw
