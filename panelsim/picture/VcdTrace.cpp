#include "panelsim/picture/VcdTrace.h"

#include <utility>

namespace panelsim {

namespace {

constexpr unsigned idLineCount = 4;
constexpr unsigned dataLineCount = 8;

/** @return a name of printable characters other than the blank, different for each index */
std::string identifierOf(std::size_t index)
{
    constexpr char firstCharacter = '!';
    constexpr std::size_t characters = '~' - firstCharacter + 1;
    std::string identifier;
    do {
        identifier += static_cast<char>(firstCharacter + index % characters);
        index /= characters;
    } while (index != 0);
    return identifier;
}

char valueOf(LineLevel level)
{
    switch (level) {
    case LineLevel::Low:
        return '0';
    case LineLevel::High:
        return '1';
    case LineLevel::Floating:
        break;
    }
    return 'z';
}

} // namespace

VcdTrace::VcdTrace(Board& itsBoard, const std::filesystem::path& path) : board(itsBoard), file(path)
{
    file.append(header());
    observing = true;
    board.observe([this](const LineChange& change) { record(change); });
}

VcdTrace::~VcdTrace()
{
    stopObserving();
}

void VcdTrace::close()
{
    stopObserving();
    file.close();
}

void VcdTrace::stopObserving()
{
    if (observing) {
        observing = false;
        board.observe({});
        file.append(timeStamp(board.now()));
    }
}

std::string VcdTrace::header()
{
    const auto run = [](const std::string& name, unsigned firstGpio, unsigned count) {
        std::vector<Wire> wires;
        for (unsigned i = 0; i < count; ++i) {
            wires.push_back({name + std::to_string(i), firstGpio + i});
        }
        return wires;
    };
    const BoardConfig& config = board.getConfig();
    std::string text = "$version panelsim " PANELSIM_VERSION " $end\n"
                       "$timescale 1 ns $end\n"
                       "$scope module panel $end\n";
    if (config.hasLcd) {
        unsigned gpio = config.lcdGpioBase + dataLineCount;
        std::vector<Wire> lcd = run("data", config.lcdGpioBase, dataLineCount);
        for (const char* name : {"register_select", "chip_select_n", "read_strobe_n", "write_strobe_n", "reset_n"}) {
            lcd.push_back({name, gpio++});
        }
        lcd.push_back({"backlight", config.ledGpioBase + config.ledCount});
        text += declareScope("lcd", lcd);
    }
    text += declareScope("keys", run("key", config.keyGpioBase, config.keyCount));
    text += declareScope("leds", run("led", config.ledGpioBase, config.ledCount));
    text += declareScope("id", run("id", config.idGpioBase, idLineCount));
    return text + "$upscope $end\n"
                  "$enddefinitions $end\n"
                  "#0\n"
                  "$dumpvars\n";
}

std::string VcdTrace::declareScope(const char* name, const std::vector<Wire>& wires)
{
    std::string text = std::string("$scope module ") + name + " $end\n";
    for (const Wire& wire : wires) {
        const std::string identifier = identifierOf(signals.size());
        signals.insert({wire.gpio, {identifier, std::nullopt}});
        text += "$var wire 1 " + identifier + " " + wire.name + " $end\n";
    }
    return text + "$upscope $end\n";
}

void VcdTrace::record(const LineChange& change)
{
    // The board begins with the levels that all lines have at one time.
    if (knownSignals == 0) {
        begin = change.time;
    }
    Signal& signal = signals.at(change.gpio);
    if (signal.level == change.level) {
        return;
    }
    const bool isLastOfFirstLevels = !signal.level && ++knownSignals == signals.size();
    signal.level = change.level;
    file.append(timeStamp(change.time) + valueOf(change.level) + signal.identifier +
                (isLastOfFirstLevels ? "\n$end\n" : "\n"));
}

/** @return the line that begins what happens at this time, empty when it has begun */
std::string VcdTrace::timeStamp(std::chrono::nanoseconds time)
{
    if (time - begin <= last) {
        return {};
    }
    last = time - begin;
    return "#" + std::to_string(last.count()) + "\n";
}

} // namespace panelsim
