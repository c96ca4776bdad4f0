#include "tests/lab/PanelLab.h"

#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"
#include "panelsim/board/Board.h"
#include "tests/lab/DisplayModel.h"
#include "tests/lab/LabPins.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Check.h"
#include "tests/support/VirtualTime.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

using namespace frontpanelhw;
using namespace panelsim;

constexpr unsigned mostKeys = 5;
constexpr unsigned mostLeds = 10;

/** A board, a panel on it and the model of both. */
class Laboratory {
public:
    Laboratory(const std::string& itsScript, const PinFailure& failure)
        : script(itsScript), board(chooseConfig(), [this] { return time.now(); }), pins(board, failure)
    {
    }

    LivedPanel live()
    {
        construct();
        operate();
        const LivedPanel lived{pins.operations, pins.failed};
        if (lived.failed) { // Everything works again.
            pins.failure = {};
            pins.failed = false;
            panel ? restart() : construct();
            board.clearBusFaults(); // those of the cycle that the failure ended
            script = std::istringstream("L0P13abc10q0");
            operate();
        }
        panel.reset();
        check(board.claimedLines() == 0, "every pin is destroyed");
        check(time.sleepers() == 0, "no thread is left");
        return lived;
    }

private:
    /** @name What the script chooses */
    ///@{
    /** @return 0 for '0' and so on, also beyond '9' and after the end */
    unsigned below(unsigned limit) { return static_cast<unsigned char>(script.get() - '0') % limit; }
    bool flag() { return below(2) == 1; }
    /** @return as many cells as its first byte says */
    drawing::DisplayLine line()
    {
        std::u16string text(below(61), u' ');
        for (char16_t& unit : text) {
            unit = static_cast<unsigned char>(script.get());
        }
        drawing::DisplayLine cells(text);
        const unsigned from = below(32);
        cells.setInverted(from, from + below(32), true);
        return cells;
    }
    BoardConfig chooseConfig()
    {
        const unsigned kind = below(3);
        BoardConfig config = boardOf(panelKind(kind == 2 ? "outdoor" : "indoor"));
        if (config.hasLcd) {
            config.chip = kind == 0 ? ChipVariant::Ra8803 : ChipVariant::Ra8806;
            config.keyCount = below(mostKeys);
            config.ledCount = below(mostLeds);
            config.invertedLeds = {below(mostLeds)};
            ledsInitiallyOn = {below(mostLeds)};
            config.backlightInverted = flag();
        }
        if (config.backlightInverted) { // for the panel; to the board this is no LED
            config.invertedLeds.push_back(config.ledGpioBase + config.ledCount);
        }
        return config;
    }
    ///@}

    void construct()
    {
        const auto make = [this, &config = board.getConfig()] {
            if (config.hasLcd) {
                display = new fp::Indoor(config.keyGpioBase, config.ledGpioBase, config.lcdGpioBase, config.keyCount,
                                         config.ledCount, config.invertedLeds, ledsInitiallyOn);
                panel.reset(display);
            } else {
                panel = std::make_unique<fp::Outdoor>(config.keyGpioBase, config.ledGpioBase);
            }
            panel->connectAnyKeyChangedCb([this](unsigned key, bool level) {
                heard[key] = leds[key] = level;
                panel->setLed(key, level);
            });
            return true;
        };
        run(make, true);
        for (const unsigned led : ledsInitiallyOn) {
            leds[led] = true;
        }
        keysWork = !pins.failed;
    }

    void restart()
    {
        if (display != nullptr) {
            const bool ok = run([this] { return display->restartDisplay(); }, true).value_or(false);
            check(pins.failed || ok, "a restart returns whether all went well");
        }
    }

    /**
     * Does an operation of the panel.
     * @param bringsUp whether it constructs the panel or restarts the display
     * @return its result, empty after an exception
     */
    template <typename Operation>
    std::optional<bool> run(Operation operation, bool bringsUp = false)
    {
        pins.record = {};
        const bool restarts = bringsUp && panel;
        std::optional<bool> result;
        try {
            result = operation();
        } catch (...) { // judged by what the pins threw
        }
        const PinRecord& record = pins.record;
        const std::string log = output.take();
        const bool isUp = !board.getConfig().hasLcd || log.find("INFO: LcdControl ") != std::string::npos;
        check(result.has_value() == !(record.foreign || (record.escapes && !restarts)),
              "exceptions of LEDs, of pins being set up and of other types reach the caller, and no others");
        const unsigned lines =
            record.thrown - (result ? 0 : 1) + (bringsUp && !isUp && !record.escapes && !record.foreign ? 1 : 0);
        check(static_cast<unsigned>(std::count(log.begin(), log.end(), '!')) == lines,
              "a line for each failure that is caught, and for a display that does not come up: " +
                  std::to_string(lines) + ", not\n" + log);
        if (bringsUp) {
            ready = isUp || (ready && record.foreign);
            shown = {};
        }
        return result;
    }

    /** An operation on the display, if there is one, and on the model. */
    template <typename Operation>
    void onDisplay(Operation operation)
    {
        if (display != nullptr) {
            const std::optional<bool> result = run([&] { return operation(*display); });
            check(!result || *result == (ready && pins.record.thrown == 0 && !pins.record.backlightRefused),
                  "a display operation returns whether all went well");
            operation(shown);
        }
    }

    /** What a failure spoils is known again only after a recovery. */
    void compare()
    {
        check(panel->isRunning() == (polling && ready), "isRunning");
        if (pins.failed) {
            return;
        }
        const PanelView view = board.view();
        check(ready, "a display comes up without a failure");
        for (unsigned led = 0; ledsWork && led < view.leds.size(); ++led) {
            check(view.leds[led] == (allLedsOn || leds[led]), "the LEDs");
        }
        check(board.busFaultCount() == 0, "no fault on the bus");
        if (display != nullptr) {
            check(view.lcd->displayOn == shown.on && view.lcd->backlight == shown.backlight, "display and backlight");
            check(!shown.on || view.lcd->lines == shown.pages[1 - shown.written], "the page");
        }
    }

    /** The polling thread has scanned once and sleeps. */
    void compareKeys()
    {
        check(pins.record.polledReads == board.getConfig().keyCount, "every scan reads every key");
        const std::vector<bool> pressed = board.view().keys;
        check(pins.failed || !keysWork || std::equal(pressed.begin(), pressed.end(), heard.begin()),
              "every change of a key is reported");
    }

    void operate()
    {
        while (panel && script.peek() != EOF) {
            operate(script.get());
            compare();
        }
    }

    void operate(int operation)
    {
        switch (operation) {
        case 'p': {
            const unsigned row = below(256);
            const drawing::DisplayLine text = line();
            return onDisplay([&](auto& on) { return on.printLine(row, text); });
        }
        case 'P': {
            drawing::DisplayBuffer page(25, below(5));
            for (unsigned i = 0; i < page.getLineCount(); ++i) {
                page.setDisplayLine(i, line());
            }
            return onDisplay([&](auto& on) { return on.printBuffer(page); });
        }
        case 'w':
            return onDisplay([](auto& on) { return on.swapPage(); });
        case 'c':
            return onDisplay([](auto& on) { return on.clear(); });
        case 'e':
            return onDisplay([value = flag()](auto& on) { return on.enable(value); });
        case 'B':
            return onDisplay([value = flag()](auto& on) { return on.setBacklight(value); });
        case 'x': // takes the chip's registers: nothing is shown before a restart
            onDisplay([](auto& on) { return on.resetController(); });
            compare();
            [[fallthrough]];
        case 'r':
            return restart();
        case 'l': {
            const unsigned led = below(mostLeds + 1);
            const bool on = leds[led] = flag();
            const std::optional<bool> result = run([&] { return panel->setLed(led, on); });
            return check(!result || *result == (led < board.getConfig().ledCount && !pins.record.refused),
                         "whether an LED is set");
        }
        case 'L':
            allLedsOn = flag();
            ledsWork = run([&] { return panel->setAllLeds(allLedsOn), true; }).has_value(); // all could be set up
            return;
        case 's': {
            const bool lampTest = flag();
            const unsigned seconds = below(4);
            const auto begin = [&] { return panel->start(lampTest, seconds) && (time.awaitSleeper(), true); };
            const std::optional<bool> begins = run(begin);
            check(!begins || *begins == !polling, "a panel starts once");
            if (lampTest) {
                shown.fill();
                allLedsOn = false;
            }
            polling |= begins.has_value();
            return begins.value_or(false) ? compareKeys() : void();
        }
        case 'S':
            polling = allLedsOn = false;
            leds = {};
            run([&] { return panel->stop(), true; });
            return;
        case 'k':
            if (const unsigned key = below(mostKeys); key < board.getConfig().keyCount) {
                flag() ? board.press(key) : board.release(key);
            }
            return;
        case 'q':
            for (unsigned times = 1 + below(10); times > 0 && polling; --times) {
                pins.record = {};
                time.scan();
                compareKeys();
            }
        }
    }

    std::istringstream script;
    VirtualTime time;
    CapturedOutput output{&time};
    std::vector<unsigned> ledsInitiallyOn;
    Board board;
    LabPins pins;
    std::unique_ptr<fp::IFp> panel;
    fp::Indoor* display = nullptr; ///< the panel, if it has one

    bool ready = false; ///< the display, or a panel without one
    DisplayModel shown;
    std::array<bool, mostLeds + 1> leds{};
    std::array<bool, mostKeys> heard{}; ///< last level reported of each key
    bool allLedsOn = false;
    bool ledsWork = true; ///< whether each could be set up
    bool keysWork = true; ///< whether each could be read at construction
    bool polling = false;
};

LivedPanel livePanel(const std::string& script, const PinFailure& failure)
{
    return Laboratory(script, failure).live();
}
