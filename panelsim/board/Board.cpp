#include "panelsim/board/Board.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace panelsim {

namespace {

/** The LCD's other lines, in the order of their GPIO numbers. */
constexpr std::array controlLines = {&LcdLevels::registerSelect, &LcdLevels::chipSelect, &LcdLevels::readStrobe,
                                     &LcdLevels::writeStrobe, &LcdLevels::reset};

[[noreturn]] void throwGpioError(unsigned gpio, int error, const char* what)
{
    throw std::system_error(error, std::generic_category(), "GPIO " + std::to_string(gpio) + ": " + what);
}

bool bitOf(unsigned value, unsigned index)
{
    return (value >> index & 1U) != 0;
}

bool matches(const PinFault& fault, PinOperation operation, std::optional<unsigned> gpio)
{
    const bool canReturnFalse = operation == PinOperation::Init || operation == PinOperation::SetValue;
    return (!fault.gpio || fault.gpio == gpio) && (!fault.operation || fault.operation == operation) &&
           (fault.kind == PinFault::Kind::Throw || canReturnFalse);
}

} // namespace

std::chrono::nanoseconds Board::steadyTime()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

Board::Board(BoardConfig boardConfig, Clock boardClock)
    : config(std::move(boardConfig)), clock(std::move(boardClock)),
      bus(config.chip, config.shortestStrobe, config.silentChip)
{
    const auto floating = [](unsigned) { return std::optional<bool>(); };
    addLines(config.idGpioBase, idLineCount, [this](unsigned bit) { return bitOf(config.panelId, bit); });
    addLines(config.keyGpioBase, config.keyCount, [](unsigned) { return false; });
    addLines(config.ledGpioBase, config.ledCount + (config.hasLcd ? 1 : 0), floating);
    if (config.hasLcd) {
        addLines(config.lcdGpioBase, dataLineCount, floating);
        // The control lines that idle high are pulled up.
        addLines(config.lcdGpioBase + dataLineCount, controlLines.size(), [](unsigned control) {
            return LcdLevels().*controlLines.at(control) ? std::optional(true) : std::nullopt;
        });
    }
    for (const auto& [gpio, level] : config.stuckLines) {
        Line& line = lineAt(gpio);
        line.stuck = level;
        update(line);
        follow(line);
    }
}

void Board::addLines(unsigned firstGpio, unsigned count, const std::function<std::optional<bool>(unsigned)>& drivenTo)
{
    for (unsigned i = 0; i < count; ++i) {
        const auto [added, isNew] = lines.emplace(firstGpio + i, Line{firstGpio + i, drivenTo(i)});
        if (!isNew) {
            throw std::invalid_argument("GPIO " + std::to_string(firstGpio + i) + " is wired twice");
        }
        update(added->second);
    }
}

std::chrono::nanoseconds Board::time() const
{
    const std::chrono::nanoseconds real = clock();
    latest = std::max(latest, std::min(operationTime.value_or(real), real));
    return latest;
}

void Board::releaseAll(Hand hand)
{
    for (unsigned key = 0; key < config.keyCount; ++key) {
        release(key, hand);
    }
}

void Board::setKey(unsigned number, Hand hand, bool pressed)
{
    const Lock lock(mutex);
    if (number >= config.keyCount) {
        throw std::out_of_range("there is no key " + std::to_string(number));
    }
    Line& key = lineAt(config.keyGpioBase + number);
    if (pressed) {
        key.hands.insert(hand);
    } else {
        key.hands.erase(hand);
    }
    key.other = !key.hands.empty();
    update(key);
}

PanelView Board::view() const
{
    const Lock lock(mutex);
    PanelView view;
    for (unsigned i = 0; i < config.keyCount; ++i) {
        view.keys.push_back(!lineAt(config.keyGpioBase + i).hands.empty());
    }
    const auto isLit = [this](unsigned light, bool isInverted) {
        return lineAt(config.ledGpioBase + light).level == (isInverted ? LineLevel::Low : LineLevel::High);
    };
    for (unsigned i = 0; i < config.ledCount; ++i) {
        const auto& inverted = config.invertedLeds;
        view.leds.push_back(isLit(i, std::find(inverted.begin(), inverted.end(), i) != inverted.end()));
    }
    if (config.hasLcd) {
        const LcdChip& chip = bus.chip();
        const bool backlight = isLit(config.ledCount, config.backlightInverted);
        view.lcd = LcdView{config.chip, chip.identified(), chip.displayOn(), backlight, chip.contrast(), chip.shown()};
    }
    return view;
}

std::size_t Board::claimedLines() const
{
    const Lock lock(mutex);
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [](const auto& entry) { return entry.second.claimed; }));
}

void Board::observe(std::function<void(const LineChange&)> newObserver)
{
    const Lock lock(mutex);
    observer = std::move(newObserver);
    if (observer) {
        const std::chrono::nanoseconds start = time();
        for (const auto& [gpio, line] : lines) {
            observer({start, gpio, line.level});
        }
    }
}

bool Board::admit(PinOperation operation, std::optional<unsigned> gpio)
{
    const Lock lock(mutex);
    ++operations;
    std::optional<PinFault::Kind> due;
    for (auto& [fault, calls] : faults) {
        if (matches(fault, operation, gpio) && ++calls >= fault.call &&
            (!fault.calls || calls - fault.call < *fault.calls)) {
            due = fault.kind;
        }
    }
    if (due == PinFault::Kind::Throw) {
        throw std::runtime_error((gpio ? "GPIO " + std::to_string(*gpio) : "pin factory") + ": made to fail");
    }
    return !due;
}

void Board::claim(unsigned gpio)
{
    const Lock lock(mutex);
    if (std::exchange(lineAt(gpio).claimed, true)) {
        throwGpioError(gpio, EBUSY, "in use by another process or pin object");
    }
}

bool Board::read(unsigned gpio)
{
    const Lock lock(mutex);
    Line& line = lineAt(gpio);
    ++line.reads;
    return line.level == LineLevel::High;
}

Board::Line& Board::lineAt(unsigned gpio)
{
    return const_cast<Line&>(std::as_const(*this).lineAt(gpio));
}

const Board::Line& Board::lineAt(unsigned gpio) const
{
    const auto found = lines.find(gpio);
    if (found == lines.end()) {
        throwGpioError(gpio, EINVAL, "no such GPIO on this board");
    }
    return found->second;
}

void Board::setOutput(unsigned gpio, std::optional<bool> output, bool onlyIfOutput)
{
    const Lock lock(mutex);
    Line& line = lineAt(gpio);
    if (onlyIfOutput && !line.output) {
        throwGpioError(gpio, EPERM, "the line is an input");
    }
    if (std::exchange(line.output, output) != output) {
        update(line);
        follow(line);
    }
}

/** Gives the line its level when what drives it has changed. */
void Board::update(Line& line)
{
    const auto driven = line.stuck ? line.stuck : line.output ? line.output : line.other;
    const LineLevel level = !driven ? LineLevel::Floating : *driven ? LineLevel::High : LineLevel::Low;
    if (std::exchange(line.level, level) != level && observer) {
        observer({time(), line.gpio, level});
    }
}

/** Has the panel do what the line says. */
void Board::follow(const Line& line)
{
    const unsigned index = line.gpio - config.lcdGpioBase;
    if (!config.hasLcd || index >= dataLineCount + controlLines.size()) {
        return;
    }
    const bool high = line.level == LineLevel::High;
    if (index < dataLineCount) {
        levels.data[index] = line.output && high;
        levels.dataDriven[index] = line.output.has_value();
    } else {
        levels.*controlLines.at(index - dataLineCount) = high;
    }
    const std::optional<unsigned char> drivenBefore = bus.drivenByte();
    bus.update(levels, time());
    const std::optional<unsigned char> driven = bus.drivenByte();
    for (unsigned i = 0; i < dataLineCount && driven != drivenBefore; ++i) {
        Line& data = lineAt(config.lcdGpioBase + i);
        data.other = driven ? std::optional(bitOf(*driven, i)) : std::nullopt;
        update(data);
    }
}

} // namespace panelsim
