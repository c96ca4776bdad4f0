#include "tools/CommandLine.h"

#include "tools/ChipsCommand.h"
#include "tools/DisplaySize.h"
#include "tools/InvertRange.h"
#include "tools/KeyCommand.h"
#include "tools/LampTest.h"
#include "tools/LedCommands.h"
#include "tools/Number.h"
#include "tools/Output.h"
#include "tools/PrintCommand.h"
#include "tools/UsageError.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

namespace tools {

namespace {

constexpr unsigned highestGpio = std::numeric_limits<unsigned>::max();
constexpr unsigned mostLines = 256;
constexpr unsigned longestSeconds = 86400;

/**
 * Adds an option or, without dashes, an argument whose value is used by take as it was typed.
 * CLI11 itself would read 010 as eight, [a] as a list and {} as nothing.
 */
CLI::Option* addOption(CLI::App& app, const std::string& name, const std::string& description,
                       const std::function<void(const std::string&)>& take)
{
    const auto takeOrRefuse = [name, take](const std::string& text) {
        try {
            take(text);
        } catch (const UsageError& error) {
            throw UsageError(name + ": " + error.what());
        }
    };
    return app.add_option_function<std::string>(name, takeOrRefuse, description);
}

std::chrono::seconds parseSeconds(const std::string& text)
{
    return std::chrono::seconds(parseNumber(text, longestSeconds));
}

/** @return the value of the choice that the text names */
template <typename Value>
Value choose(const std::string& text, const std::vector<std::pair<std::string, Value>>& choices)
{
    std::string names;
    for (const auto& [name, value] : choices) {
        if (name == text) {
            return value;
        }
        names += (names.empty() ? "" : " or ") + name;
    }
    throw UsageError("'" + text + "' is not " + names);
}

void printHelp(std::string text)
{
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    printLine(text);
}

} // namespace

CommandLine::CommandLine() : app("Reads the keys and drives the LEDs and the display of the front panel.", "frontpanel")
{
    app.set_version_flag("--version", "frontpanel " FRONTPANEL_VERSION, "Print the version and exit");
    app.require_subcommand(1);
    app.fallthrough();
    // So that the first argument that makes no sense is named, before anything that is missing.
    app.allow_extras();
    addWiring();
    addPinCommands();
    addPanelCommands();
    app.footer("Examples:\n" + examples);
}

void CommandLine::addWiring()
{
    const auto addBase = [this](const std::string& name, unsigned& base, const std::string& firstLine) {
        addOption(app, name, "GPIO number of " + firstLine,
                  [&base](const std::string& text) { base = parseNumber(text, highestGpio); })
            ->type_name("GPIO")
            ->default_str(std::to_string(base))
            ->group("Wiring");
    };
    const auto addCount = [this](const std::string& name, std::optional<unsigned>& count, unsigned preset,
                                 const std::string& lines) {
        addOption(app, name, "Number of " + lines,
                  [&count](const std::string& text) { count = parseNumber(text, mostLines); })
            ->type_name("N")
            ->default_str(std::to_string(preset))
            ->group("Wiring");
    };
    const auto addList = [this](const std::string& name, std::vector<unsigned>& leds, const std::string& description) {
        addOption(app, name, description,
                  [&leds](const std::string& text) { leds = parseNumberList(text, highestGpio); })
            ->type_name("N,N...")
            ->group("Wiring");
    };

    addOption(app, "--panel", "auto, indoor or outdoor; with auto, the ID lines tell",
              [this](const std::string& text) {
                  wiring.panel = choose<Wiring::Panel>(text, {{"auto", Wiring::Panel::Auto},
                                                              {"indoor", Wiring::Panel::Indoor},
                                                              {"outdoor", Wiring::Panel::Outdoor}});
              })
        ->type_name("PANEL")
        ->default_str("auto")
        ->group("Wiring");
    addBase("--id-base", wiring.idBase, "the first of 4 ID lines");
    addBase("--key-base", wiring.keyBase, "key 0");
    addBase("--led-base", wiring.ledBase, "LED 0; the backlight comes right after the last LED");
    addBase("--lcd-base", wiring.lcdBase, "the first of 13 LCD lines");
    addCount("--key-count", wiring.givenKeyCount, wiring.keyCount(), "keys; the outdoor panel has 2");
    addCount("--led-count", wiring.givenLedCount, wiring.ledCount(), "LEDs; the outdoor panel has 8");
    addList("--inverted-leds", wiring.invertedLeds,
            "Active-low LEDs; with the backlight's GPIO number, the backlight is active-low, too");
    addList("--leds-on", wiring.ledsOn, "LEDs that are on at the start of lamptest and demo");
}

void CommandLine::addPinCommands()
{
    addCommand("detect", "Tell by the ID lines which panel is fitted", "frontpanel detect", [this](Interrupt&) {
        wiring.panel = Wiring::Panel::Auto;
        printLine(resolvePanel(wiring, UsedLines()).panel == Wiring::Panel::Indoor ? "indoor" : "outdoor");
        return true;
    });
    addCommand("chips", "List the GPIO chips and their numbers, in the form of /etc/sysfsgpio.conf", "frontpanel chips",
               [](Interrupt&) {
                   listChips();
                   return true;
               });
    addCommand("keys", "Print key events until interrupted", "frontpanel keys --key-base 10 --key-count 3",
               [this](Interrupt& interrupt) {
                   watchKeys(wiring, interrupt);
                   return true;
               });
    auto& ledCommand =
        addCommand("led", "Switch one LED; its line is then released, and most GPIO drivers keep its level",
                   "frontpanel led 3 on", [this](Interrupt&) {
                       switchLed(wiring, led, on);
                       return true;
                   });
    addOption(ledCommand, "N", "LED, counted from 0",
              [this](const std::string& text) { led = parseNumber(text, highestGpio); })
        ->type_name("")
        ->required();
    addSwitch(ledCommand);
    addSwitch(addCommand("leds", "Switch all LEDs", "frontpanel leds off --led-count 8", [this](Interrupt&) {
        switchAllLeds(wiring, on);
        return true;
    }));
}

void CommandLine::addPanelCommands()
{
    auto& print = addCommand(
        "print",
        "Show text on the indoor panel's display, where it stays if the GPIO driver keeps the levels of released "
        "lines; -- goes before text like -x",
        "frontpanel print 'Hello' '21.5 C' --invert 0 --invert 1:0-3", [this](Interrupt&) {
            printPage(wiring, page);
            return true;
        });
    for (unsigned line = 0; line < DisplaySize::lines; ++line) {
        addOption(print, "LINE" + std::to_string(line), "Text of line " + std::to_string(line) + ", in UTF-8",
                  [this](const std::string& text) { page.lines.push_back(parseLine(text)); })
            ->type_name("")
            ->required(line == 0);
    }
    addOption(print, "--invert", "Invert cells, counted from 0: LINE, LINE:COLUMN or LINE:FROM-TO; repeatable",
              [this](const std::string& text) { page.inverted.push_back(parseInvertRange(text)); })
        ->type_name("CELLS")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->trigger_on_parse();

    auto& lampTest = addCommand("lamptest", "Light all LEDs and the whole display for a time", "frontpanel lamptest 5",
                                [this](Interrupt& interrupt) {
                                    runLampTest(wiring, lampTestDuration, interrupt);
                                    return true;
                                });
    addOption(lampTest, "SECONDS", "How long, up to a day",
              [this](const std::string& text) { lampTestDuration = parseSeconds(text); })
        ->type_name("")
        ->required();

    auto& demo =
        addCommand("demo", "Show key events on LEDs and display until interrupted", "frontpanel demo --seconds 60",
                   [this](Interrupt& interrupt) { return Demo::run(wiring, demoTimes, interrupt); });
    addOption(demo, "--lamp-seconds", "Duration of the lamp test at the start",
              [this](const std::string& text) { demoTimes.lampTest = parseSeconds(text); })
        ->type_name("SECONDS")
        ->default_str(std::to_string(demoTimes.lampTest.count()));
    addOption(demo, "--seconds", "End this long after the lamp test", [this](const std::string& text) {
        demoTimes.afterLampTest = parseSeconds(text);
    })->type_name("SECONDS");
}

CLI::App& CommandLine::addCommand(const std::string& name, const std::string& description, const std::string& example,
                                  const Command& run)
{
    CLI::App& added = *app.add_subcommand(name, description);
    added.callback([this, run] { command = run; });
    added.footer("Wiring options: see frontpanel --help\nExample:\n  " + example);
    examples += "  " + example + "\n";
    return added;
}

void CommandLine::addSwitch(CLI::App& ledCommand)
{
    addOption(ledCommand, "on|off", "Wanted state",
              [this](const std::string& text) {
                  on = choose<bool>(text, {{"on", true}, {"off", false}});
              })
        ->type_name("")
        ->required();
}

bool CommandLine::run(int argc, const char* const* argv, Interrupt& interrupt)
{
    return !parse(argc, argv) || command(interrupt);
}

/** @return whether there is a command to run */
bool CommandLine::parse(int argc, const char* const* argv)
{
    try {
        app.parse(argc, argv);
        refuseExtras();
        return true;
    } catch (const CLI::CallForHelp&) {
        printHelp(app.help());
    } catch (const CLI::CallForVersion& version) {
        printLine(version.what());
    } catch (const CLI::ParseError& error) {
        refuseExtras();
        if (app.get_subcommands().empty()) {
            throw UsageError("a command is needed, see frontpanel --help");
        }
        throw UsageError(error.what());
    }
    return false;
}

void CommandLine::refuseExtras() const
{
    const auto extras = app.remaining(true);
    const auto extra = std::find_if(extras.begin(), extras.end(), [](const std::string& text) { return text != "--"; });
    if (extra == extras.end()) {
        return;
    }
    if (extra->substr(0, 1) == "-") {
        throw UsageError("unknown option '" + *extra + "'");
    }
    if (app.get_subcommands().empty()) {
        throw UsageError("unknown command '" + *extra + "', see frontpanel --help");
    }
    if (app.got_subcommand("print")) {
        throw UsageError("'" + *extra + "' is too much: the display has " + std::to_string(DisplaySize::lines) +
                         " lines");
    }
    throw UsageError("unexpected argument '" + *extra + "'");
}

} // namespace tools
