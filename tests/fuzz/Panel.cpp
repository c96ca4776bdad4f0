// Whole panels on the simulated board, driven by operations and faults of pins. As long as no pin failed, the chip, the
// LEDs and the key events are as a model of the panel says; afterwards the results and log lines are as documented, and
// a panel constructed anew shows what is printed on it.
#include "frontpanelhw/fp/FpBase.h"
#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "panelsim/Board.h"
#include "panelsim/BoardGpioFactory.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/Choices.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/VirtualTime.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace frontpanelhw;
using panelsim::Board;
using panelsim::BoardConfig;
using panelsim::LcdCell;
using panelsim::PinFault;
using panelsim::PinOperation;

constexpr unsigned mostKeys = 5;
constexpr unsigned mostLeds = 10;
constexpr unsigned longestText = 60;
constexpr unsigned memoryColumns = 256;
constexpr unsigned memoryRows = 16;

/** What the pins of a group answered since the counts were set to zero. */
struct Failures {
    std::atomic<unsigned> thrown{0};     ///< on the application's thread
    std::atomic<unsigned> refused{0};    ///< answered with false, on the application's thread
    std::atomic<unsigned> everFailed{0}; ///< in the panel's life, on any thread
    void beginOperation() { thrown = refused = 0; }
};

/** The failures by the kind of pin, and of the backlight by itself. */
struct PinWatch {
    Failures keys;
    Failures leds;
    Failures lcd;
    Failures factory;
    std::atomic<unsigned> backlightRefused{0};
    std::thread::id application = std::this_thread::get_id();

    void beginOperation()
    {
        for (Failures* failures : {&keys, &leds, &lcd, &factory}) {
            failures->beginOperation();
        }
        backlightRefused = 0;
    }
    void beginLife()
    {
        beginOperation();
        for (Failures* failures : {&keys, &leds, &lcd, &factory}) {
            failures->everFailed = 0;
        }
    }
    unsigned thrown() const { return keys.thrown + leds.thrown + lcd.thrown + factory.thrown; }
};

/** A pin of the board that tells of what fails. */
class WatchedGpio final : public sysfs::ISysfsGpio {
public:
    WatchedGpio(std::unique_ptr<ISysfsGpio> itsPin, const BoardConfig& itsConfig, PinWatch& itsWatch)
        : pin(std::move(itsPin)), config(itsConfig), watch(itsWatch)
    {
    }

    bool init(bool inverted, sysfs::PinDirectionEn direction, bool initialValue) override
    {
        return answer([&] { return pin->init(inverted, direction, initialValue); });
    }
    void deinit() override
    {
        tell([&] { pin->deinit(); });
    }
    void setDirection(sysfs::PinDirectionEn direction) override
    {
        tell([&] { pin->setDirection(direction); });
    }
    bool setValue(bool value) override
    {
        return answer([&] { return pin->setValue(value); });
    }
    bool getValue() const override
    {
        return tell([&] { return pin->getValue(); });
    }
    void exportGpio(unsigned gpioNumber) override
    {
        gpio = gpioNumber;
        tell([&] { pin->exportGpio(gpioNumber); });
    }
    unsigned getGpioNumber() const override { return pin->getGpioNumber(); }

private:
    Failures& failures() const
    {
        const unsigned backlight = config.ledGpioBase + config.ledCount;
        return gpio >= config.lcdGpioBase || gpio == backlight ? watch.lcd
               : gpio >= config.ledGpioBase                    ? watch.leds
                                                               : watch.keys;
    }
    void count(std::atomic<unsigned>& failed) const
    {
        ++failures().everFailed;
        if (std::this_thread::get_id() == watch.application) {
            ++failed;
        }
    }
    template <typename Operation>
    auto tell(Operation operation) const -> decltype(operation())
    {
        try {
            return operation();
        } catch (const std::exception&) {
            count(failures().thrown);
            throw;
        }
    }
    template <typename Operation>
    bool answer(Operation operation) const
    {
        const bool accepted = tell(operation);
        if (!accepted) {
            count(failures().refused);
            watch.backlightRefused += gpio == config.ledGpioBase + config.ledCount;
        }
        return accepted;
    }

    std::unique_ptr<ISysfsGpio> pin;
    const BoardConfig& config;
    PinWatch& watch;
    unsigned gpio = 0;
};

class WatchedFactory final : public sysfs::ISysfsGpioFactory {
public:
    WatchedFactory(Board& itsBoard, PinWatch& itsWatch) : board(itsBoard), pins(itsBoard), watch(itsWatch) {}

    std::unique_ptr<sysfs::ISysfsGpio> create() const override
    {
        try {
            return std::make_unique<WatchedGpio>(pins.create(), board.getConfig(), watch);
        } catch (const std::exception&) {
            ++watch.factory.thrown;
            throw;
        }
    }

private:
    Board& board;
    panelsim::BoardGpioFactory pins;
    PinWatch& watch;
};

/** What the display has to show: two pages of memory and where the next text goes. */
struct DisplayModel {
    using Page = std::array<LcdCell, std::size_t{memoryColumns} * memoryRows>;

    bool known = true; ///< not after a reset: the chip's registers are then no longer those of the panel
    bool on = true;
    bool backlight = true;
    unsigned written = 0; ///< the page
    std::array<Page, 2> pages{};

    void print(unsigned line, const drawing::DisplayLine& text)
    {
        for (unsigned i = 0; i < text.getCharCount(); ++i) {
            const drawing::DisplayChar cell = text.getCharacter(i);
            pages.at(written).at(line % memoryRows * memoryColumns + i % memoryColumns) =
                LcdCell{static_cast<unsigned char>(cell.character), cell.inverted};
        }
    }
    void swap() { written = 1 - written; }
    void clear() { pages.at(written).fill(LcdCell()); }
};

/** Polls of held keys since the last event: one count for the process. Unknown after keys that could not be read. */
std::optional<unsigned> heldPolls = 0;

using KeyEvent = std::pair<unsigned, bool>;

/** What the callback does with an event, next to keeping it. */
enum class Reaction { None, Throw, SwitchLed };

/** A board, a panel on it and the model of both. */
class Laboratory {
public:
    explicit Laboratory(Choices& itsChoices)
        : choices(itsChoices), output([this](std::string_view line) {
              if (line == "INFO: KeyHandler stop called") {
                  time.wake();
              }
          }),
          board(chooseConfig(), [this] { return time.now(); }), factory(board, watch)
    {
        construct();
    }

    ~Laboratory()
    {
        destroy();
        check(board.claimedLines() == 0, "no line stays claimed");
    }

    Laboratory(const Laboratory&) = delete;
    Laboratory& operator=(const Laboratory&) = delete;

    void play()
    {
        static const std::map<char, void (Laboratory::*)()> operations = {
            {'p', &Laboratory::printLine}, {'P', &Laboratory::printBuffer}, {'w', &Laboratory::swapPage},
            {'c', &Laboratory::clear},     {'e', &Laboratory::enable},      {'x', &Laboratory::reset},
            {'l', &Laboratory::setLed},    {'L', &Laboratory::setAllLeds},  {'s', &Laboratory::start},
            {'S', &Laboratory::stop},      {'k', &Laboratory::moveKey},     {'q', &Laboratory::scan},
            {'b', &Laboratory::connect},   {'f', &Laboratory::armFault},    {'F', &Laboratory::endFaults},
            {'R', &Laboratory::rebuild},
        };
        const unsigned char chosen = choices.byte();
        auto found = operations.find(static_cast<char>(chosen));
        if (found == operations.end()) {
            found = std::next(operations.begin(), static_cast<std::ptrdiff_t>(chosen % operations.size()));
        }
        (this->*found->second)();
        compare();
    }

    /** Whatever has failed, a panel that is constructed anew shows a page. */
    void recover()
    {
        if (watch.lcd.everFailed + watch.leds.everFailed + watch.keys.everFailed + watch.factory.thrown > 0 || !panel) {
            rebuild();
            drawing::DisplayBuffer page(25, 3);
            page.setLineContent(1, u"Recovered");
            page.setInverted(2, true, 3, 7);
            print(page);
            compare();
        }
    }

private:
    BoardConfig chooseConfig()
    {
        const unsigned kind = choices.below(3);
        BoardConfig config = kind == 2 ? panelsim::outdoorBoard() : BoardConfig();
        config.chip = kind == 0 ? panelsim::ChipVariant::Ra8803 : panelsim::ChipVariant::Ra8806;
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

    void construct()
    {
        const BoardConfig& config = board.getConfig();
        std::vector<unsigned> inverted = config.invertedLeds;
        if (config.backlightInverted) {
            inverted.push_back(config.ledGpioBase + config.ledCount);
        }
        watch.beginLife();
        output.take();
        bool failed = false;
        try {
            if (config.hasLcd) {
                indoor = std::make_unique<fp::IndoorFpImpl>(factory, config.keyGpioBase, config.ledGpioBase,
                                                            config.lcdGpioBase, config.keyCount, config.ledCount,
                                                            inverted, ledsInitiallyOn);
                display = indoor.get();
                panel = display;
            } else {
                outdoor = std::make_unique<fp::FpBase>(factory, config.keyGpioBase, config.keyCount, config.ledGpioBase,
                                                       config.ledCount, inverted, ledsInitiallyOn);
                panel = outdoor.get();
            }
        } catch (const std::exception&) {
            failed = true;
        }
        const std::string log = output.take();
        const bool noGpios = log.find("failed to initialize one or more gpio(s)") != std::string::npos;
        const bool noReset = log.find("error while resetting lcd controller") != std::string::npos;
        check(countErrors(log) + failed == watch.thrown() + noGpios + noReset, "each exception is told of once");
        check(!failed || board.claimedLines() == 0, "a constructor that throws leaves no line claimed");
        initialised = !noGpios && !noReset;
        beginModel();
        if (allWell()) {
            check(log.find("WARNING") == std::string::npos, "no warning without a fault");
        }
        board.clearBusFaults(); // those of the cycle that the panel before was in
    }

    void beginModel()
    {
        shown = DisplayModel();
        polling = false;
        reaction.reset();
        allLedsOn = false;
        ledStates.assign(board.getConfig().ledCount, false);
        for (const unsigned led : ledsInitiallyOn) {
            ledStates.at(led) = true;
        }
        keyStates = board.view().keys;
    }

    void destroy()
    {
        if (watch.keys.everFailed > 0) {
            heldPolls.reset();
        }
        panel = nullptr;
        display = nullptr;
        indoor.reset();
        outdoor.reset();
    }

    void rebuild()
    {
        destroy();
        check(board.claimedLines() == 0, "no line stays claimed");
        board.clearPinFaults();
        construct();
        check(panel != nullptr && allWell() && (!display || initialised), "a panel can be constructed again");
    }

    bool allWell() const
    {
        return watch.lcd.everFailed + watch.leds.everFailed + watch.keys.everFailed + watch.factory.thrown == 0;
    }

    static unsigned countErrors(const std::string& log)
    {
        unsigned count = 0;
        for (auto at = log.find("! "); at != std::string::npos; at = log.find("! ", at + 1)) {
            check(log.compare(at, 9, "! ERROR: ") == 0, "standard error has error lines only");
            ++count;
        }
        return count;
    }

    /** An operation on the display. @return whether it is to have done what it does */
    template <typename Operation>
    bool onDisplay(Operation operation)
    {
        watch.beginOperation();
        output.take();
        const bool done = operation();
        check(done == (initialised && watch.lcd.thrown == 0 && watch.backlightRefused == 0),
              "the result of a display operation");
        check(countErrors(output.take()) == watch.lcd.thrown, "an error line for each exception");
        return done;
    }

    /** An operation that writes LEDs. @return whether it went through, its pins' answers aside */
    template <typename Operation>
    bool onLeds(Operation operation)
    {
        watch.beginOperation();
        output.take();
        bool passed = true;
        try {
            operation();
        } catch (const std::exception&) {
            passed = false;
        }
        check(watch.leds.thrown == (passed ? 0U : 1U), "an exception of an LED pin propagates, and no other");
        check(countErrors(output.take()) == watch.lcd.thrown, "an error line for each exception of the display");
        return passed;
    }

    drawing::DisplayLine chooseLine()
    {
        drawing::DisplayLine line(choices.text(longestText));
        const unsigned from = choices.below(32);
        line.setInverted(from, from + choices.below(32), true);
        return line;
    }

    void print(const drawing::DisplayBuffer& page)
    {
        if (display && onDisplay([&] { return display->printBuffer(page); })) {
            for (unsigned i = 0; i < page.getLineCount(); ++i) {
                shown.print(i, page.getLine(i));
            }
            shown.swap();
        }
    }

    void printLine()
    {
        const unsigned row = choices.below(memoryColumns); // mostly 0 to 2 in inputs written by hand
        const drawing::DisplayLine line = chooseLine();
        if (display && onDisplay([&] { return display->printLine(row, line); })) {
            shown.print(row, line);
        }
    }

    void printBuffer()
    {
        drawing::DisplayBuffer page(25, choices.below(5));
        for (unsigned i = 0; i < page.getLineCount(); ++i) {
            page.setDisplayLine(i, chooseLine());
        }
        print(page);
    }

    void swapPage()
    {
        if (display && onDisplay([&] { return display->swapPage(); })) {
            shown.swap();
        }
    }

    void clear()
    {
        if (display && onDisplay([&] { return display->clear(); })) {
            shown.clear();
        }
    }

    void enable()
    {
        const bool on = choices.flag();
        if (display && onDisplay([&] { return display->enable(on); })) {
            shown.on = on;
        }
    }

    void reset()
    {
        if (display && onDisplay([&] { return display->resetController(); })) {
            shown.known = false;
            shown.on = false;
            shown.backlight = false;
        }
    }

    void setLed()
    {
        const unsigned led = choices.below(mostLeds + 1);
        const bool on = choices.flag();
        if (!panel) {
            return;
        }
        bool done = false;
        const bool passed = onLeds([&] { done = panel->setLed(led, on); });
        const bool isThere = led < ledStates.size();
        check(!passed || done == (isThere && watch.leds.refused == 0), "the result of setLed");
        if (isThere) {
            ledStates[led] = on;
        }
    }

    void setAllLeds()
    {
        const bool on = choices.flag();
        if (panel) {
            onLeds([&] { panel->setAllLeds(on); });
            allLedsOn = on;
        }
    }

    void start()
    {
        const bool lampTest = choices.flag();
        const unsigned seconds = choices.below(4);
        if (!panel) {
            return;
        }
        bool started = false;
        const bool passed = onLeds([&] { started = panel->start(lampTest, seconds); });
        if (lampTest && display) {
            drawing::DisplayLine filled(25);
            filled.setInverted(0, 24, true);
            for (unsigned i = 0; i < 3; ++i) {
                shown.print(i, filled);
            }
            shown.swap();
            shown.backlight = true;
        }
        check(!passed || started != polling, "start answers false while keys are polled");
        allLedsOn = allLedsOn && !lampTest;
        if (passed && started) {
            polling = true;
            time.awaitSleeper();
            scanModel();
        }
    }

    void stop()
    {
        if (panel) {
            onLeds([&] { panel->stop(); });
            polling = false;
            ledStates.assign(ledStates.size(), false);
            allLedsOn = false;
        }
    }

    void moveKey()
    {
        const unsigned key = choices.below(mostKeys);
        if (key < board.getConfig().keyCount) {
            choices.flag() ? board.press(key) : board.release(key);
        }
    }

    void scan()
    {
        for (unsigned count = 1 + choices.below(10); count > 0 && polling; --count) {
            time.scan();
            scanModel();
        }
    }

    void connect()
    {
        const unsigned chosen = choices.below(4);
        if (!panel) {
            return;
        }
        reaction = chosen == 3 ? std::nullopt : std::optional(static_cast<Reaction>(chosen));
        if (!reaction) {
            panel->connectAnyKeyChangedCb(nullptr);
            return;
        }
        panel->connectAnyKeyChangedCb([this, react = *reaction](unsigned key, bool level) {
            events.emplace_back(key, level);
            if (react == Reaction::Throw) {
                throw std::runtime_error("the callback's");
            }
            if (react == Reaction::SwitchLed) {
                panel->setLed(key, level);
            }
        });
    }

    /** The polling thread has scanned once and sleeps. */
    void scanModel()
    {
        const std::vector<bool> levels = board.view().keys;
        std::vector<KeyEvent> expected;
        const bool trusted = watch.keys.everFailed == 0;
        for (unsigned i = 0; trusted && i < levels.size(); ++i) {
            const bool held = levels[i] && keyStates[i];
            bool event = levels[i] != keyStates[i];
            if (held && heldPolls) {
                event = (*heldPolls)++ == 8;
            } else if (held) {
                event = std::find(events.begin(), events.end(), KeyEvent(i, true)) != events.end(); // perhaps
            }
            keyStates[i] = levels[i];
            if (!event) {
                continue;
            }
            heldPolls = 0;
            if (reaction) {
                expected.emplace_back(i, levels[i]);
                if (reaction == Reaction::SwitchLed && i < ledStates.size()) {
                    ledStates[i] = levels[i];
                }
            }
        }
        check(!trusted || events == expected, "the key events of a scan");
        events.clear();
    }

    void armFault()
    {
        PinFault fault;
        const unsigned group = choices.below(5);
        const unsigned line = choices.below(14);
        const BoardConfig& config = board.getConfig();
        const unsigned firsts[] = {0, config.lcdGpioBase, config.ledGpioBase, config.keyGpioBase, 0};
        if (group != 0 && group != 4) {
            fault.gpio = firsts[group] + line;
        }
        const unsigned operation = choices.below(8);
        if (operation != 0) {
            fault.operation = static_cast<PinOperation>(operation - 1);
        }
        fault.call = 1 + choices.below(100) + (choices.below(100) << 5U);
        const unsigned calls = choices.below(4);
        fault.calls = calls == 0 ? std::nullopt : std::optional<std::uint64_t>(calls);
        fault.kind = choices.flag() ? PinFault::Kind::False : PinFault::Kind::Throw;
        board.failPin(fault);
    }

    void endFaults() { board.clearPinFaults(); }

    void compare()
    {
        if (!panel) {
            return;
        }
        check(panel->isRunning() == (polling && (!display || initialised)), "isRunning");
        const panelsim::PanelView view = board.view();
        for (unsigned i = 0; watch.leds.everFailed == 0 && i < ledStates.size(); ++i) {
            check(view.leds.at(i) == (allLedsOn || ledStates[i]), "the LEDs");
        }
        if (!display || watch.lcd.everFailed > 0) {
            return;
        }
        check(board.busFaultCount() == 0, "no fault on the bus");
        check(view.lcd->displayOn == shown.on && view.lcd->backlight == shown.backlight, "display and backlight on");
        for (unsigned row = 0; shown.known && row < view.lcd->lines.size(); ++row) {
            for (unsigned column = 0; column < view.lcd->lines[row].size(); ++column) {
                check(view.lcd->lines[row][column] ==
                          shown.pages.at(1 - shown.written).at(row * memoryColumns + column),
                      "the page that is shown");
            }
        }
    }

    Choices& choices;
    VirtualTime time;
    CapturedOutput output;
    std::vector<unsigned> ledsInitiallyOn;
    Board board;
    PinWatch watch;
    WatchedFactory factory;
    std::unique_ptr<fp::IndoorFpImpl> indoor;
    std::unique_ptr<fp::FpBase> outdoor;
    fp::IFp* panel = nullptr; ///< either of them, null when it could not be constructed
    fp::ILcdFp* display = nullptr;

    DisplayModel shown;
    bool initialised = false;
    bool polling = false;
    bool allLedsOn = false;
    std::vector<bool> ledStates;
    std::vector<bool> keyStates;
    std::optional<Reaction> reaction;
    std::vector<KeyEvent> events; ///< since the model was told of them; the polling thread sleeps meanwhile
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Choices choices(bytes, size);
    Laboratory laboratory(choices);
    while (choices.left()) {
        laboratory.play();
    }
    laboratory.recover();
    return 0;
}
