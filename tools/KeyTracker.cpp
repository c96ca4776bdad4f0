#include "tools/KeyTracker.h"

namespace tools {

KeyEvent KeyTracker::track(unsigned key, bool pressed)
{
    if (!pressed) {
        repeatsOfHeldKeys.erase(key);
        return {key, KeyEvent::Change::Released, 0};
    }
    const auto [held, isNew] = repeatsOfHeldKeys.try_emplace(key, 0);
    if (isNew) {
        return {key, KeyEvent::Change::Pressed, 0};
    }
    return {key, KeyEvent::Change::Repeated, ++held->second};
}

} // namespace tools
