#include "panelsim/app/Options.h"

#include "panelsim/board/Duration.h"
#include "panelsim/board/Utf8.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <limits>
#include <memory>
#include <set>
#include <stdexcept>

namespace panelsim {

namespace {

constexpr unsigned highestGpio = std::numeric_limits<unsigned>::max();
constexpr unsigned mostLines = 256;
constexpr unsigned highestPanelId = 15;
const char* const usage = "panelsim [OPTIONS] -- COMMAND [ARGS...]";

[[noreturn]] void refuse(const std::string& what)
{
    throw std::runtime_error(what);
}

/** Refuses what CLI11 would take for another number than people do: 010 as eight, for instance. */
CLI::Validator range(unsigned least, unsigned most)
{
    const CLI::Range itsRange(least, most);
    const auto check = [itsRange, least, most](std::string& text) {
        const bool isDecimal = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos &&
                               (text.size() == 1 || text.front() != '0');
        return isDecimal && itsRange(text).empty()
                   ? std::string()
                   : "'" + text + "' is not a number from " + std::to_string(least) + " to " + std::to_string(most);
    };
    return CLI::Validator(check, "");
}

/** Writes the help as CLI11 does, with the application's command, which CLI11 never sees. */
class Formatter final : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override
    {
        return std::string("Usage: ") + usage + "\n";
    }
};

/** A run of lines. */
struct Lines {
    std::string purpose;
    std::uint64_t first;
    std::uint64_t count;
};

/** Reads GPIO:TEXT. @return the two parts */
std::pair<unsigned, std::string> gpioAnd(const std::string& option, const std::string& text)
{
    const auto colon = text.find(':');
    std::string gpio = text.substr(0, colon);
    const std::string error = range(0, highestGpio)(gpio);
    if (colon == std::string::npos || !error.empty()) {
        refuse(option + ": " + (error.empty() ? "'" + text + "' has no colon" : error));
    }
    return {static_cast<unsigned>(std::stoul(gpio)), text.substr(colon + 1)};
}

PinFault parseFault(const std::string& text)
{
    const auto [gpio, rest] = gpioAnd("--fail", text);
    const auto colon = std::min(rest.find(':'), rest.size());
    std::string call = rest.substr(0, colon);
    const std::string kind = rest.substr(colon);
    if (!range(1, highestGpio)(call).empty() || (kind != ":throw" && kind != ":false")) {
        refuse("--fail: '" + text + "' is not GPIO:N:throw or GPIO:N:false, with N from 1 on");
    }
    PinFault fault;
    fault.gpio = gpio;
    fault.call = std::stoul(call);
    fault.kind = kind == ":throw" ? PinFault::Kind::Throw : PinFault::Kind::False;
    return fault;
}

/** @return what an option's text stands for, if there is one */
template <typename Parse>
auto parsed(const char* option, const std::optional<std::string>& text, const Parse& parse)
{
    try {
        return text ? std::optional(parse(*text)) : std::nullopt;
    } catch (const std::invalid_argument& error) {
        refuse(std::string(option) + ": " + error.what());
    }
}

/** What is given, before it is known to go together. */
class CommandLine {
public:
    CommandLine();

    std::optional<Options> parse(int argc, const char* const* argv);

private:
    void addFile(const std::string& name, std::filesystem::path& path, const std::string& description);
    CLI::Option* addList(const std::string& name, const std::string& value, std::vector<std::string>& list,
                         const std::string& description);
    void addPanel();
    void addRunning();
    bool readOwn(const std::vector<std::string>& arguments);
    void finishRunning(bool hasCommand);
    void finishPanel();
    void checkNames(const std::string& option, const std::vector<std::string>& names, unsigned count) const;
    void checkInvertedLeds();
    void checkLines() const;

    CLI::App app{"Runs an application on a simulated front panel.", "panelsim"};
    Options options;
    std::string chip = "ra8806";
    CLI::Option* chipOption = nullptr;
    CLI::Option* silentOption = nullptr;
    std::optional<unsigned> panelId;
    std::optional<unsigned> keyCount;
    std::optional<unsigned> ledCount;
    std::vector<unsigned> invertedLeds;
    std::vector<std::string> faults;
    std::vector<std::string> stuck;
    std::optional<std::string> http;
    std::optional<std::string> timeout;
};

CommandLine::CommandLine()
{
    app.set_version_flag("--version", "panelsim " PANELSIM_VERSION, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this help message and exit");
    app.formatter(std::make_shared<Formatter>());
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    addPanel();
    addRunning();
    app.footer("Exit status: the application's, or 128 more than the number of the signal that ended it.\n"
               "With a scenario: 0 passed, 1 a step failed, 3 the application failed,\n"
               "129, 130 or 143 interrupted by SIGHUP, SIGINT or SIGTERM.\n"
               "2 for a wrong option or a file that cannot be used, 42 when --timeout was over.\n"
               "Examples:\n"
               "  panelsim -- frontpanel demo\n"
               "  panelsim --panel outdoor --http 8080 -- ./my-app --verbose\n"
               "  panelsim --scenario menu.yaml --timeout 1m -- ./my-app");
}

CLI::Option* CommandLine::addList(const std::string& name, const std::string& value, std::vector<std::string>& list,
                                  const std::string& description)
{
    return app.add_option(name, list, description)
        ->type_name(value)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
}

void CommandLine::addPanel()
{
    app.option_defaults()->group("Panel");
    BoardConfig& board = options.board;
    std::vector<std::string> kinds;
    std::string keyNote;
    std::string ledNote;
    for (const PanelKind& kind : panelKinds) {
        kinds.emplace_back(kind.name);
        keyNote += kind.isVariable ? "" : "; the " + kinds.back() + " panel has " + std::to_string(kind.keyCount);
        ledNote += kind.isVariable ? "" : "; the " + kinds.back() + " panel has " + std::to_string(kind.ledCount);
    }
    std::vector<std::string> colours;
    for (const LedColour& colour : ledColours) {
        colours.emplace_back(colour.name);
    }
    app.add_option("--panel", board.panel, "The panel that is simulated")
        ->check(CLI::IsMember(kinds).description(""))
        ->type_name(CLI::detail::join(kinds, "|"))
        ->default_str(board.panel);
    app.add_option("--panel-id", panelId, "What the ID lines read, 0 to 15, whatever the panel")
        ->check(range(0, highestPanelId))
        ->type_name("N");
    chipOption = app.add_option("--chip", chip, "The LCD's controller chip")
                     ->check(CLI::IsMember({"ra8803", "ra8806"}).description(""))
                     ->type_name("ra8803|ra8806")
                     ->default_str(chip);
    silentOption = app.add_flag("--silent-chip", board.silentChip, "The LCD's chip neither takes nor answers anything");
    app.add_option("--key-count,--keys", keyCount, "Number of keys" + keyNote)
        ->check(range(0, mostLines))
        ->type_name("N")
        ->default_str(std::to_string(board.keyCount));
    app.add_option("--led-count,--leds", ledCount, "Number of LEDs" + ledNote)
        ->check(range(0, mostLines))
        ->type_name("N")
        ->default_str(std::to_string(board.ledCount));
    addList("--key-names", "NAME,NAME...", board.keyNames, "Names of the keys, also for scenarios")->delimiter(',');
    addList("--led-names", "NAME,NAME...", board.ledNames, "Names of the LEDs, also for scenarios")->delimiter(',');
    addList("--led-colours", "COLOUR,COLOUR...", board.ledColours,
            "Colours of the LEDs: " + CLI::detail::join(colours, ", "))
        ->delimiter(',')
        ->check(CLI::IsMember(colours).description(""));
    app.add_option("--inverted-leds", invertedLeds,
                   "Active-low LEDs; with the backlight's GPIO number, the backlight is active-low, too")
        ->check(range(0, highestGpio))
        ->type_name("N,N...")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->delimiter(',')
        ->allow_extra_args(false);
    const auto addBase = [this](const std::string& name, unsigned& base, const std::string& firstLine) {
        app.add_option(name, base, "GPIO number of " + firstLine)
            ->check(range(0, highestGpio))
            ->type_name("GPIO")
            ->default_str(std::to_string(base));
    };
    addBase("--id-base", board.idGpioBase, "the first of 4 ID lines");
    addBase("--key-base", board.keyGpioBase, "key 0");
    addBase("--led-base", board.ledGpioBase, "LED 0; the backlight comes right after the last LED");
    addBase("--lcd-base", board.lcdGpioBase, "the first of 13 LCD lines");
    addList("--fail", "GPIO:N:throw|false", faults,
            "Let the Nth operation on a line fail, by an exception or, where init or a set level is due, by the answer "
            "false; repeatable");
    addList("--stuck", "GPIO:LEVEL", stuck, "Keep a line at level 0 or 1, whoever drives it; repeatable");
}

void CommandLine::addFile(const std::string& name, std::filesystem::path& path, const std::string& description)
{
    const auto isNamed = [](std::string& text) { return text.empty() ? "a file name is needed" : ""; };
    app.add_option(name, path, description)->check(CLI::Validator(isNamed, ""))->type_name("FILE");
}

void CommandLine::addRunning()
{
    app.option_defaults()->group("Options");
    app.add_option("--http", http,
                   "Serve the page there; port 0 takes any free one. Without this option: 127.0.0.1:8080 or, when it "
                   "is taken, any free port of 127.0.0.1, and no page with --scenario")
        ->type_name("[ADDR:]PORT");
    app.add_flag("--no-http", options.noHttp, "Serve no page");
    app.add_flag("--stay", options.stay,
                 "Serve the page until interrupted, also after the application has ended; at a terminal this is so "
                 "when it failed");
    app.add_flag("--draw", options.draw, "Draw the panel as text on standard output whenever it has changed");
    addFile("--scenario", options.scenario, "Play the scenario of a YAML file, then end the application");
    addFile("--lint", options.lint, "Check a scenario file for the panel given, and exit");
    app.add_option("--timeout", timeout, "End the application after this time, like 500ms, 10s or 2m, with status 42")
        ->type_name("TIME");
    addFile("--vcd", options.vcd, "Write a trace of the panel's lines, a value change dump");
}

std::optional<Options> CommandLine::parse(int argc, const char* const* argv)
{
    const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    const auto separator = std::find(arguments.begin(), arguments.end(), "--");
    if (separator != arguments.end()) {
        options.command.assign(separator + 1, arguments.end());
    }
    if (!readOwn({arguments.begin(), separator})) {
        return std::nullopt;
    }
    finishRunning(separator != arguments.end());
    finishPanel();
    return options;
}

/** @return false when help or the version was printed */
bool CommandLine::readOwn(const std::vector<std::string>& arguments)
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

void CommandLine::finishRunning(bool hasCommand)
{
    options.http = parsed("--http", http, parseHttpAddress);
    options.timeout = parsed("--timeout", timeout, parseDuration);
    const bool lints = !options.lint.empty();
    if (!lints && options.command.empty()) {
        refuse(std::string("a command is needed: ") + usage);
    }
    if (lints && (hasCommand || !options.scenario.empty() || options.timeout || !options.vcd.empty() || options.http)) {
        refuse("--lint checks a file and runs nothing: leave out what is for a run");
    }
    if (options.noHttp && options.http) {
        refuse("--http and --no-http exclude each other");
    }
    if (options.noHttp && options.stay) {
        refuse("--stay is for the page, which --no-http switches off");
    }
    if (!options.scenario.empty() && options.stay) {
        refuse("--stay: the end of the scenario ends the run");
    }
}

void CommandLine::finishPanel()
{
    BoardConfig& board = options.board;
    const PanelKind& kind = panelKind(board.panel);
    const std::string its = "the " + board.panel + " panel";
    board.hasLcd = kind.hasLcd;
    board.panelId = panelId.value_or(kind.id);
    board.keyCount = keyCount.value_or(kind.keyCount);
    board.ledCount = ledCount.value_or(kind.ledCount);
    board.chip = chip == "ra8803" ? ChipVariant::Ra8803 : ChipVariant::Ra8806;
    if (!kind.isVariable && board.keyCount != kind.keyCount) {
        refuse("--key-count: " + its + " has " + std::to_string(kind.keyCount) + " keys");
    }
    if (!kind.isVariable && board.ledCount != kind.ledCount) {
        refuse("--led-count: " + its + " has " + std::to_string(kind.ledCount) + " LEDs");
    }
    if (!kind.isVariable && !invertedLeds.empty()) {
        refuse("--inverted-leds: the LEDs of " + its + " are all active-high");
    }
    for (const CLI::Option* const option : {chipOption, silentOption}) {
        if (!kind.hasLcd && option->count() != 0) {
            refuse(option->get_name() + ": " + its + " has no LCD");
        }
    }
    checkNames("--key-names", board.keyNames, board.keyCount);
    checkNames("--led-names", board.ledNames, board.ledCount);
    if (!board.ledColours.empty() && board.ledColours.size() != board.ledCount) {
        refuse("--led-colours: " + std::to_string(board.ledColours.size()) + " colours for " +
               std::to_string(board.ledCount) + " LEDs");
    }
    for (const std::string& text : faults) {
        options.faults.push_back(parseFault(text));
    }
    for (const std::string& text : stuck) {
        const auto [gpio, level] = gpioAnd("--stuck", text);
        if (level != "0" && level != "1") {
            refuse("--stuck: '" + text + "' is not GPIO:0 or GPIO:1");
        }
        board.stuckLines[gpio] = level == "1";
    }
    checkLines();
    checkInvertedLeds();
}

void CommandLine::checkNames(const std::string& option, const std::vector<std::string>& names, unsigned count) const
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

void CommandLine::checkInvertedLeds()
{
    BoardConfig& board = options.board;
    const unsigned backlight = board.ledGpioBase + board.ledCount;
    for (const unsigned led : invertedLeds) {
        if (led < board.ledCount) {
            board.invertedLeds.push_back(led);
        } else if (led == backlight) {
            board.backlightInverted = true;
        } else {
            refuse("--inverted-leds: " + std::to_string(led) + " is neither one of the " +
                   std::to_string(board.ledCount) + " LEDs nor the backlight's GPIO " + std::to_string(backlight));
        }
    }
}

void CommandLine::checkLines() const
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
    for (const auto& [gpio, level] : board.stuckLines) {
        check("--stuck", gpio);
    }
}

} // namespace

std::optional<Options> parseOptions(int argc, const char* const* argv)
{
    return CommandLine().parse(argc, argv);
}

} // namespace panelsim
