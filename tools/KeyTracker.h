#pragma once

#include "tools/KeyEvent.h"

#include <map>

namespace tools {

/** Tells presses from repeats, which a panel reports alike. */
class KeyTracker {
public:
    /** Takes what the panel reports; a key already held when polling started counts as pressed at its first report. */
    KeyEvent track(unsigned key, bool pressed);

private:
    std::map<unsigned, unsigned> repeatsOfHeldKeys;
};

} // namespace tools
