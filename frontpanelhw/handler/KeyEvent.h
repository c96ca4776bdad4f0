#pragma once

#include <chrono>

namespace frontpanelhw::handler {

/** What happened to a key. */
enum class KeyAction {
    Pressed,  ///< was released, or not reported yet
    Repeated, ///< is still pressed
    Released  ///< is not pressed any more
};

/** An event of a key. */
struct KeyEvent {
    unsigned key;                               ///< key index, from 0
    KeyAction action;                           ///< what happened
    unsigned repeats;                           ///< how often the key has repeated since it was pressed
    std::chrono::steady_clock::time_point when; ///< when the panel reported it
};

} // namespace frontpanelhw::handler
