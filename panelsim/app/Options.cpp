#include "panelsim/app/Options.h"

#include "panelsim/app/UsageError.h"
#include "panelsim/board/Duration.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iostream>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace panelsim {

namespace {

constexpr std::uint64_t highestGpio = std::numeric_limits<unsigned>::max();
constexpr unsigned mostLines = 256;

struct Lines {
    std::string purpose;
    std::uint64_t first;
    std::uint64_t count;
};

std::uint64_t parseNumber(std::string_view text, std::uint64_t least, std::uint64_t most)
{
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end || number < least || number > most) {
        throw std::invalid_argument("'" + std::string(text) + "' is not a number from " + std::to_string(least) +
                                    " to " + std::to_string(most));
    }
    return number;
}

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    for (auto end = text.find(separator); end != std::string_view::npos; end = text.find(separator)) {
        parts.push_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    parts.push_back(text);
    return parts;
}

/** @return the value of the choice that the text names */
template <typename Value>
Value choose(std::string_view text, const std::vector<std::pair<const char*, Value>>& choices)
{
    std::string names;
    for (const auto& [name, value] : choices) {
        if (name == text) {
            return value;
        }
        names += std::string(names.empty() ? "" : " or ") + name;
    }
    throw std::invalid_argument("'" + std::string(text) + "' is not " + names);
}

PinFault parseFault(std::string_view text)
{
    const auto parts = split(text, ':');
    if (parts.size() != 3) {
        throw std::invalid_argument("'" + std::string(text) + "' is not GPIO:N:throw or GPIO:N:false");
    }
    PinFault fault;
    fault.gpio = static_cast<unsigned>(parseNumber(parts[0], 0, highestGpio));
    fault.call = parseNumber(parts[1], 1, std::numeric_limits<std::uint64_t>::max());
    fault.kind = choose<PinFault::Kind>(parts[2], {{"throw", PinFault::Kind::Throw}, {"false", PinFault::Kind::False}});
    return fault;
}

/** Writes the help as CLI11 does, with the application's command, which CLI11 never sees. */
class Formatter final : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override
    {
        return "Usage: panelsim [OPTIONS] -- COMMAND [ARGS...]\n";
    }
};

/** Collects what CLI11 reads, and makes sense of it when all is there. */
class OptionParser {
public:
    OptionParser();

    std::optional<Options> parse(int argc, const char* const* argv);

private:
    using Take = std::function<void(const std::string&)>;

    CLI::Option* add(const std::string& name, const std::string& value, const std::string& description,
                     const Take& take);
    void addPanel();
    void addBase(const std::string& name, unsigned& base, const std::string& firstLine);
    void addRunning();
    bool readOwn(const std::vector<std::string>& arguments);
    void refuseExtras() const;
    void finishPanel();
    void checkInvertedLeds();
    void checkLines() const;
    void checkCombinations(bool hasCommand) const;

    CLI::App app{"Runs an application on a simulated front panel.", "panelsim"};
    Options options;
    bool outdoor = false;
    std::optional<ChipVariant> chip;
    std::optional<unsigned> keyCount;
    std::optional<unsigned> ledCount;
    std::vector<unsigned> invertedLeds;
};

OptionParser::OptionParser()
{
    app.set_version_flag("--version", "panelsim " PANELSIM_VERSION, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this help message and exit");
    app.formatter(std::make_shared<Formatter>());
    app.allow_extras(); // so that the first argument that makes no sense is named
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

/** CLI11 itself would read 010 as eight, [a] as a list and {} as nothing. */
CLI::Option* OptionParser::add(const std::string& name, const std::string& value, const std::string& description,
                               const Take& take)
{
    const auto takeOrRefuse = [name, take](const std::string& text) {
        try {
            take(text);
        } catch (const std::invalid_argument& error) {
            throw UsageError(name + ": " + error.what());
        }
    };
    return app.add_option_function<std::string>(name, takeOrRefuse, description)
        ->type_name(value)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

void OptionParser::addPanel()
{
    const auto addCount = [this](const std::string& name, std::optional<unsigned>& count, unsigned preset,
                                 const std::string& description) {
        add(name, "N", description, [&count](const std::string& text) {
            count = static_cast<unsigned>(parseNumber(text, 0, mostLines));
        })->default_str(std::to_string(preset));
    };
    add("--panel", "indoor|outdoor", "The panel that is simulated", [this](const std::string& text) {
        outdoor = choose<bool>(text, {{"indoor", false}, {"outdoor", true}});
    })->default_str("indoor");
    add("--chip", "ra8803|ra8806", "The LCD's controller chip", [this](const std::string& text) {
        chip = choose<ChipVariant>(text, {{"ra8803", ChipVariant::Ra8803}, {"ra8806", ChipVariant::Ra8806}});
    })->default_str("ra8806");
    addCount("--keys", keyCount, options.board.keyCount, "Number of keys; the outdoor panel has 2");
    addCount("--leds", ledCount, options.board.ledCount, "Number of LEDs; the outdoor panel has 8");
    add("--inverted-leds", "N,N...",
        "Active-low LEDs; with the backlight's GPIO number, the backlight is active-low, too",
        [this](const std::string& text) {
            invertedLeds.clear();
            for (const std::string_view number : split(text, ',')) {
                invertedLeds.push_back(static_cast<unsigned>(parseNumber(number, 0, highestGpio)));
            }
        });
    addBase("--id-base", options.board.idGpioBase, "the first of 4 ID lines");
    addBase("--key-base", options.board.keyGpioBase, "key 0");
    addBase("--led-base", options.board.ledGpioBase, "LED 0; the backlight comes right after the last LED");
    addBase("--lcd-base", options.board.lcdGpioBase, "the first of 13 LCD lines");
    add("--fail", "GPIO:N:throw|false",
        "Let the Nth operation on a line fail, by an exception or, where init or a set level is due, by the answer "
        "false; repeatable",
        [this](const std::string& text) { options.faults.push_back(parseFault(text)); })
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->trigger_on_parse();
    for (CLI::Option* const option : app.get_options()) {
        if (option->get_group() == "Options" && !option->get_type_name().empty()) {
            option->group("Panel");
        }
    }
}

void OptionParser::addBase(const std::string& name, unsigned& base, const std::string& firstLine)
{
    add(name, "GPIO", "GPIO number of " + firstLine, [&base](const std::string& text) {
        base = static_cast<unsigned>(parseNumber(text, 0, highestGpio));
    })->default_str(std::to_string(base));
}

void OptionParser::addRunning()
{
    const auto addFile = [this](const std::string& name, std::filesystem::path& path, const std::string& description) {
        add(name, "FILE", description, [&path](const std::string& text) {
            if (text.empty()) {
                throw std::invalid_argument("a file name is needed");
            }
            path = text;
        });
    };
    add("--http", "[ADDR:]PORT",
        "Serve the page there; port 0 takes any free one. Without this option: 127.0.0.1:8080 or, when it is taken, "
        "any free port of 127.0.0.1, and no page with --scenario",
        [this](const std::string& text) { options.http = parseHttpAddress(text); });
    app.add_flag("--no-http", options.noHttp, "Serve no page");
    app.add_flag("--stay", options.stay,
                 "Serve the page until interrupted, also after the application has ended; at a terminal this is so "
                 "when it failed");
    app.add_flag("--draw", options.draw, "Draw the panel as text on standard output whenever it has changed");
    addFile("--scenario", options.scenario, "Play the scenario of a YAML file, then end the application");
    addFile("--lint", options.lint, "Check a scenario file for the panel given, and exit");
    add("--timeout", "TIME", "End the application after this time, like 500ms, 10s or 2m, with status 42",
        [this](const std::string& text) { options.timeout = parseDuration(text); });
    addFile("--vcd", options.vcd, "Write a trace of the panel's lines, a value change dump");
}

std::optional<Options> OptionParser::parse(int argc, const char* const* argv)
{
    const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    const auto separator = std::find(arguments.begin(), arguments.end(), "--");
    const bool hasCommand = separator != arguments.end();
    if (hasCommand) {
        options.command.assign(separator + 1, arguments.end());
    }
    if (!readOwn({arguments.begin(), separator})) {
        return std::nullopt;
    }
    checkCombinations(hasCommand);
    finishPanel();
    return options;
}

/** @return false when help or the version was printed */
bool OptionParser::readOwn(const std::vector<std::string>& arguments)
{
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        refuseExtras();
        return true;
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help() << std::flush;
    } catch (const CLI::CallForVersion& version) {
        std::cout << version.what() << std::endl;
    } catch (const CLI::ArgumentMismatch& error) {
        const std::string text = error.what();
        throw UsageError(text.substr(0, text.find(':')) + ": a value is missing");
    } catch (const CLI::ParseError& error) {
        refuseExtras();
        throw UsageError(error.what());
    }
    return false;
}

void OptionParser::refuseExtras() const
{
    const auto extras = app.remaining();
    if (extras.empty()) {
        return;
    }
    if (extras.front().substr(0, 1) == "-") {
        throw UsageError("unknown option '" + extras.front() + "', see panelsim --help");
    }
    throw UsageError("'" + extras.front() + "' comes without '--' before it: panelsim [OPTIONS] -- COMMAND [ARGS...]");
}

void OptionParser::checkCombinations(bool hasCommand) const
{
    const bool runs = options.lint.empty();
    if (runs && options.command.empty()) {
        throw UsageError("a command is needed: panelsim [OPTIONS] -- COMMAND [ARGS...]");
    }
    if (!runs && (hasCommand || !options.scenario.empty() || options.timeout || !options.vcd.empty() || options.http)) {
        throw UsageError("--lint checks a file and runs nothing: leave out what is for a run");
    }
    if (options.noHttp && options.http) {
        throw UsageError("--http and --no-http exclude each other");
    }
    if (options.noHttp && options.stay) {
        throw UsageError("--stay is for the page, which --no-http switches off");
    }
    if (!options.scenario.empty() && options.stay) {
        throw UsageError("--stay: the end of the scenario ends the run");
    }
}

void OptionParser::finishPanel()
{
    BoardConfig& board = options.board;
    if (outdoor) {
        const BoardConfig preset = boardOf(panelKind("outdoor"));
        if (keyCount.value_or(preset.keyCount) != preset.keyCount) {
            throw UsageError("--keys: the outdoor panel has " + std::to_string(preset.keyCount) + " keys");
        }
        if (ledCount.value_or(preset.ledCount) != preset.ledCount) {
            throw UsageError("--leds: the outdoor panel has " + std::to_string(preset.ledCount) + " LEDs");
        }
        if (!invertedLeds.empty()) {
            throw UsageError("--inverted-leds: the outdoor panel's LEDs are all active-high");
        }
        if (chip) {
            throw UsageError("--chip: the outdoor panel has no LCD");
        }
        board.panelId = preset.panelId;
        board.hasLcd = preset.hasLcd;
        keyCount = preset.keyCount;
        ledCount = preset.ledCount;
    }
    board.keyCount = keyCount.value_or(board.keyCount);
    board.ledCount = ledCount.value_or(board.ledCount);
    board.chip = chip.value_or(board.chip);
    checkLines();
    checkInvertedLeds();
}

void OptionParser::checkInvertedLeds()
{
    BoardConfig& board = options.board;
    const unsigned backlight = board.ledGpioBase + board.ledCount;
    for (const unsigned led : invertedLeds) {
        if (led < board.ledCount) {
            board.invertedLeds.push_back(led);
        } else if (led == backlight) {
            board.backlightInverted = true;
        } else {
            throw UsageError("--inverted-leds: " + std::to_string(led) + " is neither one of the " +
                             std::to_string(board.ledCount) + " LEDs nor the backlight's GPIO " +
                             std::to_string(backlight));
        }
    }
}

void OptionParser::checkLines() const
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
            throw UsageError(lines->purpose + " from GPIO " + std::to_string(lines->first) +
                             " on: the highest GPIO number is " + std::to_string(highestGpio));
        }
        for (auto earlier = all.begin(); earlier != lines; ++earlier) {
            const std::uint64_t first = std::max(earlier->first, lines->first);
            if (first < std::min(earlier->first + earlier->count, lines->first + lines->count)) {
                throw UsageError(earlier->purpose + " and " + lines->purpose + " overlap at GPIO " +
                                 std::to_string(first));
            }
        }
    }
    for (const PinFault& fault : options.faults) {
        const auto has = [&](const Lines& lines) {
            return *fault.gpio >= lines.first && *fault.gpio < lines.first + lines.count;
        };
        if (std::none_of(all.begin(), all.end(), has)) {
            throw UsageError("--fail: the panel has no GPIO " + std::to_string(*fault.gpio));
        }
    }
}

} // namespace

std::optional<Options> parseOptions(int argc, const char* const* argv)
{
    return OptionParser().parse(argc, argv);
}

} // namespace panelsim
