#include "tests/lab/PanelLab.h"

#include "frontpanelhw/FrontPanelType.h"
#include "frontpanelhw/fp/FpBase.h"
#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "panelsim/board/Board.h"
#include "panelsim/board/BoardGpioFactory.h"
#include "tests/fuzz/Choices.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/VirtualTime.h"

#include <algorithm>
#include <array>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace frontpanelhw;
using namespace panelsim;
using sysfs::PinDirectionEn;

constexpr unsigned mostKeys = 5;
constexpr unsigned mostLeds = 10;
constexpr unsigned longestText = 60;
constexpr unsigned memoryColumns = 256;
constexpr unsigned memoryRows = 16;
constexpr unsigned heldPollsUntilRepeat = 9;
constexpr std::size_t ownTasks = 3; ///< links of the directory of tasks while there is no other thread

struct ForeignException {};

void require(bool holds, const std::string& rule)
{
    if (!holds) {
        throw std::logic_error("does not hold: " + rule);
    }
}

/** What happened to the pins during one operation of the panel. */
struct PinRecord {
    unsigned thrown = 0;     ///< operations that threw a std::exception
    bool foreign = false;    ///< whether one threw something else
    bool setUpThrew = false; ///< whether creation, export, init or deinit threw
    bool refused = false;    ///< whether one returned false
    bool lcdInitRefused = false;
    bool backlightRefused = false;
    bool ledThrew = false;
    unsigned ledWrites = 0;
    std::vector<std::pair<unsigned, std::optional<bool>>> reads =
        {}; ///< GPIO and level of ID lines and keys; no level: it threw

    bool failed() const { return thrown > 0 || foreign || refused; }
};

/** A factory of pins of a board, one of whose operations fails as planned. */
class LabPins : public sysfs::ISysfsGpioFactory {
public:
    LabPins(Board& itsBoard, const PinFailure& itsFailure) : board(itsBoard), failure(itsFailure), factory(itsBoard) {}

    std::unique_ptr<sysfs::ISysfsGpio> create() const override;

    /** Does an operation, which returns whether it is done, or lets it fail. */
    template <typename Effect>
    bool perform(PinOperation operation, unsigned gpio, Effect effect) const
    {
        const bool ownThread = std::this_thread::get_id() == owner;
        PinRecord& now = ownThread ? record : polled;
        const bool canRefuse = operation == PinOperation::Init || operation == PinOperation::SetValue;
        ++operations;
        const bool due = failure.operation != 0 &&
                         (failure.lasting ? operations >= failure.operation : operations == failure.operation) &&
                         (failure.kind != PinFailure::Kind::False || canRefuse) &&
                         (failure.kind != PinFailure::Kind::Foreign || ownThread);
        now.ledWrites += isLed(gpio) && operation == PinOperation::SetValue ? 1 : 0;
        try {
            return due ? fail(now, operation, gpio, effect) : effect();
        } catch (const std::exception&) { // also one of the pin's own, after an earlier failure
            ++now.thrown;
            note(now, operation, gpio);
            throw;
        }
    }

    bool getValue(unsigned gpio, const sysfs::ISysfsGpio& pin) const
    {
        bool level = false;
        const auto read = [&] { return level = pin.getValue(), true; };
        if (isLcd(gpio)) {
            perform(PinOperation::GetValue, gpio, read);
            return level;
        }
        auto& reads = (std::this_thread::get_id() == owner ? record : polled).reads;
        reads.emplace_back(gpio, std::nullopt);
        perform(PinOperation::GetValue, gpio, read);
        reads.back().second = level;
        return level;
    }

    template <typename Effect>
    bool fail(PinRecord& now, PinOperation operation, unsigned gpio, Effect effect) const
    {
        everFailed = true;
        switch (failure.kind) {
        case PinFailure::Kind::False:
            now.refused = true;
            now.lcdInitRefused |= operation == PinOperation::Init && isLcd(gpio);
            now.backlightRefused |= gpio == backlight();
            return false;
        case PinFailure::Kind::Foreign:
            now.foreign = true;
            note(now, operation, gpio);
            throw ForeignException();
        case PinFailure::Kind::After:
            effect();
            break;
        case PinFailure::Kind::Before:
            break;
        }
        throw std::runtime_error("made to fail");
    }

    void note(PinRecord& now, PinOperation operation, unsigned gpio) const
    {
        now.setUpThrew |= operation < PinOperation::SetDirection;
        now.ledThrew |= isLed(gpio) && operation == PinOperation::SetValue;
    }

    unsigned backlight() const { return board.getConfig().ledGpioBase + board.getConfig().ledCount; }
    bool isLed(unsigned gpio) const { return gpio >= board.getConfig().ledGpioBase && gpio < backlight(); }
    bool isLcd(unsigned gpio) const
    {
        return board.getConfig().hasLcd && (gpio >= board.getConfig().lcdGpioBase || gpio == backlight());
    }

    Board& board;
    PinFailure failure;
    mutable PinRecord record; ///< of the panel's operation
    mutable PinRecord polled; ///< of the scan by the polling thread
    mutable std::uint64_t operations = 0;
    mutable bool everFailed = false;
    mutable int livePins = 0;

private:
    BoardGpioFactory factory;
    const std::thread::id owner = std::this_thread::get_id();
};

class LabPin final : public sysfs::ISysfsGpio {
public:
    LabPin(const LabPins& itsPins, std::unique_ptr<sysfs::ISysfsGpio> itsPin) : pins(itsPins), pin(std::move(itsPin))
    {
        ++pins.livePins;
    }
    ~LabPin() override { --pins.livePins; }
    LabPin(const LabPin&) = delete;
    LabPin& operator=(const LabPin&) = delete;

    bool init(bool inverted, PinDirectionEn direction, bool value) override
    {
        return pins.perform(PinOperation::Init, gpio, [&] { return pin->init(inverted, direction, value); });
    }
    void deinit() override
    {
        pins.perform(PinOperation::Deinit, gpio, [&] { return pin->deinit(), true; });
    }
    void setDirection(PinDirectionEn direction) override
    {
        pins.perform(PinOperation::SetDirection, gpio, [&] { return pin->setDirection(direction), true; });
    }
    bool setValue(bool value) override
    {
        return pins.perform(PinOperation::SetValue, gpio, [&] { return pin->setValue(value); });
    }
    bool getValue() const override { return pins.getValue(gpio, *pin); }
    void exportGpio(unsigned number) override
    {
        gpio = number;
        pins.perform(PinOperation::Export, gpio, [&] { return pin->exportGpio(number), true; });
    }
    unsigned getGpioNumber() const override { return gpio; }

private:
    const LabPins& pins;
    std::unique_ptr<sysfs::ISysfsGpio> pin;
    unsigned gpio = 0;
};

std::unique_ptr<sysfs::ISysfsGpio> LabPins::create() const
{
    std::unique_ptr<sysfs::ISysfsGpio> pin;
    perform(PinOperation::Create, 0, [&] { return pin = std::make_unique<LabPin>(*this, factory.create()), true; });
    return pin;
}

/** What a panel has to show, with the operations of a panel. */
struct PanelModel {
    using Page = std::vector<std::vector<LcdCell>>;
    inline static const Page blank{memoryRows, std::vector<LcdCell>(memoryColumns)};

    bool lcdReady = true;
    bool pageKnown = true; ///< not after a failure on the display, nor after a reset, which takes the chip's registers
    bool onKnown = true;   ///< display and backlight; known again after a reset
    bool on = true;
    bool backlight = true;
    unsigned written = 0; ///< the page
    std::array<Page, 2> pages{blank, blank};
    bool polling = false;
    bool allLedsOn = false;
    bool ledsKnown = true; ///< not after an LED failed
    std::vector<bool> leds = {};
    std::vector<bool> keys = {}; ///< up to the first one that could not be read

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
    void fillDisplay()
    {
        drawing::DisplayBuffer filled(LcdChip::columns, LcdChip::rows);
        for (unsigned i = 0; i < filled.getLineCount(); ++i) {
            filled.setInverted(i, true, 0, LcdChip::columns - 1);
        }
        printBuffer(filled);
        backlight = true;
    }
    void swapPage() { written = 1 - written; }
    void clear() { pages.at(written) = blank; }
    void enable(bool value) { on = value; }
    void resetController() { pageKnown = on = backlight = false; }
    bool setLed(unsigned led, bool value)
    {
        if (led < leds.size()) {
            leds[led] = value;
        }
        return led < leds.size();
    }
};

/** Polls of held keys since the last event: one count for the process. */
unsigned heldPolls = 0;

/** What the callback does with an event, next to keeping it. */
enum class Reaction { None, Throw, SwitchLed, NoCallback };

/** A board, a panel on it and the model of both. */
class Laboratory {
public:
    Laboratory(std::string_view script, const PinFailure& failure)
        : choices(reinterpret_cast<const std::uint8_t*>(script.data()), script.size()),
          output([this](std::string_view line) {
              if (line == "INFO: KeyHandler stop called") {
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
        while (panel && choices.left()) {
            const unsigned char chosen = choices.byte();
            auto found = operations.find(static_cast<char>(chosen));
            if (found == operations.end()) {
                found = std::next(operations.begin(), static_cast<std::ptrdiff_t>(chosen % operations.size()));
            }
            found->second(*this);
            compare();
        }
        destroy();
        const LivedPanel lived{constructed, pins.operations, pins.everFailed};
        if (pins.everFailed) {
            recover();
        }
        return lived;
    }

private:
    BoardConfig chooseConfig()
    {
        const unsigned kind = choices.below(3);
        BoardConfig config = kind == 2 ? outdoorBoard() : BoardConfig();
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

    void recover()
    {
        pins.failure = {};
        construct();
        drawing::DisplayBuffer page(LcdChip::columns, LcdChip::rows);
        page.setLineContent(1, u"Recovered");
        page.setInverted(2, true, 3, 7);
        onDisplay([&](auto& on) { return on.printBuffer(page); });
        compare();
        destroy();
    }

    /** Does an operation of the panel. @return its result, empty when an exception left it that had to */
    std::optional<bool> run(const std::function<bool()>& operation, bool mayThrow)
    {
        pins.record = {};
        std::optional<bool> result;
        bool threw = false;
        try {
            result = operation();
        } catch (const ForeignException&) {
            require(pins.record.foreign, "only pins throw what is no std::exception");
        } catch (const std::exception&) {
            threw = true;
        }
        require(result.has_value() || threw || pins.record.foreign, "an exception is one of the pins");
        require(!pins.record.foreign || !result, "what is no std::exception reaches the caller");
        require(threw == (mayThrow && pins.record.thrown > 0 && (pins.record.setUpThrew || pins.record.ledThrew)),
                "exceptions of LEDs, and of pins being set up, reach the caller, and no others");
        return result;
    }

    /** @return how many lines on standard error the failures of pins that were caught have to give */
    unsigned caught(bool propagated) const
    {
        return pins.record.thrown - (propagated && pins.record.thrown > 0 ? 1 : 0);
    }

    /** Each failure that is caught is reported once. */
    void requireErrors(const std::string& log, unsigned wanted) const
    {
        unsigned lines = 0;
        for (std::size_t at = 0; (at = log.find("! ", at)) != std::string::npos; ++at) {
            ++lines;
            require(log.compare(at, 9, "! ERROR: ") == 0, "error lines begin with ERROR");
        }
        require(lines == wanted, std::to_string(wanted) + " error lines, not\n" + log);
        require(pins.everFailed || log.find("WARNING: value") == std::string::npos, "no warning without a failure");
    }
    void requireErrors(unsigned wanted) { requireErrors(output.take(), wanted); }

    void construct()
    {
        destroy();
        board.clearBusFaults(); // those of the cycle in which the panel before failed
        reaction = Reaction::NoCallback;
        model = PanelModel();
        model.leds.resize(board.getConfig().ledCount);
        for (const unsigned led : ledsInitiallyOn) {
            model.setLed(led, true);
        }
        const bool built = run([this] { return makePanel(), true; }, true).has_value();
        for (const auto& [gpio, level] : pins.record.reads) {
            if (!level) {
                break;
            }
            model.keys.push_back(*level);
        }
        const std::string log = output.take();
        if (!built) {
            panel.reset();
            display = nullptr;
            return;
        }
        const PinRecord& record = pins.record;
        model.ledsKnown = !record.failed();
        model.pageKnown = model.onKnown = !record.failed();
        model.lcdReady = display == nullptr || log.find("INFO: LcdControl ") != std::string::npos;
        require(model.lcdReady || record.lcdInitRefused || record.thrown > 0, "a display comes up without a failure");
        requireErrors(log, caught(false) + (model.lcdReady ? 0 : 1)); // why it does not come up is a line of its own
    }

    void makePanel()
    {
        const BoardConfig& config = board.getConfig();
        std::vector<unsigned> inverted = config.invertedLeds;
        if (!config.hasLcd) {
            panel = std::make_unique<fp::FpBase>(pins, config.keyGpioBase, config.keyCount, config.ledGpioBase,
                                                 config.ledCount, inverted, ledsInitiallyOn);
            return;
        }
        if (config.backlightInverted) {
            inverted.push_back(config.ledGpioBase + config.ledCount);
        }
        std::unique_ptr<fp::ILcdFp> indoor =
            std::make_unique<fp::IndoorFpImpl>(pins, config.keyGpioBase, config.ledGpioBase, config.lcdGpioBase,
                                               config.keyCount, config.ledCount, inverted, ledsInitiallyOn);
        display = indoor.get();
        panel = std::move(indoor);
    }

    void destroy()
    {
        const std::uint64_t before = pins.operations;
        panel.reset();
        display = nullptr;
        output.take();
        require(pins.operations == before, "destruction operates no pin");
        require(pins.livePins == 0 && board.claimedLines() == 0, "every pin is destroyed once");
        require(threadsEnd(), "no thread is left");
    }

    /** The kernel lists a thread for a moment after it was joined. */
    static bool threadsEnd()
    {
        for (unsigned patience = 100000; patience != 0; --patience) {
            if (std::filesystem::hard_link_count("/proc/self/task") == ownTasks) {
                return true;
            }
            std::this_thread::yield();
        }
        return false;
    }

    /** Detects the panel, from the ID lines that can be read. */
    void detect()
    {
        FrontPanelType type{};
        const bool done =
            run([&] { return type = detectType(pins, board.getConfig().idGpioBase), true; }, true).has_value();
        unsigned id = 0;
        unsigned bit = 0;
        for (const auto& [gpio, level] : pins.record.reads) {
            id |= level ? static_cast<unsigned>(*level) << bit++ : 0;
        }
        require(!done || type == (id == 15  ? FrontPanelType::Indoor
                                  : id == 5 ? FrontPanelType::Outdoor
                                            : FrontPanelType::Unknown),
                "the panel is the one of the ID");
        requireErrors(caught(!done));
    }

    /** An operation on the display, if there is one, and on the model. */
    template <typename Operation>
    void onDisplay(Operation operation)
    {
        if (display != nullptr) {
            const std::optional<bool> result = run([&] { return operation(*display); }, false);
            const PinRecord& record = pins.record;
            require(!result || *result == (model.lcdReady && record.thrown == 0 && !record.backlightRefused),
                    "a display operation returns whether all went well");
            requireErrors(caught(false));
            operation(model);
            model.pageKnown = model.pageKnown && !record.failed();
            model.onKnown = model.onKnown && !record.failed();
        }
    }

    /** An operation that may throw what an LED pin throws. @return whether it did not */
    bool onLeds(const std::function<bool()>& operation, const std::function<bool()>& expected)
    {
        const std::optional<bool> result = run(operation, true);
        const bool refused = pins.record.refused && pins.record.ledWrites == 1;
        require(!result || *result == expected() || refused, "the result of an LED operation");
        const bool failed = pins.record.ledThrew || pins.record.refused || pins.record.foreign;
        model.ledsKnown = !failed && (model.ledsKnown || pins.record.ledWrites >= model.leds.size());
        return result.has_value();
    }

    void setAllLeds(bool on)
    {
        model.allLedsOn = on;
        onLeds([&] { return panel->setAllLeds(on), true; }, [] { return true; });
        requireErrors(0);
    }

    void stop()
    {
        model.polling = model.allLedsOn = false;
        model.leds.assign(model.leds.size(), false);
        onLeds([&] { return panel->stop(), true; }, [] { return true; });
        requireErrors(0);
    }

    void start()
    {
        const bool lampTest = choices.flag();
        const unsigned seconds = choices.below(4);
        const bool wasPolling = model.polling;
        pins.polled = {};
        const bool done = onLeds([&] { return panel->start(lampTest, seconds); }, [&] { return !wasPolling; });
        const PinRecord& record = pins.record;
        if (lampTest) {
            if (display != nullptr) {
                model.fillDisplay();
                model.pageKnown = model.pageKnown && !record.failed();
                model.onKnown = model.onKnown && !record.failed();
            }
            const bool reachedLeds = done || record.ledWrites > 0;
            // All are written on, then all as they were: an LED that fails among the first leaves them forced on.
            model.allLedsOn = reachedLeds ? !done && record.ledWrites <= model.leds.size() : model.allLedsOn;
        }
        requireErrors(caught(!done));
        model.polling |= done;
        if (done && !wasPolling) {
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

    void scan(unsigned times)
    {
        for (; times > 0 && model.polling; --times) {
            pins.polled = {};
            time.scan();
            compareEvents();
        }
    }

    /** The polling thread has scanned once and sleeps. */
    void compareEvents()
    {
        std::vector<std::pair<unsigned, bool>> expected;
        std::vector<std::pair<unsigned, std::optional<bool>>> reads;
        for (const auto& read : pins.polled.reads) {
            const unsigned key = read.first - board.getConfig().keyGpioBase;
            reads.emplace_back(key, read.second);
            if (!read.second || key >= model.keys.size()) {
                continue;
            }
            const bool level = *read.second;
            const bool isDue =
                level && model.keys[key] ? ++heldPolls == heldPollsUntilRepeat : level != model.keys[key];
            model.keys[key] = level;
            if (isDue) {
                heldPolls = 0;
                expected.insert(expected.end(), reaction == Reaction::NoCallback ? 0 : 1, {key, level});
            }
        }
        require(reads.size() == board.getConfig().keyCount, "every scan reads every key");
        require(events == expected, "the key events of a scan");
        events.clear();
        model.ledsKnown = model.ledsKnown && !pins.polled.ledThrew && !pins.polled.refused;
        requireErrors(0);
    }

    void compare()
    {
        if (panel == nullptr) {
            return;
        }
        const PanelView view = board.view();
        require(panel->isRunning() == (model.polling && model.lcdReady), "isRunning");
        require(!model.ledsKnown ||
                    view.leds == (model.allLedsOn ? std::vector<bool>(model.leds.size(), true) : model.leds),
                "the LEDs");
        require(pins.everFailed || board.busFaultCount() == 0, "no fault on the bus");
        if (display != nullptr && model.lcdReady) {
            require(!model.onKnown || (view.lcd->displayOn == model.on && view.lcd->backlight == model.backlight),
                    "display and backlight");
            for (unsigned row = 0; model.pageKnown && row < view.lcd->lines.size(); ++row) {
                const std::vector<LcdCell>& line = view.lcd->lines[row];
                require(std::equal(line.begin(), line.end(), model.pages.at(1 - model.written).at(row).begin()),
                        "the page");
            }
        }
    }

    drawing::DisplayLine chooseLine()
    {
        drawing::DisplayLine line(choices.text(longestText));
        const unsigned from = choices.below(32);
        line.setInverted(from, from + choices.below(32), true);
        return line;
    }

    static const std::map<char, void (*)(Laboratory&)> operations;

    Choices choices;
    VirtualTime time;
    CapturedOutput output;
    std::vector<unsigned> ledsInitiallyOn;
    Board board;
    LabPins pins;
    std::unique_ptr<fp::IFp> panel;
    fp::ILcdFp* display = nullptr; ///< the panel, if it has one
    PanelModel model;
    Reaction reaction = Reaction::NoCallback;
    std::vector<std::pair<unsigned, bool>> events; ///< since the last scan; the polling thread sleeps meanwhile
};

const std::map<char, void (*)(Laboratory&)> Laboratory::operations = {
    {'d', [](Laboratory& lab) { lab.detect(); }},
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
         const bool isThere = lab.model.setLed(led, on);
         lab.onLeds([&] { return lab.panel->setLed(led, on); }, [&] { return isThere; });
         lab.requireErrors(0);
     }},
    {'L', [](Laboratory& lab) { lab.setAllLeds(lab.choices.flag()); }},
    {'s', [](Laboratory& lab) { lab.start(); }},
    {'S', [](Laboratory& lab) { lab.stop(); }},
    {'k',
     [](Laboratory& lab) {
         const unsigned key = lab.choices.below(mostKeys);
         if (key < lab.board.getConfig().keyCount) {
             lab.choices.flag() ? lab.board.press(key) : lab.board.release(key);
         }
     }},
    {'q', [](Laboratory& lab) { lab.scan(1 + lab.choices.below(10)); }},
    {'b',
     [](Laboratory& lab) {
         lab.reaction = static_cast<Reaction>(lab.choices.below(4));
         lab.panel->connectAnyKeyChangedCb(nullptr);
         if (lab.reaction != Reaction::NoCallback) {
             lab.panel->connectAnyKeyChangedCb([&lab](unsigned key, bool level) { lab.react(key, level); });
         }
     }},
    {'R', [](Laboratory& lab) { lab.construct(); }},
};

} // namespace

LivedPanel livePanel(std::string_view script, const PinFailure& failure)
{
    return Laboratory(script, failure).live();
}
