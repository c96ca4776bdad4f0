#pragma once

#include <string_view>

namespace panelsim {

/**
 * @return the bytes of a file of the page, as they were when the program was built
 * @throws std::out_of_range when there is no file of that name
 */
std::string_view pageFile(std::string_view name);

} // namespace panelsim
