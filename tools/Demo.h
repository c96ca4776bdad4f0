#pragma once

#include "tools/Interrupt.h"
#include "tools/KeyEvent.h"
#include "tools/KeyEventQueue.h"
#include "tools/Panel.h"
#include "tools/Wiring.h"

#include <chrono>
#include <optional>
#include <string>

namespace tools {

/** Shows on a panel what its keys do: on the display, and by the LED of the key's number while a key is pressed. */
class Demo {
public:
    struct Times {
        std::chrono::seconds lampTest{2};
        std::optional<std::chrono::seconds> afterLampTest; ///< until interrupted, without one
    };

    /**
     * Lamp test, then key events on LEDs, display and standard output, until the time is over, it is interrupted or
     * standard output fails; in the end LEDs and display are empty. A display that fails is reported once.
     * @return whether everything succeeded
     */
    static bool run(const Wiring& wiring, const Times& times, Interrupt& interrupt);

private:
    Demo(Panel& panel, const Wiring& wiring);

    void play(const Times& times, Interrupt& interrupt, KeyEventQueue& events);
    void startKeys(KeyEventQueue& events);
    void apply(const KeyEvent& event);
    void showPage(KeyEventQueue& events);
    void note(bool ok, const std::string& failure);

    Panel& panel;
    const Wiring& wiring;
    unsigned eventCount = 0;
    std::string lastEvent = "Press a key";
    bool failed = false;
};

} // namespace tools
