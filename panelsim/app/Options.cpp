#include "panelsim/app/Options.h"

#include "panelsim/board/Text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstddef>
#include <exception>
#include <functional>
#include <regex>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>

namespace panelsim {

namespace {

using Texts = std::vector<std::string>;
/** Takes a value of an option, or throws std::exception with what is wrong with it. */
using Read = std::function<void(const std::string& text)>;

constexpr unsigned highestGpio = 999'999'999;
constexpr unsigned mostLines = 256;
constexpr unsigned highestPanelId = 15;

[[noreturn]] void refuse(const std::string& what)
{
    throw std::invalid_argument(what);
}

/** @return the number in the text; others than people write, such as 010, which CLI11 takes for eight, are refused */
unsigned numberUpTo(unsigned most, const std::string& text)
{
    unsigned number = 0;
    const auto error = std::from_chars(text.data(), text.data() + text.size(), number).ec;
    if (error != std::errc() || text != std::to_string(number) || number > most) {
        refuse("'" + text + "' is not a number from 0 to " + std::to_string(most));
    }
    return number;
}

/** @return the text, which is neither empty nor has control characters */
std::string nameOf(const std::string& text)
{
    if (text.empty() || printable(text) != text) {
        refuse(inQuotes(text) + " is empty or not printable");
    }
    return text;
}

/** @return the parts of a text of that form */
std::smatch partsOf(const std::string& text, const char* form, const char* meaning)
{
    std::smatch parts;
    if (!std::regex_match(text, parts, std::regex(form))) {
        refuse("'" + text + "' is not " + meaning);
    }
    return parts;
}

CLI::Option* add(CLI::App& app, const char* names, const std::string& type, const char* meaning, const Read& read)
{
    const auto check = [read](const std::string& text) {
        try {
            read(text);
            return std::string();
        } catch (const std::exception& error) {
            return std::string(error.what());
        }
    };
    return app.add_option(names, CLI::callback_t(), meaning)->check(check)->type_name(type);
}

/** Adds an option with one of some words. */
CLI::Option* addChoice(CLI::App& app, const char* name, const Texts& words, const std::string& meaning,
                       const Read& read)
{
    const auto isWord = CLI::IsMember(words).description("");
    return app.add_option(name, CLI::callback_t(), meaning)
        ->check(isWord)
        ->each(read)
        ->type_name(CLI::detail::join(words, "|"));
}

/** Makes it an option that may be given several times, each time with several values. */
CLI::Option* list(CLI::Option* option)
{
    return option->delimiter(',')->allow_extra_args(false)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

template <typename Table>
Texts namesIn(const Table& table)
{
    Texts found(table.size());
    std::transform(table.begin(), table.end(), found.begin(), [](const auto& row) { return row.name; });
    return found;
}

void addPanelOptions(CLI::App& app, Options& options)
{
    BoardConfig& board = options.board;
    const auto addNumber = [&](const char* names, unsigned& value, const char* meaning, unsigned most = highestGpio) {
        const auto read = [&value, most](const std::string& text) { value = numberUpTo(most, text); };
        return add(app, names, "N", meaning, read)->default_str(std::to_string(value));
    };
    const auto addNames = [&](const char* names, Texts& values, const char* meaning) {
        const auto read = [&values](const std::string& text) {
            if (std::find(values.begin(), values.end(), text) != values.end()) {
                refuse("a name is given twice");
            }
            if (text.find_first_not_of("0123456789") == std::string::npos && !text.empty()) {
                refuse(inQuotes(text) + " is a number: scenarios would take it for one");
            }
            values.push_back(nameOf(text));
        };
        list(add(app, names, "NAME,NAME", meaning, read));
    };
    app.option_defaults()->group("Panel");
    addChoice(app, "--panel", namesIn(panelKinds), "The panel that is simulated", [&board](const std::string& text) {
        board.panel = text;
    })->default_str(board.panel);
    addNumber("--panel-id", board.panelId, "What the ID lines read, 0 to 15, whatever the panel", highestPanelId)
        ->default_str("");
    addChoice(app, "--chip", {"ra8803", "ra8806"}, "The LCD's controller chip", [&board](const std::string& text) {
        board.chip = text == "ra8803" ? ChipVariant::Ra8803 : ChipVariant::Ra8806;
    })->default_str("ra8806");
    app.add_flag("--silent-chip", board.silentChip, "The LCD's chip neither takes nor answers anything");
    addNumber("--key-count,--keys", board.keyCount, "Number of keys, up to 256; the outdoor panel has 2", mostLines);
    addNumber("--led-count,--leds", board.ledCount, "Number of LEDs, up to 256; the outdoor panel has 8", mostLines);
    addNames("--key-names", board.keyNames, "Names of the keys, also for scenarios");
    addNames("--led-names", board.ledNames, "Names of the LEDs, also for scenarios");
    list(addChoice(app, "--led-colours", namesIn(ledColours),
                   "Colours of the LEDs, each one of " + CLI::detail::join(namesIn(ledColours), ", "),
                   [&board](const std::string& text) { board.ledColours.push_back(text); }))
        ->type_name("COLOUR,COLOUR");
    list(add(app, "--inverted-leds", "N,N",
             "Active-low LEDs; with the backlight's GPIO number, the backlight is active-low, too",
             [&board](const std::string& text) { board.invertedLeds.push_back(numberUpTo(highestGpio, text)); }));
    addNumber("--id-base", board.idGpioBase, "GPIO number of the first of 4 ID lines");
    addNumber("--key-base", board.keyGpioBase, "GPIO number of key 0");
    addNumber("--led-base", board.ledGpioBase, "GPIO number of LED 0; the backlight comes right after the last LED");
    addNumber("--lcd-base", board.lcdGpioBase, "GPIO number of the first of 13 LCD lines");
    list(add(app, "--fail", "GPIO:N:throw|false",
             "Let the Nth operation on a line fail: throw or, from init and setting a level, return false; repeatable",
             [&options](const std::string& text) {
                 const std::smatch parts = partsOf(text, "([0-9]{1,9}):([1-9][0-9]{0,8}):(throw|false)",
                                                   "GPIO:N:throw or GPIO:N:false, with N from 1 on");
                 PinFault& fault = options.faults.emplace_back();
                 fault.gpio = std::stoul(parts[1]);
                 fault.call = static_cast<unsigned>(std::stoul(parts[2]));
                 fault.kind = parts[3] == "throw" ? PinFault::Kind::Throw : PinFault::Kind::False;
             }));
    list(add(app, "--stuck", "GPIO:LEVEL", "Keep a line at level 0 or 1, whatever drives it; repeatable",
             [&board](const std::string& text) {
                 const std::smatch parts = partsOf(text, "([0-9]{1,9}):([01])", "GPIO:0 or GPIO:1");
                 if (!board.stuckLines.emplace(std::stoul(parts[1]), parts[2] == "1").second) {
                     refuse("GPIO " + parts[1].str() + " is given twice");
                 }
             }));
}

void addRunOptions(CLI::App& app, Options& options)
{
    const auto addFile = [&](const char* name, std::string& file, const char* meaning) {
        add(app, name, "FILE", meaning, [&file](const std::string& text) { file = nameOf(text); });
    };
    app.option_defaults()->group("Options");
    add(app, "--http", "[ADDR:]PORT",
        "Serve the page there; port 0 takes any free one. Without this option: 127.0.0.1:8080 or, when it is taken, "
        "any free port of 127.0.0.1, and no page with --scenario",
        [&options](const std::string& text) { options.http = text; });
    app.add_flag("--no-http", options.noHttp, "Serve no page");
    app.add_flag("--stay", options.stay,
                 "Serve the page until interrupted, also after the application has ended; at a terminal this is so "
                 "when it failed");
    app.add_flag("--draw", options.draw, "Draw the panel as text on standard output whenever it has changed");
    addFile("--scenario", options.scenario, "Play the scenario of a YAML file, then end the application");
    add(app, "--timeout", "TIME", "End the application after this time, like 500ms, 10s or 2m, with status 42",
        [&options](const std::string& text) { options.timeout = parseDuration(text); });
    addFile("--vcd", options.vcd, "Write a trace of the panel's lines, a value change dump");
    addFile("--lint", options.lint, "Check a scenario file for the panel given, and exit");
    const std::pair<const char*, const char*> contradictions[] = {
        {"--http", "--no-http"},  {"--stay", "--no-http"}, {"--scenario", "--stay"}, {"--http", "--lint"},
        {"--scenario", "--lint"}, {"--timeout", "--lint"}, {"--vcd", "--lint"}};
    for (const auto& [option, other] : contradictions) {
        app.get_option(option)->excludes(app.get_option(other));
    }
}

/** Sets what the kind of panel fixes, and refuses what does not fit it. */
void finishBoard(const CLI::App& app, BoardConfig& board)
{
    const PanelKind& kind = panelKind(board.panel);
    board.hasLcd = kind.hasLcd;
    board.panelId = app.count("--panel-id") == 0 ? kind.id : board.panelId;
    board.keyCount = app.count("--key-count") == 0 ? kind.keyCount : board.keyCount;
    board.ledCount = app.count("--led-count") == 0 ? kind.ledCount : board.ledCount;
    const bool hasOtherCounts = board.keyCount != kind.keyCount || board.ledCount != kind.ledCount;
    if (!kind.isVariable && (hasOtherCounts || !board.invertedLeds.empty())) {
        refuse("the " + board.panel + " panel has " + std::to_string(kind.keyCount) + " keys and " +
               std::to_string(kind.ledCount) + " LEDs, which are active-high");
    }
    if (!kind.hasLcd && app.count("--chip") + app.count("--silent-chip") != 0) {
        refuse("the " + board.panel + " panel has no LCD, and so no chip");
    }
    const std::tuple<const char*, std::size_t, unsigned, const char*> lists[] = {
        {"--key-names", board.keyNames.size(), board.keyCount, " keys"},
        {"--led-names", board.ledNames.size(), board.ledCount, " LEDs"},
        {"--led-colours", board.ledColours.size(), board.ledCount, " LEDs"}};
    for (const auto& [option, given, count, parts] : lists) {
        if (given != 0 && given != count) {
            refuse(option + (": " + std::to_string(given) + " for " + std::to_string(count)) + parts);
        }
    }
}

/** Takes the backlight out of the LEDs that are active-low. */
void finishInvertedLeds(BoardConfig& board)
{
    std::vector<unsigned>& leds = board.invertedLeds;
    const unsigned backlight = board.ledGpioBase + board.ledCount;
    const auto end = std::remove(leds.begin(), leds.end(), backlight);
    board.backlightInverted = end != leds.end();
    leds.erase(end, leds.end());
    const auto highest = std::max_element(leds.begin(), leds.end());
    if (highest != leds.end() && *highest >= board.ledCount) {
        refuse("--inverted-leds: " + std::to_string(*highest) + " is neither one of the " +
               std::to_string(board.ledCount) + " LEDs nor the backlight's GPIO " + std::to_string(backlight));
    }
}

/** Refuses GPIO numbers that the board does not have or has twice. */
void checkLines(const Options& options)
try {
    const Board board(options.board);
    for (const PinFault& fault : options.faults) {
        board.lineLevel(*fault.gpio);
    }
} catch (const std::exception& error) {
    refuse(std::string(error.what()) + ": check the options with GPIO numbers");
}

} // namespace

std::optional<Options> parseOptions(int argc, const char* const* argv)
{
    const Texts arguments(argv + std::min(argc, 1), argv + argc);
    const auto separator = std::find(arguments.begin(), arguments.end(), "--");
    const bool hasCommand = separator != arguments.end();
    Options options;
    CLI::App app("Runs an application on a simulated front panel.", "panelsim");
    app.set_version_flag("--version", "panelsim " PANELSIM_VERSION, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this help message and exit");
    app.get_formatter()->label("OPTIONS", "OPTIONS] -- COMMAND [ARGS..."); // which end with a bracket, too
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    addPanelOptions(app, options);
    addRunOptions(app, options);
    app.footer("GPIO numbers are whole numbers from 0 to 999,999,999, written without commas.\n"
               "Exit status: the application's, or 128 more than the number of the signal that ended it.\n"
               "With a scenario: 0 passed, 1 a step failed, 3 the application failed,\n"
               "129, 130 or 143 interrupted by SIGHUP, SIGINT or SIGTERM.\n"
               "2 for a wrong option or a file that cannot be used, 42 when --timeout was over.\n"
               "Examples:\n"
               "  panelsim -- frontpanel demo\n"
               "  panelsim --panel outdoor --http 8080 -- ./my-app --verbose\n"
               "  panelsim --scenario menu.yaml --timeout 1m -- ./my-app");
    try {
        app.parse(Texts(std::make_reverse_iterator(separator), arguments.rend()));
    } catch (const CLI::Success& help) {
        app.exit(help);
        return std::nullopt;
    } catch (const CLI::ExtrasError&) {
        refuse("'" + app.remaining().front() +
               "' is no option; a command comes after '--': panelsim [OPTIONS] -- COMMAND [ARGS...]");
    }
    options.command.assign(separator + (hasCommand ? 1 : 0), arguments.end());
    if (options.lint.empty() ? options.command.empty() : hasCommand) {
        refuse(options.lint.empty() ? "a command is needed: panelsim [OPTIONS] -- COMMAND [ARGS...]"
                                    : "--lint runs no command");
    }
    finishBoard(app, options.board);
    checkLines(options);
    finishInvertedLeds(options.board);
    return options;
}

} // namespace panelsim
