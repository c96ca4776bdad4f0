#include "tools/Frontpanel.h"

#include "frontpanelhw/drawing/Text.h"
#include "tools/ChipsCommand.h"
#include "tools/Commands.h"
#include "tools/Demo.h"
#include "tools/Interrupt.h"
#include "tools/Keys.h"
#include "tools/Output.h"
#include "tools/Panel.h"
#include "tools/UsageError.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <functional>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tools {

namespace {

constexpr unsigned highestGpio = std::numeric_limits<unsigned>::max();
constexpr unsigned mostLines = 256;
constexpr unsigned longestSeconds = 86400;
constexpr unsigned highestContrast = 100;

using frontpanelhw::drawing::Align;

/** In the order of Align. */
const std::array<std::string, 3> alignments{"left", "right", "centre"};

/** Allows decimal numbers only: CLI11's own range reads 010 as eight, and allows blanks and signs. */
CLI::Validator upTo(unsigned max)
{
    return {[range = CLI::Range(max)](std::string& text) {
                const bool isDecimal = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos &&
                                       (text[0] != '0' || text == "0");
                return isDecimal ? range(text) : "'" + text + "' is not a decimal number";
            },
            ""};
}

unsigned parseNumber(std::string text, unsigned max)
{
    const std::string error = upTo(max)(text);
    if (!error.empty()) {
        throw UsageError(error);
    }
    return static_cast<unsigned>(std::stoul(text));
}

/** Adds an option or, without dashes, an argument whose text only `take` checks. */
CLI::Option* addText(CLI::App& app, const std::string& name, const std::string& description,
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

/** Adds an option for a number, whose default is the variable's value, if it has one. */
template <typename Number>
CLI::Option* addNumber(CLI::App& app, const std::string& name, Number& number, unsigned max, const std::string& type,
                       const std::string& description)
{
    return app.add_option(name, number, description)->check(upTo(max))->type_name(type)->capture_default_str();
}

CLI::Validator oneOf(const std::vector<std::string>& choices)
{
    return CLI::IsMember(choices).description("");
}

/** @return the text for the display @throws UsageError that names what the display does not have */
std::u16string displayed(const std::string& text)
{
    using frontpanelhw::drawing::fromUtf8;
    constexpr char16_t missing = u'\0'; // the display has no such character
    for (std::size_t from = 0, to = 0; from < text.size(); from = to) {
        do {
            ++to;
        } while (to < text.size() && (static_cast<unsigned char>(text[to]) & 0xC0U) == 0x80);
        const std::string character = text.substr(from, to - from);
        const std::u16string codeUnits = fromUtf8(character, missing);
        if (codeUnits.size() > 1 || (character.size() == 1 && static_cast<unsigned char>(character[0]) >= 0x80)) {
            throw UsageError("the text is not valid UTF-8");
        }
        if (codeUnits[0] == missing) {
            throw UsageError("the display has no '" + character + "'");
        }
    }
    return fromUtf8(text);
}

/** @return for the help, the counts that are always the same */
std::string fixedCounts(unsigned PanelKind::*count)
{
    std::string text;
    for (const PanelKind& kind : panelKinds) {
        if (kind.isFixed) {
            text += std::string("; the ") + kind.name + " panel has " + std::to_string(kind.*count);
        }
    }
    return text;
}

/** Commands and options of one call. */
class CommandLine {
public:
    explicit CommandLine(Interrupt& itsInterrupt) : interrupt(itsInterrupt)
    {
        app.set_version_flag("--version", "frontpanel " FRONTPANEL_VERSION, "Print the version and exit");
        app.require_subcommand(1);
        app.fallthrough();
        // So that the first wrong argument is named, before anything that is missing.
        app.allow_extras();
        app.option_defaults()->group("Wiring");
        addWiring();
        app.option_defaults()->group("Options");
        addPinCommands();
        addPanelCommands();
        app.footer("Examples:\n" + examples);
    }

    /** Carries out what the arguments say. @return false when it failed in a way that has been reported */
    bool run(int argc, const char* const* argv)
    {
        try {
            app.parse(argc, argv);
            refuseExtras();
            command();
        } catch (const CLI::CallForHelp&) {
            const std::string help = app.help();
            printLine(help.substr(0, help.find_last_not_of('\n') + 1));
        } catch (const CLI::CallForVersion& version) {
            printLine(version.what());
        } catch (const CLI::ParseError& error) {
            refuseExtras();
            throw UsageError(app.get_subcommands().empty() ? "a command is needed, see frontpanel --help"
                                                           : error.what());
        }
        return succeeded;
    }

private:
    void addWiring()
    {
        std::vector<std::string> panels{"auto"};
        for (const PanelKind& kind : panelKinds) {
            panels.emplace_back(kind.name);
        }
        const auto takePanel = [this](const std::string& name) {
            for (const PanelKind& kind : panelKinds) {
                wiring.panel = name == kind.name ? &kind : wiring.panel;
            }
        };
        app.add_option_function<std::string>("--panel", takePanel, "Panel that is fitted; auto reads the ID lines")
            ->check(oneOf(panels))
            ->type_name(CLI::detail::join(panels, "|"))
            ->default_str(panels.front());

        addNumber(app, "--id-base", wiring.idBase, highestGpio, "GPIO", "GPIO number of the first of 4 ID lines");
        addNumber(app, "--key-base", wiring.keyBase, highestGpio, "GPIO", "GPIO number of key 0");
        addNumber(app, "--led-base", wiring.ledBase, highestGpio, "GPIO",
                  "GPIO number of LED 0; the backlight comes right after the last LED");
        addNumber(app, "--lcd-base", wiring.lcdBase, highestGpio, "GPIO", "GPIO number of the first of 13 LCD lines");
        addNumber(app, "--key-count", wiring.givenKeyCount, mostLines, "N",
                  "Number of keys" + fixedCounts(&PanelKind::keyCount))
            ->default_str(std::to_string(wiring.keyCount()));
        addNumber(app, "--led-count", wiring.givenLedCount, mostLines, "N",
                  "Number of LEDs" + fixedCounts(&PanelKind::ledCount))
            ->default_str(std::to_string(wiring.ledCount()));
        addLeds("--inverted-leds", wiring.invertedLeds,
                "Active-low LEDs; with the backlight's GPIO number, the backlight is active-low, too");
        addLeds("--leds-on", wiring.ledsOn, "LEDs that are on at the start of lamptest and demo");
    }

    void addLeds(const std::string& name, std::vector<unsigned>& leds, const std::string& description)
    {
        const auto take = [&leds](const std::string& text) {
            std::istringstream numbers(text + ",");
            for (std::string number; std::getline(numbers, number, ',');) {
                leds.push_back(parseNumber(number, highestGpio));
            }
        };
        addText(app, name, description, take)->type_name("N,N...");
    }

    void addPinCommands()
    {
        addCommand("detect", "Print which panel the ID lines show", "frontpanel detect --quiet", [this] {
            printDetectedPanel(wiring, quiet);
        }).add_flag("--quiet", quiet, "Print one word, without the library's log");
        addCommand("chips", "List the GPIO chips and their numbers, in the form of /etc/sysfsgpio.conf",
                   "frontpanel chips", [] { listChips(); });
        addCommand("keys", "Print key events until interrupted", "frontpanel keys --key-base 10 --key-count 3",
                   [this] { watchKeys(wiring, interrupt); });
        auto& one = addCommand("led", "Switch one LED; its line is then released, and most GPIO drivers keep its level",
                               "frontpanel led 3 on", [this] { switchLed(wiring, led, on); });
        one.add_option("N", led, "LED, counted from 0")->check(upTo(highestGpio))->type_name("")->required();
        auto& all = addCommand("leds", "Switch all LEDs", "frontpanel leds off --led-count 8",
                               [this] { switchAllLeds(wiring, on); });
        for (auto* const ledCommand : {&one, &all}) {
            ledCommand->add_option("on|off", on, "Wanted state")
                ->check(oneOf({"on", "off"}))
                ->type_name("")
                ->required();
        }
    }

    void addPanelCommands()
    {
        auto& print = addCommand(
            "print",
            "Show text on the display, where it stays if the GPIO driver keeps the levels of released lines; "
            "put -- before text like -x",
            "frontpanel print 'Hello' '21.5 C' --invert 0 --invert 1:0-3",
            [this] { printPage(wiring, alignedPage(), contrast); });
        for (unsigned line = 0; line < displayLines; ++line) {
            addText(print, "LINE" + std::to_string(line), "Text of line " + std::to_string(line) + ", in UTF-8",
                    [this, line](const std::string& text) { takeText(line, text); })
                ->type_name("")
                ->required(line == 0);
        }
        addText(print, "--invert", "Invert cells, counted from 0: LINE, LINE:COLUMN or LINE:FROM-TO; repeatable",
                [this](const std::string& cells) { invert(cells); })
            ->type_name("CELLS")
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->trigger_on_parse();

        print.add_option("--align", align, "Where texts stand in their lines")
            ->check(oneOf({alignments.begin(), alignments.end()}))
            ->type_name(CLI::detail::join(alignments, "|"))
            ->capture_default_str();
        addNumber(print, "--contrast", contrast, highestContrast, "PERCENT",
                  "Contrast of the display, 50 without this option; an RA8806 has no contrast to set");

        auto& lampTest = addCommand("lamptest", "Light all LEDs and the whole display for a time",
                                    "frontpanel lamptest 5", [this] { runLampTest(wiring, lampSeconds, interrupt); });
        auto* const seconds = lampTest.add_option("SECONDS", lampSeconds, "How long, up to a day");
        seconds->check(upTo(longestSeconds))->type_name("")->required();

        auto& demo =
            addCommand("demo", "Show key events on LEDs and display until interrupted", "frontpanel demo --seconds 60",
                       [this] { succeeded = runDemo(wiring, demoTimes, interrupt); });
        addNumber(demo, "--lamp-seconds", demoTimes.lampTest, longestSeconds, "SECONDS",
                  "Duration of the lamp test at the start");
        addNumber(demo, "--seconds", demoTimes.afterLampTest, longestSeconds, "SECONDS",
                  "End this long after the lamp test");
    }

    CLI::App& addCommand(const std::string& name, const std::string& description, const std::string& example,
                         const std::function<void()>& run)
    {
        CLI::App& added = *app.add_subcommand(name, description);
        added.callback([this, run] { command = run; });
        added.footer("Wiring options: see frontpanel --help\nExample:\n  " + example);
        examples += "  " + example + "\n";
        return added;
    }

    void takeText(unsigned line, const std::string& text)
    {
        texts[line] = displayed(text);
        if (texts[line].size() > displayChars) {
            throw UsageError("the text has " + std::to_string(texts[line].size()) +
                             " characters, a line of the display " + std::to_string(displayChars));
        }
    }

    frontpanelhw::drawing::DisplayBuffer alignedPage()
    {
        const auto chosen = std::find(alignments.begin(), alignments.end(), align) - alignments.begin();
        for (unsigned line = 0; line < displayLines; ++line) {
            page.setLineContent(line, aligned(texts[line], displayChars, static_cast<Align>(chosen)));
        }
        return page;
    }

    void invert(const std::string& cells)
    {
        constexpr unsigned lastColumn = displayChars - 1;
        const auto colon = cells.find(':');
        const unsigned line = parseNumber(cells.substr(0, colon), displayLines - 1);
        unsigned from = 0;
        unsigned to = lastColumn;
        if (colon != std::string::npos) {
            const std::string columns = cells.substr(colon + 1);
            const auto dash = columns.find('-');
            from = parseNumber(columns.substr(0, dash), lastColumn);
            to = dash == std::string::npos ? from : parseNumber(columns.substr(dash + 1), lastColumn);
        }
        if (!page.setInverted(line, true, from, to)) {
            throw UsageError("'" + cells + "' runs backwards");
        }
    }

    void refuseExtras() const
    {
        const auto extras = app.remaining(true);
        const auto extra =
            std::find_if(extras.begin(), extras.end(), [](const std::string& text) { return text != "--"; });
        if (extra == extras.end()) {
            return;
        }
        if (extra->substr(0, 1) == "-") {
            std::string names;
            for (const CLI::App* part : {app.get_subcommands().empty() ? &app : app.get_subcommands().front(), &app}) {
                for (const CLI::Option* option : part->get_options()) {
                    const bool isNew =
                        !option->get_lnames().empty() && names.find(option->get_name()) == std::string::npos;
                    names += isNew ? " " + option->get_name() : "";
                }
            }
            throw UsageError("unknown option '" + *extra + "', known are" + names);
        }
        if (app.get_subcommands().empty()) {
            const auto names = [](const CLI::App* known) { return known->get_name(); };
            throw UsageError("unknown command '" + *extra + "', known are " +
                             CLI::detail::join(app.get_subcommands({}), names, " "));
        }
        if (app.got_subcommand("print")) {
            throw UsageError("'" + *extra + "' is too much: the display has " + std::to_string(displayLines) +
                             " lines");
        }
        throw UsageError("unexpected argument '" + *extra + "'");
    }

    Interrupt& interrupt;
    CLI::App app{"Reads the keys and drives the LEDs and the display of the front panel.", "frontpanel"};
    std::function<void()> command;
    std::string examples;
    bool succeeded = true;

    Wiring wiring;
    unsigned led = 0;
    bool on = false;
    bool quiet = false;
    std::array<std::u16string, displayLines> texts;
    std::string align = alignments.front();
    std::optional<unsigned> contrast;
    frontpanelhw::drawing::DisplayBuffer page = blankPage();
    unsigned lampSeconds = 0;
    DemoTimes demoTimes;
};

} // namespace

int runFrontpanel(int argc, const char* const* argv)
{
    constexpr int failure = 1;
    constexpr int usageFailure = 2;
    occupyStandardDescriptors();
    std::clearerr(stdout);
    try {
        Interrupt interrupt;
        const bool succeeded = CommandLine(interrupt).run(argc, argv);
        if (succeeded && outputFailed()) {
            throw std::runtime_error("cannot write to standard output");
        }
        return succeeded ? 0 : failure;
    } catch (const std::exception& error) {
        complain(error.what());
        return dynamic_cast<const UsageError*>(&error) != nullptr ? usageFailure : failure;
    }
}

} // namespace tools
