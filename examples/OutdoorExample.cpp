// Lights an LED of an outdoor panel while its key is pressed, until both keys have been pressed.
#include "frontpanelhw/fp/Outdoor.h"

#include <future>

int main()
{
    // Keys on GPIO 10 and 11, LEDs on 20 to 27.
    frontpanelhw::fp::Outdoor panel(10, 20);

    std::promise<void> both;
    unsigned seen = 0;
    panel.connectAnyKeyChangedCb([&](unsigned key, bool pressed) {
        panel.setLed(key, pressed); // nothing else switches LEDs meanwhile
        const unsigned before = seen;
        seen |= 1U << key;
        if (before != 3 && seen == 3) {
            both.set_value();
        }
    });

    panel.start(true, 1); // after a lamp test of one second
    both.get_future().wait();
    panel.stop();
    return 0;
}
