#pragma once

#include "tools/Descriptor.h"
#include "tools/KeyEvent.h"

#include <mutex>
#include <vector>

namespace tools {

/** Hands key events from the panel's polling thread to the main thread. */
class KeyEventQueue {
public:
    /** @throws std::system_error */
    KeyEventQueue();

    /** Polling thread. */
    void push(const KeyEvent& event);

    /** Main thread. @return the events pushed since the last call, oldest first */
    std::vector<KeyEvent> take();

    /** @return a descriptor that is readable while there are events to take */
    int descriptor() const { return counter.get(); }

private:
    Descriptor counter;
    std::mutex mutex;
    std::vector<KeyEvent> events;
};

} // namespace tools
