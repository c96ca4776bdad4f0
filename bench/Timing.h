#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace bench {

/** @return the middle one of the values, of which there is one at least */
inline double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/** @param operation takes its number, from 0 on @return the mean time of one operation */
template <typename Operation>
double nanosecondsEach(int times, const Operation& operation)
{
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < times; ++i) {
        operation(i);
    }
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() / times;
}

} // namespace bench
