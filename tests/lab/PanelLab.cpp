#include "tests/lab/PanelLab.h"

#include "frontpanelhw/fp/FpBase.h"
#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"
#include "panelsim/board/Board.h"
#include "tests/fuzz/Choices.h"
#include "tests/lab/LabPins.h"
#include "tests/lab/PanelModel.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/InstalledPins.h"
#include "tests/support/VirtualTime.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
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

constexpr unsigned mostKeys = 5;
constexpr unsigned mostLeds = 10;
constexpr unsigned longestText = 60;
constexpr unsigned heldPollsUntilRepeat = 9;
constexpr std::chrono::milliseconds pollingPeriod(25);
constexpr std::size_t ownTasks = 3; ///< links of the directory of tasks while there is no other thread

void require(bool holds, const std::string& rule)
{
    if (!holds) {
        throw std::logic_error("does not hold: " + rule);
    }
}

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
        const LivedPanel lived{constructed, pins.operations, pins.everFailed};
        if (pins.everFailed) {
            recover();
        }
        destroy();
        return lived;
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

    void recover()
    {
        pins.failure = {};
        display != nullptr ? restart() : construct();
        drawing::DisplayBuffer page(LcdChip::columns, LcdChip::rows);
        page.setLineContent(1, u"Recovered");
        page.setInverted(2, true, 3, 7);
        onDisplay([&](auto& on) { return on.printBuffer(page); });
        require(display == nullptr || (model.lcdReady && model.pageKnown && model.onKnown),
                "a restart brings the display back");
        compare();
        scan(1);
    }

    /** Brings the display up again. */
    void restart()
    {
        if (display == nullptr) {
            return;
        }
        board.clearBusFaults(); // those of the cycle in which an operation before failed
        const std::optional<bool> result = run([this] { return display->restartDisplay(); }, false);
        const PinRecord& record = pins.record;
        const std::string log = output.take();
        const bool identified = log.find("INFO: LcdControl ") != std::string::npos;
        model.lcdReady = identified || (record.foreign && model.lcdReady);
        model.on = model.backlight = true;
        model.written = 0;
        model.pages.fill(PanelModel::blank);
        model.pageKnown = model.onKnown = !record.failed();
        // A pin that ignores a level spoils what is read back; reads of identity and status do not count.
        require(!result || (*result ? identified && !record.backlightRefused : record.failed()),
                "a restart returns whether all went well");
        requireErrors(log, caught(false) + (identified || record.setUpThrew || record.foreign ? 0 : 1));
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
        for (auto read = pins.record.reads.begin(); read != pins.record.reads.end() && read->second; ++read) {
            model.keys.push_back(*read->second);
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
        if (config.hasLcd) {
            if (config.backlightInverted) {
                inverted.push_back(pins.backlight());
            }
            auto indoor = std::make_unique<fp::Indoor>(config.keyGpioBase, config.ledGpioBase, config.lcdGpioBase,
                                                       config.keyCount, config.ledCount, inverted, ledsInitiallyOn);
            display = indoor.get();
            panel = std::move(indoor);
        } else if (config.keyCount == 2 && config.ledCount == 8 && inverted.empty() && ledsInitiallyOn.empty()) {
            panel = std::make_unique<fp::Outdoor>(config.keyGpioBase, config.ledGpioBase);
        } else {
            panel = std::make_unique<fp::FpBase>(pins, config.keyGpioBase, config.keyCount, config.ledGpioBase,
                                                 config.ledCount, inverted, ledsInitiallyOn);
        }
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
        model.polling |= done;
        const bool begins = done && !wasPolling;
        if (begins) {
            time.awaitSleeper();
        }
        const std::string log = output.take();
        requireErrors(log, caught(!done));
        if (begins) {
            compareEvents(log.substr(std::min(log.find("INFO: key"), log.size())));
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
            compareEvents(output.take());
        }
    }

    /** The polling thread has scanned once and sleeps. */
    void compareEvents(const std::string& log)
    {
        std::vector<std::pair<unsigned, bool>> expected;
        std::string lines;
        for (const auto& [gpio, level] : pins.polled.reads) {
            const unsigned key = gpio - board.getConfig().keyGpioBase;
            if (!level || key >= model.keys.size()) {
                continue;
            }
            const bool isDue =
                *level && model.keys[key] ? ++heldPolls == heldPollsUntilRepeat : *level != model.keys[key];
            model.keys[key] = *level;
            if (isDue) {
                heldPolls = 0;
            }
            if (isDue && reaction != Reaction::NoCallback) {
                expected.emplace_back(key, *level);
                lines += "INFO: key event from: " + std::to_string(key) + "\n";
            }
        }
        require(pins.polled.reads.size() == board.getConfig().keyCount, "every scan reads every key");
        require(events == expected, "the key events of a scan");
        require(log == lines, "a log line for each key event, and no other");
        require(time.pause() == pollingPeriod, "the pause between two scans");
        events.clear();
        model.ledsKnown = model.ledsKnown && !pins.polled.ledThrew && !pins.polled.refused;
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
    VirtualTime time{VirtualTime::Others::Wait};
    CapturedOutput output;
    std::vector<unsigned> ledsInitiallyOn;
    Board board;
    LabPins pins;
    InstalledPins installed{pins};
    std::unique_ptr<fp::IFp> panel;
    fp::Indoor* display = nullptr; ///< the panel, if it has one
    PanelModel model;
    Reaction reaction = Reaction::NoCallback;
    std::vector<std::pair<unsigned, bool>> events; ///< since the last scan; the polling thread sleeps meanwhile
};

const std::map<char, void (*)(Laboratory&)> Laboratory::operations = {
    {'p',
     [](Laboratory& lab) {
         const unsigned row = lab.choices.below(PanelModel::memoryColumns); // mostly 0 to 2 in inputs written by hand
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
    {'B', [](Laboratory& lab) { lab.onDisplay([on = lab.choices.flag()](auto& of) { return of.setBacklight(on); }); }},
    {'r', [](Laboratory& lab) { lab.restart(); }},
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

std::vector<PanelScript> panelScripts()
{
    std::vector<PanelScript> scripts;
    for (const auto& entry : std::filesystem::directory_iterator(PANEL_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        scripts.push_back({entry.path().filename(), {std::istreambuf_iterator<char>(file), {}}});
    }
    return scripts;
}

LivedPanel livePanel(std::string_view script, const PinFailure& failure)
{
    return Laboratory(script, failure).live();
}
