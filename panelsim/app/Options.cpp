#include "panelsim/app/Options.h"

#include "panelsim/board/Duration.h"
#include "panelsim/board/Utf8.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <functional>
#include <iostream>
#include <limits>
#include <regex>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace panelsim {

namespace {

constexpr unsigned highestGpio = std::numeric_limits<unsigned>::max();
constexpr unsigned mostLines = 256;
constexpr unsigned highestPanelId = 15;

using Reader = std::function<void(const std::string&)>;

/** An option, a flag when its value has no name. */
struct Row {
    const char* names;
    std::string value;
    std::string description;
    Reader read; ///< throws std::invalid_argument for a wrong value
    std::string usual = {};
    bool isList = false;
};

/** A run of lines. */
struct Lines {
    std::string purpose;
    std::uint64_t first;
    std::uint64_t count;
};

[[noreturn]] void refuse(const std::string& what)
{
    throw std::invalid_argument(what);
}

/** Refuses what CLI11 would take for another number than people do: 010 as eight, for instance. */
unsigned numberOf(const std::string& text, unsigned least, unsigned most)
{
    unsigned number = 0;
    const auto error = std::from_chars(text.data(), text.data() + text.size(), number).ec;
    if (error != std::errc() || text != std::to_string(number) || number < least || number > most) {
        refuse("'" + text + "' is not a number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return number;
}

Reader number(unsigned& target, unsigned most = highestGpio)
{
    return [&target, most](const std::string& text) { target = numberOf(text, 0, most); };
}

Reader file(std::filesystem::path& target)
{
    return [&target](const std::string& text) {
        if (text.empty()) {
            refuse("a file name is needed");
        }
        target = text;
    };
}

Reader list(std::vector<std::string>& target)
{
    return [&target](const std::string& text) { target.push_back(text); };
}

Reader flag(bool& target)
{
    return [&target](const std::string& /*none*/) { target = true; };
}

/** Only lets one of the words through. */
Reader oneOf(const std::vector<std::string>& words, const Reader& read)
{
    return [words, read](std::string text) {
        if (const std::string error = CLI::IsMember(words)(text); !error.empty()) {
            refuse(error);
        }
        read(text);
    };
}

PinFault faultOf(const std::string& text)
{
    static const std::regex form("(\\d+):([1-9]\\d*):(throw|false)");
    std::smatch parts;
    if (!std::regex_match(text, parts, form)) {
        refuse("'" + text + "' is not GPIO:N:throw or GPIO:N:false, with N from 1 on");
    }
    PinFault fault;
    fault.gpio = numberOf(parts[1], 0, highestGpio);
    fault.call = numberOf(parts[2], 1, highestGpio);
    fault.kind = parts[3] == "throw" ? PinFault::Kind::Throw : PinFault::Kind::False;
    return fault;
}

std::pair<unsigned, bool> stuckLineOf(const std::string& text)
{
    static const std::regex form("(\\d+):([01])");
    std::smatch parts;
    if (!std::regex_match(text, parts, form)) {
        refuse("'" + text + "' is not GPIO:0 or GPIO:1");
    }
    return {numberOf(parts[1], 0, highestGpio), parts[2] == "1"};
}

/** @return the names in a table */
template <typename Table>
std::vector<std::string> namesIn(const Table& table)
{
    std::vector<std::string> found(table.size());
    std::transform(table.begin(), table.end(), found.begin(), [](const auto& row) { return row.name; });
    return found;
}

std::string fixedCounts(unsigned PanelKind::*count)
{
    std::string text;
    for (const PanelKind& kind : panelKinds) {
        text += kind.isVariable ? "" : "; the " + std::string(kind.name) + " panel has " + std::to_string(kind.*count);
    }
    return text;
}

std::vector<Row> panelRows(Options& options)
{
    BoardConfig& board = options.board;
    const auto panels = namesIn(panelKinds);
    const auto colours = namesIn(ledColours);
    const auto usual = [](unsigned value) { return std::to_string(value); };
    return {
        {"--panel", CLI::detail::join(panels, "|"), "The panel that is simulated",
         oneOf(panels, [&](const std::string& text) { board.panel = text; }), board.panel},
        {"--panel-id", "N", "What the ID lines read, 0 to 15, whatever the panel",
         number(board.panelId, highestPanelId)},
        {"--chip", "ra8803|ra8806", "The LCD's controller chip",
         oneOf({"ra8803", "ra8806"},
               [&](const std::string& text) {
                   board.chip = text == "ra8803" ? ChipVariant::Ra8803 : ChipVariant::Ra8806;
               }),
         "ra8806"},
        {"--silent-chip", "", "The LCD's chip neither takes nor answers anything", flag(board.silentChip)},
        {"--key-count,--keys", "N", "Number of keys" + fixedCounts(&PanelKind::keyCount),
         number(board.keyCount, mostLines), usual(board.keyCount)},
        {"--led-count,--leds", "N", "Number of LEDs" + fixedCounts(&PanelKind::ledCount),
         number(board.ledCount, mostLines), usual(board.ledCount)},
        {"--key-names", "NAME,NAME...", "Names of the keys, also for scenarios", list(board.keyNames), "", true},
        {"--led-names", "NAME,NAME...", "Names of the LEDs, also for scenarios", list(board.ledNames), "", true},
        {"--led-colours", "COLOUR,COLOUR...", "Colours of the LEDs: " + CLI::detail::join(colours, ", "),
         oneOf(colours, list(board.ledColours)), "", true},
        {"--inverted-leds", "N,N...",
         "Active-low LEDs; with the backlight's GPIO number, the backlight is active-low, too",
         [&](const std::string& text) { board.invertedLeds.push_back(numberOf(text, 0, highestGpio)); }, "", true},
        {"--id-base", "GPIO", "GPIO number of the first of 4 ID lines", number(board.idGpioBase),
         usual(board.idGpioBase)},
        {"--key-base", "GPIO", "GPIO number of key 0", number(board.keyGpioBase), usual(board.keyGpioBase)},
        {"--led-base", "GPIO", "GPIO number of LED 0; the backlight comes right after the last LED",
         number(board.ledGpioBase), usual(board.ledGpioBase)},
        {"--lcd-base", "GPIO", "GPIO number of the first of 13 LCD lines", number(board.lcdGpioBase),
         usual(board.lcdGpioBase)},
        {"--fail", "GPIO:N:throw|false",
         "Let the Nth operation on a line fail, by an exception or, where init or a set level is due, by the answer "
         "false; repeatable",
         [&](const std::string& text) { options.faults.push_back(faultOf(text)); }, "", true},
        {"--stuck", "GPIO:LEVEL", "Keep a line at level 0 or 1, whoever drives it; repeatable",
         [&](const std::string& text) {
             const auto [gpio, level] = stuckLineOf(text);
             board.stuckLines[gpio] = level;
         },
         "", true},
    };
}

std::vector<Row> runRows(Options& options)
{
    return {
        {"--http", "[ADDR:]PORT",
         "Serve the page there; port 0 takes any free one. Without this option: 127.0.0.1:8080 or, when it is taken, "
         "any free port of 127.0.0.1, and no page with --scenario",
         [&](const std::string& text) { options.http = text; }},
        {"--no-http", "", "Serve no page", flag(options.noHttp)},
        {"--stay", "",
         "Serve the page until interrupted, also after the application has ended; at a terminal this is so when it "
         "failed",
         flag(options.stay)},
        {"--draw", "", "Draw the panel as text on standard output whenever it has changed", flag(options.draw)},
        {"--scenario", "FILE", "Play the scenario of a YAML file, then end the application", file(options.scenario)},
        {"--lint", "FILE", "Check a scenario file for the panel given, and exit", file(options.lint)},
        {"--timeout", "TIME", "End the application after this time, like 500ms, 10s or 2m, with status 42",
         [&](const std::string& text) { options.timeout = parseDuration(text); }},
        {"--vcd", "FILE", "Write a trace of the panel's lines, a value change dump", file(options.vcd)},
    };
}

void addRows(CLI::App& app, const std::string& group, const std::vector<Row>& rows)
{
    app.option_defaults()->group(group);
    for (const Row& row : rows) {
        const auto check = [read = row.read](const std::string& text) {
            try {
                read(text);
                return std::string();
            } catch (const std::invalid_argument& error) {
                return std::string(error.what());
            }
        };
        if (row.value.empty()) {
            app.add_flag_callback(
                row.names, [check] { check({}); }, row.description);
            continue;
        }
        CLI::Option* const option = app.add_option(row.names, CLI::callback_t(), row.description);
        option->type_name(row.value)->default_str(row.usual)->check(CLI::Validator(check, ""));
        if (row.isList) {
            option->delimiter(',')->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        }
    }
}

/** @return false when help or the version was printed */
bool parse(CLI::App& app, const std::vector<std::string>& arguments)
{
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        return true;
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help() << std::flush;
    } catch (const CLI::CallForVersion& version) {
        std::cout << version.what() << std::endl;
    } catch (const CLI::ArgumentMismatch& error) {
        const std::string text = error.what();
        refuse(text.substr(0, text.find(':')) + ": a value is missing");
    } catch (const CLI::ExtrasError&) {
        const std::string extra = app.remaining().front();
        refuse(extra.front() == '-'
                   ? "unknown option '" + extra + "', see panelsim --help"
                   : "'" + extra + "' comes without '--' before it: panelsim [OPTIONS] -- COMMAND [ARGS...]");
    } catch (const CLI::ParseError& error) {
        refuse(error.what());
    }
    return false;
}

void checkRun(const Options& options, bool hasCommand)
{
    const bool lints = !options.lint.empty();
    const bool plays = !options.scenario.empty();
    const bool isForRun = hasCommand || plays || options.timeout || !options.vcd.empty() || options.http;
    const std::pair<bool, const char*> mistakes[] = {
        {!lints && options.command.empty(), "a command is needed: panelsim [OPTIONS] -- COMMAND [ARGS...]"},
        {lints && isForRun, "--lint checks a file and runs nothing: leave out what is for a run"},
        {options.noHttp && options.http, "--http and --no-http exclude each other"},
        {options.noHttp && options.stay, "--stay is for the page, which --no-http switches off"},
        {plays && options.stay, "--stay: the end of the scenario ends the run"},
    };
    for (const auto& [isMade, text] : mistakes) {
        if (isMade) {
            refuse(text);
        }
    }
}

void checkNames(const std::string& option, const std::vector<std::string>& names, unsigned count)
{
    if (!names.empty() && names.size() != count) {
        refuse(option + ": " + std::to_string(names.size()) + " names for " + std::to_string(count));
    }
    std::set<std::string> seen;
    for (const std::string& name : names) {
        if (name.empty() || printable(name) != name || !seen.insert(name).second) {
            refuse(option + ": " + inQuotes(name) + " is empty, given twice or not printable");
        }
    }
}

void finishPanel(const CLI::App& app, BoardConfig& board)
{
    const PanelKind& kind = panelKind(board.panel);
    const std::string its = ": the " + board.panel + " panel has ";
    const std::tuple<const char*, unsigned*, unsigned, const char*> counts[] = {
        {"--key-count", &board.keyCount, kind.keyCount, " keys"},
        {"--led-count", &board.ledCount, kind.ledCount, " LEDs"}};
    for (const auto& [option, count, usual, what] : counts) {
        *count = app.count(option) == 0 ? usual : *count;
        if (!kind.isVariable && *count != usual) {
            refuse(option + its + std::to_string(usual) + what);
        }
    }
    board.panelId = app.count("--panel-id") == 0 ? kind.id : board.panelId;
    board.hasLcd = kind.hasLcd;
    for (const char* const option : {"--chip", "--silent-chip"}) {
        if (!kind.hasLcd && app.count(option) != 0) {
            refuse(option + its + "no LCD");
        }
    }
    if (!kind.isVariable && !board.invertedLeds.empty()) {
        refuse("--inverted-leds: the LEDs of the " + board.panel + " panel are all active-high");
    }
    checkNames("--key-names", board.keyNames, board.keyCount);
    checkNames("--led-names", board.ledNames, board.ledCount);
    if (!board.ledColours.empty() && board.ledColours.size() != board.ledCount) {
        refuse("--led-colours: " + std::to_string(board.ledColours.size()) + " colours for " +
               std::to_string(board.ledCount) + " LEDs");
    }
}

void checkLines(const Options& options)
{
    const BoardConfig& board = options.board;
    std::vector<Lines> all = {{"ID lines", board.idGpioBase, 4},
                              {"keys", board.keyGpioBase, board.keyCount},
                              {"LEDs", board.ledGpioBase, board.ledCount}};
    if (board.hasLcd) {
        all.push_back({"backlight", std::uint64_t{board.ledGpioBase} + board.ledCount, 1});
        all.push_back({"LCD lines", board.lcdGpioBase, 13});
    }
    for (auto lines = all.begin(); lines != all.end(); ++lines) {
        if (lines->count != 0 && lines->first + lines->count - 1 > highestGpio) {
            refuse(lines->purpose + " from GPIO " + std::to_string(lines->first) + " on: the highest GPIO number is " +
                   std::to_string(highestGpio));
        }
        for (auto earlier = all.begin(); earlier != lines; ++earlier) {
            const std::uint64_t first = std::max(earlier->first, lines->first);
            if (first < std::min(earlier->first + earlier->count, lines->first + lines->count)) {
                refuse(earlier->purpose + " and " + lines->purpose + " overlap at GPIO " + std::to_string(first));
            }
        }
    }
    const auto check = [&](const std::string& option, unsigned gpio) {
        const auto has = [&](const Lines& lines) { return gpio >= lines.first && gpio < lines.first + lines.count; };
        if (std::none_of(all.begin(), all.end(), has)) {
            refuse(option + ": the panel has no GPIO " + std::to_string(gpio));
        }
    };
    for (const PinFault& fault : options.faults) {
        check("--fail", *fault.gpio);
    }
    for (const auto& stuck : board.stuckLines) {
        check("--stuck", stuck.first);
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
    addRows(app, "Panel", panelRows(options));
    addRows(app, "Options", runRows(options));
    app.footer("Exit status: the application's, or 128 more than the number of the signal that ended it.\n"
               "With a scenario: 0 passed, 1 a step failed, 3 the application failed,\n"
               "129, 130 or 143 interrupted by SIGHUP, SIGINT or SIGTERM.\n"
               "2 for a wrong option or a file that cannot be used, 42 when --timeout was over.\n"
               "Examples:\n"
               "  panelsim -- frontpanel demo\n"
               "  panelsim --panel outdoor --http 8080 -- ./my-app --verbose\n"
               "  panelsim --scenario menu.yaml --timeout 1m -- ./my-app");
    if (!parse(app, {arguments.begin(), separator})) {
        return std::nullopt;
    }
    options.command.assign(separator + (hasCommand ? 1 : 0), arguments.end());
    checkRun(options, hasCommand);
    finishPanel(app, options.board);
    checkLines(options);
    finishInvertedLeds(options.board);
    return options;
}

} // namespace panelsim
