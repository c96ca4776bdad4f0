// Shows the key pressed last on the display of an indoor panel, until key 0 is pressed.
#include "frontpanelhw/fp/Indoor.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <iostream>
#include <sys/prctl.h>
#include <thread>

int main()
{
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL); // timers may expire up to 1 ns late, not 50 us
    try {
        std::atomic<unsigned> pressed{3}; // the callback uses it, so it outlives the panel
        // Keys on GPIO 10 to 12, LEDs on 20 to 27, backlight on 28, LCD on 40 to 52; nothing inverted, all LEDs off.
        frontpanelhw::fp::Indoor panel(10, 20, 40, 3, 8, {}, {});
        frontpanelhw::drawing::DisplayBuffer page(panel.getChars(), panel.getLines());
        page.setLineContent(0, u"Press a key, 0 to leave");
        page.setInverted(0, true, 0, page.getCharCount() - 1);

        // The callback runs on the polling thread. It only passes the key on, since this thread uses the display.
        panel.connectAnyKeyChangedCb([&pressed](unsigned key, bool level) { pressed = level ? key : pressed.load(); });
        panel.start(true, 1); // after a lamp test of one second
        for (unsigned shown = 4; shown != 0; std::this_thread::sleep_for(std::chrono::milliseconds(50))) {
            if (shown != pressed) {
                shown = pressed;
                page.setLineContent(1, u"Key " + std::u16string(1, u"012-"[shown]));
                panel.printBuffer(page);
            }
        }
        panel.stop();
        return 0;
    } catch (const std::exception& error) { // for example a line that is in use
        std::cerr << error.what() << "\n";
        return 1;
    }
}
