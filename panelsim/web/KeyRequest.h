#pragma once

#include "panelsim/board/HeldKeys.h"

#include <string>

namespace panelsim {

/** What a page wants of a key. */
struct KeyRequest {
    HeldKeys::Hand client = 0;
    unsigned key = 0;
    bool pressed = false;
};

/**
 * @param text JSON such as {"client":"17","key":0,"pressed":true}, with these members and no others
 * @throws std::invalid_argument with one line of text for anything else
 */
KeyRequest parseKeyRequest(const std::string& text);

} // namespace panelsim
