// Shows the last key on the display of an indoor panel and lights the LED of its number, until key 0 is pressed.
#include "frontpanelhw/fp/Indoor.h"

#include <future>
#include <string>

using frontpanelhw::drawing::DisplayBuffer;

int main()
{
    // Keys on GPIO 10 to 12, LEDs on 20 to 27, the backlight on 28, the LCD on 40 to 52; nothing active-low, all LEDs
    // off.
    frontpanelhw::fp::Indoor panel(10, 20, 40, 3, 8, {}, {});

    DisplayBuffer page(panel.getChars(), panel.getLines());
    page.setLineContent(0, u" Press a key, 0 to leave");
    page.setInverted(0, true, 0, page.getCharCount() - 1);
    panel.printBuffer(page);

    for (unsigned key = 1; key != 0;) {
        // The callback runs on the polling thread: it only hands the key over, the display belongs to this thread.
        std::promise<unsigned> pressed;
        bool first = true;
        panel.connectAnyKeyChangedCb([&](unsigned index, bool level) {
            if (level && first) {
                first = false;
                pressed.set_value(index);
            }
        });
        panel.start(false, 0);
        key = pressed.get_future().get();
        panel.stop();
        page.clear(1);
        page.setLineContent(1, u"Key " + std::u16string(1, static_cast<char16_t>(u'0' + key)));
        panel.printBuffer(page);
        panel.setLed(key, true);
    }
    return 0;
}
