#include "tools/Frontpanel.h"

#include "sysfs/SystemCalls.h"
#include "tools/Commands.h"
#include "tools/Demo.h"
#include "tools/Interrupt.h"
#include "tools/Keys.h"
#include "tools/Output.h"
#include "tools/Page.h"
#include "tools/UsageError.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <set>
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

/** Adds an option for a number, whose default is the variable's value, if it has one. */
template <typename Number>
CLI::Option* addNumber(CLI::App& app, const std::string& name, Number& number, unsigned max, const std::string& type,
                       const std::string& description)
{
    return app.add_option(name, number, description)->check(upTo(max))->type_name(type)->capture_default_str();
}

/** Adds an option or, without dashes, an argument that is one of the names. */
template <typename Value>
CLI::Option* addChoice(CLI::App& app, const std::string& name, const std::map<std::string, Value>& choices,
                       Value& value, const std::string& description)
{
    const auto take = [choices, &value](const std::string& chosen) { value = choices.at(chosen); };
    const auto names = CLI::detail::join(
        choices, [](const auto& choice) { return choice.first; }, "|");
    return app.add_option_function<std::string>(name, take, description)
        ->check(CLI::IsMember(choices).description(""))
        ->type_name(names);
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
        app.footer("Examples:" + examples);
    }

    void run(int argc, const char* const* argv)
    {
        try {
            app.parse(argc, argv);
        } catch (const CLI::Success& helpOrVersion) {
            app.exit(helpOrVersion);
            return;
        } catch (const CLI::ParseError& error) {
            refuseExtras();
            throw UsageError(command ? error.what() : "a command is needed, see frontpanel --help");
        }
        refuseExtras();
        command();
    }

private:
    void addWiring()
    {
        std::map<std::string, const PanelKind*> panels;
        const PanelKind& usual = panelKinds[1];
        std::string fixedKeys = "Number of keys";
        std::string fixedLeds = "Number of LEDs";
        for (const PanelKind& kind : panelKinds) {
            panels[kind.name] = &kind;
            if (kind.isFixed) {
                fixedKeys += std::string("; the ") + kind.name + " panel has " + std::to_string(kind.keyCount);
                fixedLeds += std::string("; the ") + kind.name + " panel has " + std::to_string(kind.ledCount);
            }
        }
        addChoice(app, "--panel", panels, wiring.panel, "Panel that is fitted; auto reads the ID lines")
            ->default_str(wiring.panel->name);
        addNumber(app, "--id-base", wiring.idBase, highestGpio, "GPIO", "GPIO number of the first of 4 ID lines");
        addNumber(app, "--key-base", wiring.keyBase, highestGpio, "GPIO", "GPIO number of key 0");
        addNumber(app, "--led-base", wiring.ledBase, highestGpio, "GPIO",
                  "GPIO number of LED 0; the backlight comes right after the last LED");
        addNumber(app, "--lcd-base", wiring.lcdBase, highestGpio, "GPIO", "GPIO number of the first of 13 LCD lines");
        addNumber(app, "--key-count", wiring.givenKeyCount, mostLines, "N", fixedKeys)
            ->default_str(std::to_string(usual.keyCount));
        addNumber(app, "--led-count", wiring.givenLedCount, mostLines, "N", fixedLeds)
            ->default_str(std::to_string(usual.ledCount));
        addLeds("--inverted-leds", wiring.invertedLeds,
                "Active-low LEDs; with the backlight's GPIO number, the backlight is active-low, too");
        addLeds("--leds-on", wiring.ledsOn, "LEDs that are on at the start of lamptest and demo");
    }

    void addLeds(const std::string& name, std::vector<unsigned>& leds, const std::string& description)
    {
        addNumber(app, name, leds, highestGpio, "N,N", description)
            ->delimiter(',')
            ->allow_extra_args(false)
            ->default_str("");
    }

    void addPinCommands()
    {
        addCommand("detect", "Print which panel the ID lines show", "frontpanel detect --quiet", [this] {
            std::cout.setstate(quiet ? std::ios::failbit : std::ios::goodbit); // which the library logs to
            printDetectedPanel(wiring);
        }).add_flag("--quiet", quiet, "Print one word, without the library's log");
        addCommand("chips", "List the GPIO chips and their numbers, in the form of /etc/sysfsgpio.conf",
                   "frontpanel chips",
                   [] { printLine(describeChips(sysfs::readGpioChips(sysfs::SystemCalls::instance()))); });
        addCommand("keys", "Print key events until interrupted", "frontpanel keys --key-base 10 --key-count 3",
                   [this] { watchKeys(wiring, interrupt); });
        auto& one = addCommand("led", "Switch one LED; its line is then released, and most GPIO drivers keep its level",
                               "frontpanel led 3 on", [this] { switchLeds(wiring, led, on); });
        addNumber(one, "N", led, highestGpio, "", "LED, counted from 0")->required();
        auto& all = addCommand("leds", "Switch all LEDs", "frontpanel leds off --led-count 8",
                               [this] { switchLeds(wiring, std::nullopt, on); });
        for (auto* const ledCommand : {&one, &all}) {
            addChoice(*ledCommand, "on|off", {{"on", true}, {"off", false}}, on, "Wanted state")
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
            "frontpanel print 'Hello' '21.5 C' --invert 0 --invert 1:0-3", [this] { printTexts(); });
        for (unsigned line = 0; line < displayLines; ++line) {
            const std::string number = std::to_string(line);
            print.add_option("LINE" + number, texts[line], "Text of line " + number + ", in UTF-8")
                ->type_name("")
                ->required(line == 0);
        }
        print
            .add_option("--invert", inverted,
                        "Invert cells, counted from 0: LINE, LINE:COLUMN or LINE:FROM-TO; repeatable")
            ->type_name("CELLS")
            ->allow_extra_args(false);
        addChoice(print, "--align", {{"left", Align::Left}, {"right", Align::Right}, {"centre", Align::Centre}}, align,
                  "Where texts stand in their lines")
            ->default_str("left");
        addNumber(print, "--contrast", contrast, highestContrast, "PERCENT",
                  "Contrast of the display, 50 without this option; an RA8806 has no contrast to set");

        auto& lampTest = addCommand("lamptest", "Light all LEDs and the whole display for a time",
                                    "frontpanel lamptest 5", [this] { runLampTest(wiring, *seconds, interrupt); });
        addNumber(lampTest, "SECONDS", seconds, longestSeconds, "", "How long, up to a day")->required();

        auto& demo =
            addCommand("demo", "Show key events on LEDs and display until interrupted", "frontpanel demo --seconds 60",
                       [this] { runDemo(wiring, lampSeconds, seconds, interrupt); });
        addNumber(demo, "--lamp-seconds", lampSeconds, longestSeconds, "SECONDS",
                  "Duration of the lamp test at the start");
        addNumber(demo, "--seconds", seconds, longestSeconds, "SECONDS", "End this long after the lamp test");
    }

    CLI::App& addCommand(const std::string& name, const std::string& description, const std::string& example,
                         const std::function<void()>& run)
    {
        CLI::App& added = *app.add_subcommand(name, description);
        added.preparse_callback([this, run](std::size_t) { command = run; });
        added.footer("Wiring options: see frontpanel --help\nExample:\n  " + example);
        examples += "\n  " + example;
        return added;
    }

    void printTexts() const
    {
        auto page = blankPage();
        for (unsigned line = 0; line < displayLines; ++line) {
            writeLine(page, line, texts[line], align);
        }
        for (const std::string& cells : inverted) {
            invertCells(page, cells);
        }
        printPage(wiring, page, contrast);
    }

    void refuseExtras()
    {
        const auto extras = app.remaining(true);
        const auto extra = std::find_if(extras.begin(), extras.end(), [](const auto& text) { return text != "--"; });
        if (extra == extras.end()) {
            return;
        }
        if (extra->substr(0, 1) == "-") {
            std::set<std::string> names;
            auto parts = app.get_subcommands();
            parts.push_back(&app);
            for (const CLI::App* part : parts) {
                for (const auto* option : part->get_options([](const auto* known) { return known->nonpositional(); })) {
                    names.insert(option->get_name());
                }
            }
            throw UsageError("unknown option '" + *extra + "', known are " + CLI::detail::join(names, " "));
        }
        if (command) {
            throw UsageError("unexpected argument '" + *extra + "'");
        }
        const auto name = [](const CLI::App* known) { return known->get_name(); };
        throw UsageError("unknown command '" + *extra + "', known are " +
                         CLI::detail::join(app.get_subcommands({}), name, " "));
    }

    Interrupt& interrupt;
    CLI::App app{"Reads the keys and drives the LEDs and the display of the front panel.", "frontpanel"};
    std::function<void()> command;
    std::string examples;

    Wiring wiring;
    std::optional<unsigned> led;
    bool on = false;
    bool quiet = false;
    std::array<std::string, displayLines> texts;
    std::vector<std::string> inverted;
    Align align = Align::Left;
    std::optional<unsigned> contrast;
    std::optional<unsigned> seconds;
    unsigned lampSeconds = 2;
};

} // namespace

int runFrontpanel(int argc, const char* const* argv)
{
    int status = 0;
    occupyStandardDescriptors();
    std::clearerr(stdout);
    try {
        Interrupt interrupt;
        CommandLine(interrupt).run(argc, argv);
        if (outputFailed()) {
            throw std::runtime_error("cannot write to standard output");
        }
    } catch (const UsageError& error) {
        complain(error.what());
        status = 2;
    } catch (const std::exception& error) {
        complain(error.what());
        status = 1;
    }
    std::cout.clear();
    return status;
}

} // namespace tools
