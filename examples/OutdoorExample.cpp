// Lights the LED of each key while it is pressed, until both keys are pressed at once.
#include "frontpanelhw/fp/Outdoor.h"

#include <exception>
#include <future>
#include <iostream>
#include <sys/prctl.h>

int main()
{
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL); // timers may expire up to 1 ns late, not 50 us
    try {
        std::promise<void> both; // the callback uses these, so they outlive the panel
        bool down[2] = {false, false};
        bool done = false;
        frontpanelhw::fp::Outdoor panel(10, 20); // keys on GPIO 10 and 11, LEDs on 20 to 27

        panel.connectAnyKeyChangedCb([&](unsigned key, bool pressed) {
            panel.setLed(key, pressed); // while keys are polled, LEDs are switched only here
            down[key] = pressed;
            if (down[0] && down[1] && !done) {
                done = true;
                both.set_value();
            }
        });
        panel.start(true, 1); // after a lamp test of one second
        both.get_future().wait();
        panel.stop();
        return 0;
    } catch (const std::exception& error) { // for example a line that is in use
        std::cerr << error.what() << "\n";
        return 1;
    }
}
