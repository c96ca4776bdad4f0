// Whole panels on the simulated board, driven by operations and faults of pins. As long as no pin may have failed, the
// chip, the LEDs and the key events are as a model of the panel says; afterwards only exceptions of LED pins propagate,
// and a panel constructed anew shows what is printed on it.
#include "frontpanelhw/fp/FpBase.h"
#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "panelsim/board/Board.h"
#include "panelsim/board/BoardGpioFactory.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/Choices.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/VirtualTime.h"

#include <algorithm>
#include <array>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace frontpanelhw;
using namespace panelsim;

constexpr unsigned mostKeys = 5;
constexpr unsigned mostLeds = 10;
constexpr unsigned longestText = 60;
constexpr unsigned memoryColumns = 256;
constexpr unsigned memoryRows = 16;

/** What a panel has to show, with the operations of a panel. */
struct PanelModel {
    using Page = std::vector<std::vector<LcdCell>>;
    inline static const Page blank{memoryRows, std::vector<LcdCell>(memoryColumns)};

    bool known = true; ///< not after a reset: the chip's registers are then no longer those of the panel
    bool on = true;
    bool backlight = true;
    unsigned written = 0; ///< the page
    std::array<Page, 2> pages{blank, blank};
    bool polling = false;
    bool allLedsOn = false;
    std::vector<bool> leds = {};

    void printLine(unsigned line, const drawing::DisplayLine& text)
    {
        for (unsigned i = 0; i < text.getCharCount(); ++i) {
            const drawing::DisplayChar cell = text.getCharacter(i);
            pages.at(written).at(line % memoryRows).at(i % memoryColumns) = {static_cast<unsigned char>(cell.character),
                                                                             cell.inverted};
        }
    }
    void printBuffer(const drawing::DisplayBuffer& page)
    {
        for (unsigned i = 0; i < page.getLineCount(); ++i) {
            printLine(i, page.getLine(i));
        }
        swapPage();
    }
    void swapPage() { written = 1 - written; }
    void clear() { pages.at(written) = blank; }
    void enable(bool value) { on = value; }
    void resetController() { known = on = backlight = false; }
    bool setLed(unsigned led, bool value)
    {
        if (led < leds.size()) {
            leds[led] = value;
        }
        return led < leds.size();
    }
    void setAllLeds(bool value) { allLedsOn = value; }
    bool start(bool lampTest, unsigned /*seconds*/)
    {
        if (lampTest) {
            drawing::DisplayBuffer filled(25, 3);
            for (unsigned i = 0; i < filled.getLineCount(); ++i) {
                filled.setInverted(i, true, 0, 24);
            }
            printBuffer(filled);
            backlight = true;
            allLedsOn = false;
        }
        return !std::exchange(polling, true);
    }
    void stop()
    {
        polling = allLedsOn = false;
        leds.assign(leds.size(), false);
    }
};

/** Polls of held keys since the last event: one count for the process. Unknown after keys that could not be read. */
std::optional<unsigned> heldPolls = 0;

using KeyEvent = std::pair<unsigned, bool>;

/** What the callback does with an event, next to keeping it. */
enum class Reaction { None, Throw, SwitchLed, NoCallback };

/** A board, a panel on it and the model of both. */
class Laboratory {
public:
    explicit Laboratory(Choices& itsChoices)
        : choices(itsChoices), output([this](std::string_view line) {
              if (line == "INFO: KeyHandler stop called") {
                  time.wake();
              }
          }),
          board(chooseConfig(), [this] { return time.now(); }), factory(board)
    {
        construct();
    }

    void play()
    {
        const unsigned char chosen = choices.byte();
        auto found = operations.find(static_cast<char>(chosen));
        if (found == operations.end()) {
            found = std::next(operations.begin(), static_cast<std::ptrdiff_t>(chosen % operations.size()));
        }
        found->second(*this);
        compare();
    }

    /** Whatever may have failed, a panel that is constructed anew shows a page. */
    void finish()
    {
        if (mayHaveFailed) {
            construct();
            drawing::DisplayBuffer page(25, 3);
            page.setLineContent(1, u"Recovered");
            page.setInverted(2, true, 3, 7);
            onDisplay([&](auto& on) { return on.printBuffer(page); });
            compare();
        }
        destroy();
    }

private:
    BoardConfig chooseConfig()
    {
        const unsigned kind = choices.below(3);
        BoardConfig config = kind == 2 ? boardOf(panelKind("outdoor")) : BoardConfig();
        config.chip = kind == 0 ? ChipVariant::Ra8803 : ChipVariant::Ra8806;
        config.keyCount = choices.below(mostKeys);
        config.ledCount = choices.below(mostLeds);
        const unsigned inverted = choices.below(16); // of the first LEDs, a bit for each
        const unsigned on = choices.below(16);
        for (unsigned i = 0; i < std::min(config.ledCount, 4U); ++i) {
            if ((inverted >> i & 1U) != 0) {
                config.invertedLeds.push_back(i);
            }
            if ((on >> i & 1U) != 0) {
                ledsInitiallyOn.push_back(i);
            }
        }
        config.backlightInverted = choices.flag();
        return config;
    }

    /** Makes a panel in place of an earlier one, without faults. */
    void construct()
    {
        destroy();
        board.clearPinFaults();
        const BoardConfig& config = board.getConfig();
        std::vector<unsigned> inverted = config.invertedLeds;
        if (config.hasLcd) {
            if (config.backlightInverted) {
                inverted.push_back(config.ledGpioBase + config.ledCount);
            }
            std::unique_ptr<fp::ILcdFp> indoor =
                std::make_unique<fp::IndoorFpImpl>(factory, config.keyGpioBase, config.ledGpioBase, config.lcdGpioBase,
                                                   config.keyCount, config.ledCount, inverted, ledsInitiallyOn);
            display = indoor.get();
            panel = std::move(indoor);
        } else {
            panel = std::make_unique<fp::FpBase>(factory, config.keyGpioBase, config.keyCount, config.ledGpioBase,
                                                 config.ledCount, inverted, ledsInitiallyOn);
        }
        const std::string log = output.take();
        check(log.find("WARNING") == std::string::npos, "no warning without a fault");
        check(log.find("! ") == std::string::npos, "no error line of a constructor without a fault");
        board.clearBusFaults(); // those of the cycle that the panel before was in
        mayHaveFailed = false;
        reaction = Reaction::NoCallback;
        model = PanelModel();
        model.leds.resize(config.ledCount);
        for (const unsigned led : ledsInitiallyOn) {
            model.setLed(led, true);
        }
        keyStates = board.view().keys;
    }

    void destroy()
    {
        panel.reset();
        output.take();
        check(board.claimedLines() == 0, "no line stays claimed");
        if (mayHaveFailed) {
            heldPolls.reset();
        }
    }

    /** An operation on the display, if there is one, and on the model. */
    template <typename Operation>
    void onDisplay(Operation operation)
    {
        check(!display || operation(*display) || mayHaveFailed, "a display operation answers true without a fault");
        operation(model);
    }

    /** An operation that may throw what an LED pin throws, on the panel and then on the model. */
    template <typename Operation>
    void onLeds(Operation operation)
    {
        try {
            operation(static_cast<fp::IFp&>(*panel));
            operation(model);
        } catch (const std::exception&) {
            check(mayHaveFailed, "no exception without a fault");
        }
    }

    drawing::DisplayLine chooseLine()
    {
        drawing::DisplayLine line(choices.text(longestText));
        const unsigned from = choices.below(32);
        line.setInverted(from, from + choices.below(32), true);
        return line;
    }

    void start()
    {
        const bool lampTest = choices.flag();
        const unsigned seconds = choices.below(4);
        const bool wasPolling = model.polling;
        onLeds([&](auto& on) {
            check(on.start(lampTest, seconds) != wasPolling, "start answers false while keys are polled");
        });
        if (model.polling != wasPolling) {
            time.awaitSleeper();
            compareEvents();
        }
    }

    /** The callback, on the polling thread. */
    void react(unsigned key, bool level)
    {
        events.emplace_back(key, level);
        if (reaction == Reaction::Throw) {
            throw std::runtime_error("the callback's");
        }
        if (reaction == Reaction::SwitchLed) {
            model.setLed(key, level);
            panel->setLed(key, level);
        }
    }

    void armFault()
    {
        const BoardConfig& config = board.getConfig();
        const std::array<unsigned, 4> firsts{0, config.lcdGpioBase, config.ledGpioBase, config.keyGpioBase};
        PinFault fault;
        const unsigned group = choices.below(5) % firsts.size();
        const unsigned line = choices.below(14);
        if (group != 0) {
            fault.gpio = firsts.at(group) + line;
        }
        if (const unsigned operation = choices.below(8); operation != 0) {
            fault.operation = static_cast<PinOperation>(operation - 1);
        }
        fault.call = 1 + choices.below(100) + (choices.below(100) << 5U);
        const unsigned calls = choices.below(4);
        fault.calls = calls == 0 ? std::nullopt : std::optional<std::uint64_t>(calls);
        fault.kind = choices.flag() ? PinFault::Kind::False : PinFault::Kind::Throw;
        board.failPin(fault);
        mayHaveFailed = true;
    }

    /** The polling thread has scanned once and sleeps. */
    void compareEvents()
    {
        const std::vector<bool> levels = board.view().keys;
        std::vector<KeyEvent> expected;
        for (unsigned i = 0; i < levels.size(); ++i) {
            const KeyEvent event(i, levels[i]);
            bool isDue = levels[i] != keyStates[i];
            if (levels[i] && keyStates[i]) { // perhaps, as long as the count is unknown
                isDue = heldPolls ? (*heldPolls)++ == 8 : std::count(events.begin(), events.end(), event) > 0;
            }
            if (isDue) {
                heldPolls = 0;
                expected.insert(expected.end(), reaction == Reaction::NoCallback ? 0 : 1, event);
            }
        }
        keyStates = levels;
        check(events == expected || mayHaveFailed, "the key events of a scan");
        events.clear();
    }

    void compare()
    {
        check(output.take().find("! ") == std::string::npos || mayHaveFailed, "no error line without a fault");
        if (mayHaveFailed) {
            return;
        }
        const PanelView view = board.view();
        check(panel->isRunning() == model.polling, "isRunning");
        check(view.leds == (model.allLedsOn ? std::vector<bool>(model.leds.size(), true) : model.leds), "the LEDs");
        check(board.busFaultCount() == 0, "no fault on the bus");
        if (display) {
            check(view.lcd->displayOn == model.on && view.lcd->backlight == model.backlight,
                  "display and backlight on");
            for (unsigned row = 0; model.known && row < view.lcd->lines.size(); ++row) {
                const std::vector<LcdCell>& line = view.lcd->lines[row];
                check(std::equal(line.begin(), line.end(), model.pages.at(1 - model.written).at(row).begin()),
                      "the page");
            }
        }
    }

    static const std::map<char, void (*)(Laboratory&)> operations;

    Choices& choices;
    VirtualTime time;
    CapturedOutput output;
    std::vector<unsigned> ledsInitiallyOn;
    Board board;
    BoardGpioFactory factory;
    std::unique_ptr<fp::IFp> panel;
    fp::ILcdFp* display = nullptr; ///< the panel, if it has one

    PanelModel model;
    bool mayHaveFailed = false; ///< whether a pin may have, since the panel was constructed
    std::vector<bool> keyStates;
    Reaction reaction = Reaction::NoCallback;
    std::vector<KeyEvent> events; ///< since the last scan; the polling thread sleeps meanwhile
};

const std::map<char, void (*)(Laboratory&)> Laboratory::operations = {
    {'p',
     [](Laboratory& lab) {
         const unsigned row = lab.choices.below(memoryColumns); // mostly 0 to 2 in inputs written by hand
         const drawing::DisplayLine line = lab.chooseLine();
         lab.onDisplay([&](auto& on) { return on.printLine(row, line); });
     }},
    {'P',
     [](Laboratory& lab) {
         drawing::DisplayBuffer page(25, lab.choices.below(5));
         for (unsigned i = 0; i < page.getLineCount(); ++i) {
             page.setDisplayLine(i, lab.chooseLine());
         }
         lab.onDisplay([&](auto& on) { return on.printBuffer(page); });
     }},
    {'w', [](Laboratory& lab) { lab.onDisplay([](auto& on) { return on.swapPage(); }); }},
    {'c', [](Laboratory& lab) { lab.onDisplay([](auto& on) { return on.clear(); }); }},
    {'e', [](Laboratory& lab) { lab.onDisplay([on = lab.choices.flag()](auto& of) { return of.enable(on); }); }},
    {'x', [](Laboratory& lab) { lab.onDisplay([](auto& on) { return on.resetController(); }); }},
    {'l',
     [](Laboratory& lab) {
         const unsigned led = lab.choices.below(mostLeds + 1);
         const bool on = lab.choices.flag();
         const bool isThere = led < lab.model.leds.size();
         lab.onLeds([&](auto& of) { check(of.setLed(led, on) == isThere || lab.mayHaveFailed, "result of setLed"); });
     }},
    {'L', [](Laboratory& lab) { lab.onLeds([on = lab.choices.flag()](auto& of) { of.setAllLeds(on); }); }},
    {'s', [](Laboratory& lab) { lab.start(); }},
    {'S',
     [](Laboratory& lab) {
         lab.onLeds([](auto& on) { on.stop(); });
         lab.model.polling = false; // also when an LED could not be switched off
     }},
    {'k',
     [](Laboratory& lab) {
         const unsigned key = lab.choices.below(mostKeys);
         if (key < lab.board.getConfig().keyCount) {
             lab.choices.flag() ? lab.board.press(key) : lab.board.release(key);
         }
     }},
    {'q',
     [](Laboratory& lab) {
         for (unsigned count = 1 + lab.choices.below(10); count > 0 && lab.model.polling; --count) {
             lab.time.scan();
             lab.compareEvents();
         }
     }},
    {'b',
     [](Laboratory& lab) {
         lab.reaction = static_cast<Reaction>(lab.choices.below(4));
         lab.panel->connectAnyKeyChangedCb(nullptr);
         if (lab.reaction != Reaction::NoCallback) {
             lab.panel->connectAnyKeyChangedCb([&lab](unsigned key, bool level) { lab.react(key, level); });
         }
     }},
    {'f', [](Laboratory& lab) { lab.armFault(); }},
    {'F', [](Laboratory& lab) { lab.board.clearPinFaults(); }},
    {'R', [](Laboratory& lab) { lab.construct(); }},
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Choices choices(bytes, size);
    Laboratory laboratory(choices);
    while (choices.left()) {
        laboratory.play();
    }
    laboratory.finish();
    return 0;
}
