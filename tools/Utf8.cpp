#include "tools/Utf8.h"

#include <cstddef>
#include <cwchar>
#include <locale>

namespace tools {

namespace {

/** The converter lets three bytes stand for half a surrogate pair. */
bool holdsSurrogate(std::string_view bytes)
{
    for (std::size_t i = 1; i < bytes.size(); ++i) {
        if (bytes[i - 1] == '\xED' && static_cast<unsigned char>(bytes[i]) >= 0xA0) {
            return true;
        }
    }
    return false;
}

} // namespace

std::optional<std::u16string> decodeUtf8(std::string_view bytes)
{
    using Codec = std::codecvt<char16_t, char, std::mbstate_t>;
    const auto& codec = std::use_facet<Codec>(std::locale::classic());

    std::u16string text(bytes.size(), u'\0'); // a code unit comes from one byte or more
    std::mbstate_t state{};
    const char* bytesEnd = nullptr;
    char16_t* textEnd = nullptr;
    if (codec.in(state, bytes.data(), bytes.data() + bytes.size(), bytesEnd, text.data(), text.data() + text.size(),
                 textEnd) != Codec::ok ||
        holdsSurrogate(bytes)) {
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(textEnd - text.data()));
    return text;
}

} // namespace tools
