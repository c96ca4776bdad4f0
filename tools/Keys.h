#pragma once

#include "tools/Interrupt.h"
#include "tools/Wiring.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace tools {

/** What happened to a key. */
struct KeyEvent {
    unsigned key;
    bool pressed;
    unsigned repeats; ///< how often the key has repeated since it was pressed
};

/** @return the event in words, such as "key 0 pressed" */
std::string describe(const KeyEvent& event);

/** Hands key events from the panel's polling thread to the main thread. */
class KeyEventQueue {
public:
    /**
     * Polling thread. Queues what the panel reports, which reports presses and repeats alike. A key that was already
     * held when polling started counts as pressed at its first report.
     */
    KeyEvent push(unsigned key, bool pressed);

    /** Main thread. @return the events pushed since the last call, oldest first */
    std::vector<KeyEvent> take();

    /** Main thread, while polling is stopped. Forgets all events and which keys are held. */
    void clear();

private:
    std::mutex mutex;
    std::vector<KeyEvent> events;
    std::map<unsigned, unsigned> repeatsOfHeldKeys;
};

/** @return a key callback that prints each event on standard output, queues it and wakes the main thread */
std::function<void(unsigned, bool)> reportTo(KeyEventQueue& events, Interrupt& interrupt);

/** Prints key events until interrupted or until standard output fails. LEDs and display are not used. */
void watchKeys(const Wiring& wiring, Interrupt& interrupt);

} // namespace tools
