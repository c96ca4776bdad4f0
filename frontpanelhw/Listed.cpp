#include "frontpanelhw/Listed.h"

namespace frontpanelhw {

std::vector<bool> listed(const std::vector<unsigned>& list, std::size_t count)
{
    std::vector<bool> found(count);
    for (const unsigned number : list) {
        if (number < count) {
            found[number] = true;
        }
    }
    return found;
}

} // namespace frontpanelhw
