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

LineLevel toLevel(bool high)
{
    return high ? LineLevel::High : LineLevel::Low;
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
    : config(std::move(boardConfig)), clock(std::move(boardClock)), keys(config.keyCount),
      bus(config.chip, config.shortestStrobe, config.silentChip)
{
    addLines(Role::Id, config.idGpioBase, idLineCount);
    addLines(Role::Key, config.keyGpioBase, config.keyCount);
    addLines(Role::Light, config.ledGpioBase, config.ledCount + (config.hasLcd ? 1 : 0));
    if (config.hasLcd) {
        addLines(Role::LcdData, config.lcdGpioBase, dataLineCount);
        addLines(Role::LcdControl, config.lcdGpioBase + dataLineCount, controlLines.size());
    }
    for (const auto& stuck : config.stuckLines) {
        if (lines.count(stuck.first) == 0) {
            throw std::invalid_argument("GPIO " + std::to_string(stuck.first) + " is not on this board");
        }
        follow(lineAt(stuck.first));
    }
}

void Board::addLines(Role role, unsigned firstGpio, unsigned count)
{
    for (unsigned i = 0; i < count; ++i) {
        if (!lines.emplace(firstGpio + i, Line{role, firstGpio + i, i}).second) {
            throw std::invalid_argument("GPIO " + std::to_string(firstGpio + i) + " is wired twice");
        }
    }
}

std::chrono::nanoseconds Board::now() const
{
    const Lock lock(mutex);
    return time();
}

std::chrono::nanoseconds Board::time() const
{
    const std::chrono::nanoseconds real = clock();
    latest = std::max(latest, std::min(operationTime.value_or(real), real));
    return latest;
}

void Board::setOperationTime(std::optional<std::chrono::nanoseconds> newTime)
{
    const Lock lock(mutex);
    operationTime = newTime;
}

void Board::releaseAll(Hand hand)
{
    for (unsigned key = 0; key < keys.size(); ++key) {
        release(key, hand);
    }
}

void Board::setKey(unsigned number, Hand hand, bool pressed)
{
    const Lock lock(mutex);
    if (number >= keys.size()) {
        throw std::out_of_range("there is no key " + std::to_string(number));
    }
    Key& key = keys[number];
    const bool before = !key.hands.empty();
    if (pressed) {
        key.hands.insert(hand);
    } else {
        key.hands.erase(hand);
    }
    if (key.hands.empty() == before) {
        key.seen = false;
        notifyObserver(lineAt(config.keyGpioBase + number));
        listener();
    }
}

std::uint64_t Board::keyReads(unsigned key) const
{
    const Lock lock(mutex);
    return keys.at(key).reads;
}

PanelView Board::view() const
{
    const Lock lock(mutex);
    PanelView view;
    for (const Key& key : keys) {
        view.keys.push_back(!key.hands.empty());
    }
    for (unsigned i = 0; i < config.ledCount; ++i) {
        const auto& inverted = config.invertedLeds;
        const bool isInverted = std::find(inverted.begin(), inverted.end(), i) != inverted.end();
        view.leds.push_back(isLit(config.ledGpioBase + i, isInverted));
    }
    if (config.hasLcd) {
        const LcdChip& chip = bus.chip();
        const bool backlight = isLit(config.ledGpioBase + config.ledCount, config.backlightInverted);
        view.lcd = LcdView{config.chip, chip.identified(), chip.displayOn(), backlight, chip.contrast(), chip.shown()};
    }
    return view;
}

void Board::onChange(std::function<void()> newListener)
{
    const Lock lock(mutex);
    listener = std::move(newListener);
}

void Board::failPin(const PinFault& fault)
{
    const Lock lock(mutex);
    faults.push_back(fault);
}

void Board::clearPinFaults()
{
    const Lock lock(mutex);
    faults.clear();
}

std::uint64_t Board::pinOperations() const
{
    const Lock lock(mutex);
    return operations;
}

std::size_t Board::claimedLines() const
{
    const Lock lock(mutex);
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [](const auto& entry) { return entry.second.claimed; }));
}

std::vector<BusFault> Board::busFaults() const
{
    const Lock lock(mutex);
    return bus.faults();
}

std::uint64_t Board::busFaultCount() const
{
    const Lock lock(mutex);
    return bus.faultCount();
}

void Board::clearBusFaults()
{
    const Lock lock(mutex);
    bus.clearFaults();
    listener();
}

LineLevel Board::lineLevel(unsigned gpio) const
{
    const Lock lock(mutex);
    return levelOf(lineAt(gpio));
}

void Board::observe(std::function<void(const LineChange&)> newObserver)
{
    const Lock lock(mutex);
    observer = std::move(newObserver);
    if (observer) {
        const std::chrono::nanoseconds start = time();
        for (const auto& [gpio, line] : lines) {
            observer({start, gpio, levelOf(line)});
        }
    }
}

unsigned char Board::lcdRegister(unsigned char reg) const
{
    const Lock lock(mutex);
    return bus.chip().registerValue(reg);
}

bool Board::admit(PinOperation operation, std::optional<unsigned> gpio)
{
    const Lock lock(mutex);
    ++operations;
    std::optional<PinFault::Kind> due;
    for (PinFault& fault : faults) {
        if (matches(fault, operation, gpio) && (fault.call == 0 || --fault.call == 0)) {
            due = fault.kind;
            fault.calls = fault.calls ? std::optional(*fault.calls - 1) : std::nullopt;
        }
    }
    const auto isSpent = [](const PinFault& fault) { return fault.calls == 0; };
    faults.erase(std::remove_if(faults.begin(), faults.end(), isSpent), faults.end());
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

void Board::unclaim(unsigned gpio)
{
    const Lock lock(mutex);
    lineAt(gpio).claimed = false;
}

void Board::makeInput(unsigned gpio)
{
    const Lock lock(mutex);
    setOutput(lineAt(gpio), std::nullopt);
}

void Board::makeOutput(unsigned gpio, bool level)
{
    const Lock lock(mutex);
    setOutput(lineAt(gpio), level);
}

void Board::drive(unsigned gpio, bool level)
{
    const Lock lock(mutex);
    Line& line = lineAt(gpio);
    if (!line.output) {
        throwGpioError(gpio, EPERM, "the line is an input");
    }
    setOutput(line, level);
}

bool Board::read(unsigned gpio)
{
    const Lock lock(mutex);
    const Line& line = lineAt(gpio);
    if (line.role == Role::Key) {
        ++keys[line.index].reads;
        if (!std::exchange(keys[line.index].seen, true)) {
            listener();
        }
    }
    return levelOf(line) == LineLevel::High;
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

void Board::setOutput(Line& line, std::optional<bool> output)
{
    if (line.output == output) {
        return;
    }
    const LineLevel before = levelOf(line);
    line.output = output;
    if (levelOf(line) != before) {
        notifyObserver(line);
    }
    follow(line);
}

LineLevel Board::levelOf(const Line& line) const
{
    const auto stuck = config.stuckLines.find(line.gpio);
    if (stuck != config.stuckLines.end()) {
        return toLevel(stuck->second);
    }
    if (line.output) {
        return toLevel(*line.output);
    }
    if (line.role == Role::Id) {
        return toLevel(bitOf(config.panelId, line.index));
    }
    if (line.role == Role::Key) {
        return toLevel(!keys[line.index].hands.empty());
    }
    if (line.role == Role::LcdData && bus.drivenByte()) {
        return toLevel(bitOf(*bus.drivenByte(), line.index));
    }
    const bool isPulledUp = line.role == Role::LcdControl && LcdLevels().*controlLines.at(line.index);
    return isPulledUp ? LineLevel::High : LineLevel::Floating;
}

bool Board::isLit(unsigned gpio, bool inverted) const
{
    return levelOf(lineAt(gpio)) == toLevel(!inverted);
}

void Board::notifyObserver(const Line& line)
{
    if (observer) {
        observer({time(), line.gpio, levelOf(line)});
    }
}

void Board::follow(const Line& line)
{
    const bool high = levelOf(line) == LineLevel::High;
    switch (line.role) {
    case Role::Id:
    case Role::Key:
        break;
    case Role::Light:
        listener();
        break;
    case Role::LcdData:
        levels.data[line.index] = line.output && high;
        levels.dataDriven[line.index] = line.output.has_value();
        updateBus();
        break;
    case Role::LcdControl:
        levels.*controlLines.at(line.index) = high;
        updateBus();
        break;
    }
}

void Board::updateBus()
{
    const std::uint64_t before = bus.changeCount();
    const std::optional<unsigned char> drivenBefore = bus.drivenByte();
    bus.update(levels, time());
    for (unsigned i = 0; i < dataLineCount && bus.drivenByte() != drivenBefore; ++i) {
        const Line& line = lineAt(config.lcdGpioBase + i);
        if (!line.output) {
            notifyObserver(line);
        }
    }
    if (bus.changeCount() != before) {
        listener();
    }
}

} // namespace panelsim
