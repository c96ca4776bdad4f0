#pragma once

#include "frontpanelhw/Export.h"

#include <string>
#include <string_view>

namespace frontpanelhw::drawing {

/**
 * @param text       UTF-8
 * @param substitute stands for each character that the display does not have, and for each byte that is not part of
 *                   well-formed UTF-8
 * @return a code unit for each character. The display is taken to have the printable characters of Latin-1 (U+0020 to
 *         U+007E, U+00A0 to U+00FF), each under its own number; no data sheet confirms that. Nothing is composed: an
 *         accent that is a character of its own is not on the display.
 */
FRONTPANELHW_EXPORT std::u16string fromUtf8(std::string_view text, char16_t substitute = u'?');

/** Where text stands in a wider space. */
enum class Align {
    Left,  ///< spaces after the text
    Right, ///< spaces before the text
    Centre ///< spaces on both sides
};

/**
 * @return the text with spaces around it, or its first characters, so that it has width code units; of an odd number of
 *         spaces around centred text, the one more is on the right
 */
FRONTPANELHW_EXPORT std::u16string aligned(const std::u16string& text, unsigned width, Align align);

} // namespace frontpanelhw::drawing
