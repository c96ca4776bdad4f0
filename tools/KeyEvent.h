#pragma once

#include <string>

namespace tools {

/** What happened to a key. */
struct KeyEvent {
    enum class Change { Pressed, Repeated, Released };

    unsigned key;
    Change change;
    unsigned repeats; ///< how often the key has repeated since it was pressed
};

/** @return the event in words, such as "key 0 pressed" */
std::string describe(const KeyEvent& event);

} // namespace tools
