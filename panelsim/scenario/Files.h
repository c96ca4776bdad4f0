#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace panelsim {

/** @throws std::system_error when it cannot be read, or with EFBIG when it has more bytes than that */
std::string readFile(const std::filesystem::path& file, std::size_t mostBytes);

/** Writes a file as a whole or, when that fails, leaves the old one. @throws std::system_error */
void replaceFile(const std::filesystem::path& file, std::string_view content);

} // namespace panelsim
