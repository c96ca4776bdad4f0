// A menu on the display of an indoor panel: keys 0 and 1 go up and down, key 2 changes the selected line.
#include "frontpanelhw/drawing/Text.h"
#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/handler/KeyEventQueue.h"

#include <csignal>
#include <exception>
#include <iostream>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/signalfd.h>

using namespace frontpanelhw;

int main()
{
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL); // timers may expire up to 1 ns late, not 50 us
    sigset_t term;                                // read from a descriptor, and blocked in all threads
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &term, nullptr);
    try {
        // Keys on GPIO 10 to 12, LEDs on 20 to 27, backlight on 28, LCD on 40 to 52; nothing inverted, all LEDs off.
        fp::Indoor panel(10, 20, 40, 3, 8, {}, {});
        handler::KeyEventQueue keys; // takes events from the panel's thread to this one
        panel.connectAnyKeyChangedCb(keys.callback());
        panel.start(true, 1); // after a lamp test of one second

        const std::u16string names[] = {u"Heating", u"Target", u"Lamp"};
        bool on[] = {false, false, false};
        int target = 21;
        unsigned selected = 0;
        bool held = false;
        pollfd ready[] = {{keys.descriptor(), POLLIN, 0}, {signalfd(-1, &term, SFD_CLOEXEC), POLLIN, 0}};
        while (ready[1].revents == 0) {
            drawing::DisplayBuffer page(panel.getChars(), panel.getLines());
            const std::string values[] = {on[0] ? "on" : "off", std::to_string(target) + " °C", on[2] ? "on" : "off"};
            for (unsigned line = 0; line < 3; ++line) {
                const auto value = drawing::fromUtf8(values[line]);
                page.setLineContent(line, drawing::aligned(value, page.getCharCount(), drawing::Align::Right));
                page.setLineContent(line, names[line]);
            }
            page.setInverted(selected, true, 0, page.getCharCount() - 1);
            if (!panel.printBuffer(page) && panel.restartDisplay()) {
                panel.printBuffer(page);
            }
            panel.setLed(0, on[0]);
            panel.setLed(2, on[2]);
            panel.setLed(7, held);

            poll(ready, 2, -1);
            while (const auto event = keys.next(std::chrono::milliseconds(0))) {
                held = event->action != handler::KeyAction::Released;
                if (event->key != 2 && held) {
                    selected = (selected + (event->key == 0 ? 2 : 1)) % 3;
                } else if (selected == 1 && held) {
                    ++target; // by each repeat as well
                } else if (event->action == handler::KeyAction::Pressed) {
                    on[selected] = !on[selected]; // once, however long the key is held
                }
            }
        }
        panel.stop();
        return 0;
    } catch (const std::exception& error) { // for example a line that is in use
        std::cerr << error.what() << "\n";
        return 1;
    }
}
