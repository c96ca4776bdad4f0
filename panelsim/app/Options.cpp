#include "panelsim/app/Options.h"

#include "panelsim/board/Text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <exception>
#include <regex>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace panelsim {

namespace {

constexpr unsigned highestGpio = 999'999'999;
constexpr unsigned mostLines = 256;
constexpr unsigned highestPanelId = 15;

[[noreturn]] void refuse(const std::string& what)
{
    throw std::invalid_argument(what);
}

/** Refuses what CLI11 would take for another number than people do: 010 as eight, for instance. */
CLI::Validator upTo(unsigned most)
{
    const auto check = [most](const std::string& text) {
        unsigned number = 0;
        const auto error = std::from_chars(text.data(), text.data() + text.size(), number).ec;
        const bool fits = error == std::errc() && text == std::to_string(number) && number <= most;
        return fits ? "" : "'" + text + "' is not a number from 0 to " + std::to_string(most);
    };
    return {check, ""};
}

/** Lets texts through that are not empty and have no control characters. */
CLI::Validator isName()
{
    const auto check = [](const std::string& text) {
        return text.empty() || printable(text) != text ? inQuotes(text) + " is empty or not printable" : "";
    };
    return {check, ""};
}

/** Makes it an option that may be given several times, each time with several values. */
CLI::Option* list(CLI::Option* option)
{
    return option->delimiter(',')->allow_extra_args(false)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

/** @return the names in a table */
template <typename Table>
std::vector<std::string> namesIn(const Table& table)
{
    std::vector<std::string> found(table.size());
    std::transform(table.begin(), table.end(), found.begin(), [](const auto& row) { return row.name; });
    return found;
}

/** @return the parts of a text of that form */
std::smatch partsOf(const std::string& text, const char* form, const std::string& meaning)
{
    std::smatch parts;
    if (!std::regex_match(text, parts, std::regex(form))) {
        refuse("'" + text + "' is not " + meaning);
    }
    return parts;
}

unsigned numberOf(const std::string& text)
{
    return static_cast<unsigned>(std::stoul(text));
}

PinFault faultOf(const std::string& text)
{
    const std::smatch parts =
        partsOf(text, "([0-9]{1,9}):([1-9][0-9]{0,8}):(throw|false)", "GPIO:N:throw or GPIO:N:false, with N from 1 on");
    PinFault fault;
    fault.gpio = numberOf(parts[1]);
    fault.call = numberOf(parts[2]);
    fault.kind = parts[3] == "throw" ? PinFault::Kind::Throw : PinFault::Kind::False;
    return fault;
}

void addPanelOptions(CLI::App& app, Options& options)
{
    BoardConfig& board = options.board;
    const auto addNumber = [&](const char* names, unsigned& value, const char* meaning, unsigned most = highestGpio) {
        return app.add_option(names, value, meaning)->check(upTo(most))->type_name("N")->capture_default_str();
    };
    const auto addNames = [&](const char* names, std::vector<std::string>& values, const char* meaning) {
        return list(app.add_option(names, values, meaning))->type_name("NAME,NAME");
    };
    app.option_defaults()->group("Panel");
    app.add_option("--panel", board.panel, "The panel that is simulated")
        ->check(CLI::IsMember(namesIn(panelKinds)).description(""))
        ->type_name(CLI::detail::join(namesIn(panelKinds), "|"))
        ->capture_default_str();
    addNumber("--panel-id", board.panelId, "What the ID lines read, 0 to 15, whatever the panel", highestPanelId)
        ->default_str("");
    app.add_option_function<std::string>(
           "--chip",
           [&board](const std::string& chip) {
               board.chip = chip == "ra8803" ? ChipVariant::Ra8803 : ChipVariant::Ra8806;
           },
           "The LCD's controller chip")
        ->check(CLI::IsMember({"ra8803", "ra8806"}).description(""))
        ->type_name("ra8803|ra8806")
        ->default_str("ra8806");
    app.add_flag("--silent-chip", board.silentChip, "The LCD's chip neither takes nor answers anything");
    addNumber("--key-count,--keys", board.keyCount, "Number of keys; the outdoor panel has 2", mostLines);
    addNumber("--led-count,--leds", board.ledCount, "Number of LEDs; the outdoor panel has 8", mostLines);
    addNames("--key-names", board.keyNames, "Names of the keys, also for scenarios")->check(isName());
    addNames("--led-names", board.ledNames, "Names of the LEDs, also for scenarios")->check(isName());
    addNames("--led-colours", board.ledColours, "Colours of the LEDs")->check(CLI::IsMember(namesIn(ledColours)));
    list(app.add_option("--inverted-leds", board.invertedLeds,
                        "Active-low LEDs; with the backlight's GPIO number, the backlight is active-low, too"))
        ->check(upTo(highestGpio))
        ->type_name("N,N");
    addNumber("--id-base", board.idGpioBase, "GPIO number of the first of 4 ID lines");
    addNumber("--key-base", board.keyGpioBase, "GPIO number of key 0");
    addNumber("--led-base", board.ledGpioBase, "GPIO number of LED 0; the backlight comes right after the last LED");
    addNumber("--lcd-base", board.lcdGpioBase, "GPIO number of the first of 13 LCD lines");
    list(app.add_option_function<std::vector<std::string>>(
             "--fail",
             [&options](const std::vector<std::string>& values) {
                 std::transform(values.begin(), values.end(), std::back_inserter(options.faults), faultOf);
             },
             "Let the Nth operation on a line fail: throw or, from init and setting a level, return false; repeatable"))
        ->type_name("GPIO:N:throw|false");
    list(app.add_option_function<std::vector<std::string>>(
             "--stuck",
             [&board](const std::vector<std::string>& values) {
                 for (const std::string& value : values) {
                     const std::smatch parts = partsOf(value, "([0-9]{1,9}):([01])", "GPIO:0 or GPIO:1");
                     board.stuckLines[numberOf(parts[1])] = parts[2] == "1";
                 }
             },
             "Keep a line at level 0 or 1, whatever drives it; repeatable"))
        ->type_name("GPIO:LEVEL");
}

void addRunOptions(CLI::App& app, Options& options)
{
    const auto addFile = [&](const char* name, std::string& file, const char* meaning) {
        return app.add_option(name, file, meaning)->check(isName())->type_name("FILE");
    };
    app.option_defaults()->group("Options");
    CLI::Option* const http =
        app.add_option_function<std::string>(
               "--http", [&options](const std::string& text) { options.http = text; },
               "Serve the page there; port 0 takes any free one. Without this option: 127.0.0.1:8080 or, when it is "
               "taken, any free port of 127.0.0.1, and no page with --scenario")
            ->type_name("[ADDR:]PORT");
    CLI::Option* const noHttp = app.add_flag("--no-http", options.noHttp, "Serve no page")->excludes(http);
    CLI::Option* const stay =
        app.add_flag("--stay", options.stay,
                     "Serve the page until interrupted, also after the application has ended; at a terminal this is so "
                     "when it failed")
            ->excludes(noHttp);
    app.add_flag("--draw", options.draw, "Draw the panel as text on standard output whenever it has changed");
    CLI::Option* const scenario =
        addFile("--scenario", options.scenario, "Play the scenario of a YAML file, then end the application")
            ->excludes(stay);
    CLI::Option* const timeout =
        app.add_option_function<std::string>(
               "--timeout", [&options](const std::string& text) { options.timeout = parseDuration(text); },
               "End the application after this time, like 500ms, 10s or 2m, with status 42")
            ->type_name("TIME");
    CLI::Option* const vcd = addFile("--vcd", options.vcd, "Write a trace of the panel's lines, a value change dump");
    addFile("--lint", options.lint, "Check a scenario file for the panel given, and exit")
        ->excludes(http)
        ->excludes(scenario)
        ->excludes(timeout)
        ->excludes(vcd);
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
    const std::tuple<const char*, const std::vector<std::string>&, unsigned> lists[] = {
        {"--key-names", board.keyNames, board.keyCount},
        {"--led-names", board.ledNames, board.ledCount},
        {"--led-colours", board.ledColours, board.ledCount}};
    for (const auto& [option, values, count] : lists) {
        const bool areNames = &values != &board.ledColours;
        if (!values.empty() && values.size() != count) {
            refuse(option + (": " + std::to_string(values.size()) + " for " + std::to_string(count)));
        }
        if (areNames && std::set<std::string>(values.begin(), values.end()).size() != values.size()) {
            refuse(option + std::string(": a name is given twice"));
        }
    }
}

/** Takes the backlight out of the LEDs that are active-low. */
void finishInvertedLeds(BoardConfig& board)
{
    const unsigned backlight = board.ledGpioBase + board.ledCount;
    for (const unsigned led : std::exchange(board.invertedLeds, {})) {
        if (led < board.ledCount) {
            board.invertedLeds.push_back(led);
        } else if (led != backlight) {
            refuse("--inverted-leds: " + std::to_string(led) + " is neither one of the " +
                   std::to_string(board.ledCount) + " LEDs nor the backlight's GPIO " + std::to_string(backlight));
        } else {
            board.backlightInverted = true;
        }
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
    const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
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
    app.footer("Exit status: the application's, or 128 more than the number of the signal that ended it.\n"
               "With a scenario: 0 passed, 1 a step failed, 3 the application failed,\n"
               "129, 130 or 143 interrupted by SIGHUP, SIGINT or SIGTERM.\n"
               "2 for a wrong option or a file that cannot be used, 42 when --timeout was over.\n"
               "Examples:\n"
               "  panelsim -- frontpanel demo\n"
               "  panelsim --panel outdoor --http 8080 -- ./my-app --verbose\n"
               "  panelsim --scenario menu.yaml --timeout 1m -- ./my-app");
    try {
        app.parse(std::vector<std::string>(std::make_reverse_iterator(separator), arguments.rend()));
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
