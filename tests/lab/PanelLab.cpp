#include "tests/lab/PanelLab.h"

#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"
#include "panelsim/board/Board.h"
#include "tests/lab/DisplayModel.h"
#include "tests/lab/LabPins.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/VirtualTime.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace frontpanelhw;
using namespace panelsim;

constexpr unsigned mostKeys = 5;
constexpr unsigned mostLeds = 10;
constexpr unsigned heldPollsUntilRepeat = 9;
constexpr std::chrono::milliseconds pollingPeriod(25);

/** Polls of held keys since the last event: one count for the process. */
unsigned heldPolls = 0;

void require(bool holds, const std::string& rule)
{
    if (!holds) {
        throw std::logic_error("does not hold: " + rule);
    }
}

/** A board, a panel on it and the model of both. */
class Laboratory {
public:
    Laboratory(std::string_view itsScript, const PinFailure& failure)
        : script(itsScript), output([this](std::string_view line) {
              if (line == "INFO: KeyHandler stop called\n") {
                  time.wake();
              }
          }),
          board(chooseConfig(), [this] { return time.now(); }), pins(board, failure)
    {
    }

    LivedPanel live()
    {
        construct();
        const std::uint64_t constructed = pins.operations;
        while (panel && !script.empty()) {
            const unsigned char chosen = byte();
            auto found = operations.find(static_cast<char>(chosen));
            if (found == operations.end()) {
                found = std::next(operations.begin(), static_cast<std::ptrdiff_t>(chosen % operations.size()));
            }
            found->second(*this);
            compare();
        }
        const LivedPanel lived{constructed, pins.operations, pins.failed};
        if (pins.failed) {
            recover();
        }
        const std::uint64_t before = pins.operations;
        panel.reset();
        require(pins.operations == before, "destruction operates no pin");
        require(board.claimedLines() == 0, "every pin is destroyed");
        require(time.sleepers() == 0, "no thread is left");
        return lived;
    }

private:
    /** @name What the script chooses, byte by byte; zeros once it is used up */
    ///@{
    unsigned char byte()
    {
        const unsigned char first = script.empty() ? 0 : static_cast<unsigned char>(script.front());
        script.remove_prefix(script.empty() ? 0 : 1);
        return first;
    }
    /** @return 0 for '0' and so on, also beyond '9' */
    unsigned below(unsigned limit) { return static_cast<unsigned char>(byte() - '0') % limit; }
    bool flag() { return below(2) == 1; }
    /** @return as many cells as its first byte says; '~' is character 0, bytes past ASCII are characters beyond a byte
     */
    drawing::DisplayLine line()
    {
        std::u16string text(below(61), u' ');
        for (char16_t& unit : text) {
            const unsigned chosen = byte();
            unit = static_cast<char16_t>(chosen == '~' ? 0 : chosen < 0x80 ? chosen : chosen << 8 | chosen);
        }
        drawing::DisplayLine cells(text);
        const unsigned from = below(32);
        cells.setInverted(from, from + below(32), true);
        return cells;
    }
    BoardConfig chooseConfig()
    {
        const unsigned kind = below(3);
        if (kind == 2) {
            return boardOf(panelKind("outdoor"));
        }
        BoardConfig config;
        config.chip = kind == 0 ? ChipVariant::Ra8803 : ChipVariant::Ra8806;
        config.keyCount = below(mostKeys);
        config.ledCount = below(mostLeds);
        config.invertedLeds = {below(mostLeds)};
        ledsInitiallyOn = {below(mostLeds)};
        config.backlightInverted = flag();
        return config;
    }
    ///@}

    void makePanel()
    {
        const BoardConfig& config = board.getConfig();
        if (!config.hasLcd) {
            panel = std::make_unique<fp::Outdoor>(config.keyGpioBase, config.ledGpioBase);
            return;
        }
        std::vector<unsigned> inverted = config.invertedLeds;
        if (config.backlightInverted) {
            inverted.push_back(config.ledGpioBase + config.ledCount);
        }
        auto indoor = std::make_unique<fp::Indoor>(config.keyGpioBase, config.ledGpioBase, config.lcdGpioBase,
                                                   config.keyCount, config.ledCount, inverted, ledsInitiallyOn);
        display = indoor.get();
        panel = std::move(indoor);
    }

    void construct()
    {
        bringUp([this] { return makePanel(), true; }, true);
        for (const unsigned led : ledsInitiallyOn) {
            setLedOfModel(led, true);
        }
        const std::vector<bool>& reads = pins.record.keyReads;
        keys.resize(static_cast<std::size_t>(std::find(reads.begin(), reads.end(), false) - reads.begin()));
    }

    void restart()
    {
        if (display != nullptr) {
            const std::optional<bool> result = bringUp([this] { return display->restartDisplay(); }, false);
            const PinRecord& record = pins.record;
            // A pin that ignores a level spoils what is read back; reads of identity and status do not count.
            require(!result || (*result ? ready && !record.backlightRefused : record.refused || record.thrown > 0),
                    "a restart returns whether all went well");
        }
    }

    /** Everything works again. */
    void recover()
    {
        pins.failure = {};
        panel ? restart() : construct();
        pins.failed = false;
        board.clearBusFaults(); // those of the cycle that the failure ended
        drawing::DisplayBuffer page(3, 1);
        page.setLineContent(0, u"abc");
        page.setInverted(0, true, 1, 1);
        onDisplay([&](auto& on) { return on.printBuffer(page); });
        ledsWork = setAllLeds(false); // not one that could not be set up
        compare();
        scan(1);
    }

    /** Does an operation of the panel. @return its result, empty after an exception */
    std::optional<bool> run(const std::function<bool()>& operation, bool mayThrow, bool bringsUp = false)
    {
        pins.record = {};
        std::optional<bool> result;
        try {
            result = operation();
        } catch (...) { // judged by what the pins threw
        }
        const PinRecord& record = pins.record;
        log = output.take();
        require(result.has_value() == !(record.foreign || (mayThrow && record.escapes)),
                "exceptions of LEDs, of pins being set up and of other types reach the caller, and no others");
        const unsigned lines = record.thrown - (result || record.foreign ? 0 : 1) +
                               (bringsUp && !isUp() && !record.escapes && !record.foreign ? 1 : 0);
        require(static_cast<unsigned>(std::count(log.begin(), log.end(), '!')) == lines,
                "a line for each failure that is caught, and for a display that does not come up: " +
                    std::to_string(lines) + ", not\n" + log);
        require(pins.failed || log.find("WARNING") == std::string::npos, "no warning without a failure");
        return result;
    }

    /** Constructs the panel or brings its display up again. */
    std::optional<bool> bringUp(const std::function<bool()>& operation, bool mayThrow)
    {
        const std::optional<bool> result = run(operation, mayThrow, true);
        ready = isUp() || (ready && pins.record.foreign);
        shown = {};
        return result;
    }

    bool isUp() const { return !board.getConfig().hasLcd || log.find("INFO: LcdControl ") != std::string::npos; }

    /** An operation on the display, if there is one, and on the model. */
    template <typename Operation>
    void onDisplay(Operation operation)
    {
        if (display != nullptr) {
            const std::optional<bool> result = run([&] { return operation(*display); }, false);
            require(!result || *result == (ready && pins.record.thrown == 0 && !pins.record.backlightRefused),
                    "a display operation returns whether all went well");
            operation(shown);
        }
    }

    bool setLedOfModel(unsigned led, bool on)
    {
        if (led < leds.size()) {
            leds[led] = on;
        }
        return led < leds.size();
    }

    bool setAllLeds(bool on)
    {
        allLedsOn = on;
        return run([&] { return panel->setAllLeds(on), true; }, true).has_value();
    }

    void start()
    {
        const bool lampTest = flag();
        const unsigned seconds = below(4);
        const auto operation = [&] {
            const bool begins = panel->start(lampTest, seconds);
            if (begins) {
                time.awaitSleeper();
            }
            return begins;
        };
        const std::optional<bool> result = run(operation, true);
        require(!result || *result == !polling, "a panel starts once");
        if (lampTest) {
            shown.fill();
            allLedsOn = false;
        }
        if (result && !polling) {
            polling = true;
            log.erase(0, log.find("INFO: key"));
            compareEvents();
        }
    }

    void scan(unsigned times)
    {
        for (; times > 0 && polling; --times) {
            pins.record = {};
            time.scan();
            log = output.take();
            compareEvents();
        }
    }

    /** The polling thread has scanned once and sleeps. */
    void compareEvents()
    {
        require(pins.record.keyReads.size() == pressed.size(), "every scan reads every key");
        std::string expected;
        for (unsigned key = 0; key < keys.size(); ++key) {
            if (!pins.record.keyReads[key]) {
                continue;
            }
            const bool isDue =
                pressed[key] && keys[key] ? ++heldPolls == heldPollsUntilRepeat : pressed[key] != keys[key];
            keys[key] = pressed[key];
            heldPolls = isDue ? 0 : heldPolls;
            if (isDue && hasCallback) {
                const std::string number = std::to_string(key);
                expected += "INFO: key event from: " + number + "\ncalled: " + number + (keys[key] ? "1\n" : "0\n");
            }
        }
        require(log == expected, "the key events of a scan are\n" + expected + "not\n" + log);
        require(time.pause() == pollingPeriod, "the pause between two scans");
    }

    /** What a failure spoils is known again only after a recovery. */
    void compare()
    {
        require(!panel || panel->isRunning() == (polling && ready), "isRunning");
        if (pins.failed) {
            return;
        }
        const PanelView view = board.view();
        require(ready, "a display comes up without a failure");
        require(!ledsWork || view.leds == (allLedsOn ? std::vector<bool>(leds.size(), true) : leds), "the LEDs");
        require(board.busFaultCount() == 0, "no fault on the bus");
        if (display != nullptr) {
            require(view.lcd->displayOn == shown.on && view.lcd->backlight == shown.backlight, "display and backlight");
            for (unsigned row = 0; shown.on && row < view.lcd->lines.size(); ++row) {
                const std::vector<LcdCell>& cells = view.lcd->lines[row];
                require(std::equal(cells.begin(), cells.end(), shown.pages[1 - shown.written][row].begin()),
                        "the page");
            }
        }
    }

    static const std::map<char, void (*)(Laboratory&)> operations;

    std::string_view script;
    VirtualTime time{VirtualTime::Others::Wait};
    CapturedOutput output;
    std::string log; ///< of the last operation
    std::vector<unsigned> ledsInitiallyOn;
    Board board;
    LabPins pins;
    std::unique_ptr<fp::IFp> panel;
    fp::Indoor* display = nullptr; ///< the panel, if it has one

    bool ready = false; ///< the display, or a panel without one
    DisplayModel shown;
    std::vector<bool> leds = std::vector<bool>(board.getConfig().ledCount);
    bool allLedsOn = false;
    bool ledsWork = true;
    bool polling = false;
    bool hasCallback = false;
    std::vector<bool> pressed = std::vector<bool>(board.getConfig().keyCount); ///< keys
    std::vector<bool> keys; ///< at the last scan, up to the first one that could not be read at construction
};

const std::map<char, void (*)(Laboratory&)> Laboratory::operations = {
    {'p',
     [](Laboratory& lab) {
         const unsigned row = lab.below(256);
         const drawing::DisplayLine line = lab.line();
         lab.onDisplay([&](auto& on) { return on.printLine(row, line); });
     }},
    {'P',
     [](Laboratory& lab) {
         drawing::DisplayBuffer page(25, lab.below(5));
         for (unsigned i = 0; i < page.getLineCount(); ++i) {
             page.setDisplayLine(i, lab.line());
         }
         lab.onDisplay([&](auto& on) { return on.printBuffer(page); });
     }},
    {'w', [](Laboratory& lab) { lab.onDisplay([](auto& on) { return on.swapPage(); }); }},
    {'c', [](Laboratory& lab) { lab.onDisplay([](auto& on) { return on.clear(); }); }},
    {'e', [](Laboratory& lab) { lab.onDisplay([on = lab.flag()](auto& of) { return of.enable(on); }); }},
    {'B', [](Laboratory& lab) { lab.onDisplay([on = lab.flag()](auto& of) { return of.setBacklight(on); }); }},
    {'r', [](Laboratory& lab) { lab.restart(); }},
    {'x',
     [](Laboratory& lab) { // takes the chip's registers: nothing is shown before a restart
         lab.onDisplay([](auto& on) { return on.resetController(); });
         lab.compare();
         lab.restart();
     }},
    {'l',
     [](Laboratory& lab) {
         const unsigned led = lab.below(mostLeds + 1);
         const bool on = lab.flag();
         const bool isThere = lab.setLedOfModel(led, on);
         const std::optional<bool> result = lab.run([&] { return lab.panel->setLed(led, on); }, true);
         require(!result || *result == (isThere && !lab.pins.record.refused), "whether an LED is set");
     }},
    {'L', [](Laboratory& lab) { lab.setAllLeds(lab.flag()); }},
    {'s', [](Laboratory& lab) { lab.start(); }},
    {'S',
     [](Laboratory& lab) {
         lab.polling = lab.allLedsOn = false;
         lab.leds.assign(lab.leds.size(), false);
         lab.run([&] { return lab.panel->stop(), true; }, true);
     }},
    {'k',
     [](Laboratory& lab) {
         const unsigned key = lab.below(mostKeys);
         if (key < lab.pressed.size()) {
             lab.pressed[key] = lab.flag();
             lab.pressed[key] ? lab.board.press(key) : lab.board.release(key);
         }
     }},
    {'q', [](Laboratory& lab) { lab.scan(1 + lab.below(10)); }},
    {'b',
     [](Laboratory& lab) {
         lab.hasCallback = true;
         lab.panel->connectAnyKeyChangedCb([&lab](unsigned key, bool level) {
             std::cout << "called: " << key << level << "\n";
             lab.setLedOfModel(key, level);
             lab.panel->setLed(key, level);
         });
     }},
};

} // namespace

LivedPanel livePanel(std::string_view script, const PinFailure& failure)
{
    return Laboratory(script, failure).live();
}
