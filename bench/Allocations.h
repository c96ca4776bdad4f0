#pragma once

#include <cstddef>

namespace bench {

/** @return how often this process has taken memory by operator new */
std::size_t allocations();

} // namespace bench
