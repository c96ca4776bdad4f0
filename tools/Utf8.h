#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tools {

/** @return the text's UTF-16 code units, nothing when it is not UTF-8 */
std::optional<std::u16string> decodeUtf8(std::string_view bytes);

} // namespace tools
