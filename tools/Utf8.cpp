#include "tools/Utf8.h"

#include <cstddef>

namespace tools {

namespace {

constexpr char32_t firstSupplementary = 0x10000;
constexpr char32_t lastCodePoint = 0x10FFFF;

/** Sequences whose first byte b has (b & mask) == lead; one that holds less than smallest is overlong. */
struct Form {
    unsigned char mask;
    unsigned char lead;
    std::size_t length;
    char32_t smallest;
};

constexpr Form forms[] = {
    {0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, firstSupplementary}};

const Form* findForm(unsigned char lead)
{
    for (const Form& form : forms) {
        if ((lead & form.mask) == form.lead) {
            return &form;
        }
    }
    return nullptr;
}

bool isSurrogate(char32_t codePoint)
{
    return codePoint >= 0xD800 && codePoint <= 0xDFFF;
}

/** Takes one code point off the front of the bytes, which are not empty. */
std::optional<char32_t> takeCodePoint(std::string_view& bytes)
{
    const auto lead = static_cast<unsigned char>(bytes.front());
    const Form* const form = findForm(lead);
    if (form == nullptr || bytes.size() < form->length) {
        return std::nullopt;
    }
    char32_t codePoint = lead & ~static_cast<unsigned>(form->mask);
    for (const char c : bytes.substr(1, form->length - 1)) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte & 0xC0U) != 0x80U) {
            return std::nullopt;
        }
        codePoint = (codePoint << 6) | (byte & 0x3FU);
    }
    if (codePoint < form->smallest || codePoint > lastCodePoint || isSurrogate(codePoint)) {
        return std::nullopt;
    }
    bytes.remove_prefix(form->length);
    return codePoint;
}

void append(std::u16string& text, char32_t codePoint)
{
    if (codePoint < firstSupplementary) {
        text.push_back(static_cast<char16_t>(codePoint));
        return;
    }
    const char32_t offset = codePoint - firstSupplementary;
    text.push_back(static_cast<char16_t>(0xD800 + (offset >> 10)));
    text.push_back(static_cast<char16_t>(0xDC00 + (offset & 0x3FF)));
}

} // namespace

std::optional<std::u16string> decodeUtf8(std::string_view bytes)
{
    std::u16string text;
    while (!bytes.empty()) {
        const auto codePoint = takeCodePoint(bytes);
        if (!codePoint) {
            return std::nullopt;
        }
        append(text, *codePoint);
    }
    return text;
}

} // namespace tools
