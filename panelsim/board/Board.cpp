#include "panelsim/board/Board.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace panelsim {

namespace {

constexpr unsigned idLineCount = 4;
constexpr unsigned dataLineCount = 8;

[[noreturn]] void throwGpioError(unsigned gpio, int error, const char* what)
{
    throw std::system_error(error, std::generic_category(), "GPIO " + std::to_string(gpio) + ": " + what);
}

void setBit(unsigned char& byte, unsigned index, bool value)
{
    const unsigned bit = 1U << index;
    byte = static_cast<unsigned char>(value ? byte | bit : byte & ~bit);
}

LineLevel toLevel(bool high)
{
    return high ? LineLevel::High : LineLevel::Low;
}

bool canAnswerFalse(PinOperation operation)
{
    return operation == PinOperation::Init || operation == PinOperation::SetValue;
}

bool matches(const PinFault& fault, PinOperation operation, std::optional<unsigned> gpio)
{
    return (!fault.gpio || fault.gpio == gpio) && (!fault.operation || *fault.operation == operation) &&
           (fault.kind == PinFault::Kind::Throw || canAnswerFalse(operation));
}

} // namespace

std::chrono::nanoseconds Board::steadyTime()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

Board::Board(BoardConfig boardConfig, Clock boardClock)
    : config(std::move(boardConfig)), clock(std::move(boardClock)), keys(config.keyCount)
{
    addLines(Role::Id, config.idGpioBase, idLineCount);
    addLines(Role::Key, config.keyGpioBase, config.keyCount);
    addLines(Role::Led, config.ledGpioBase, config.ledCount);
    if (config.hasLcd) {
        const unsigned afterData = config.lcdGpioBase + dataLineCount;
        addLines(Role::Backlight, config.ledGpioBase + config.ledCount, 1);
        addLines(Role::LcdData, config.lcdGpioBase, dataLineCount);
        addLines(Role::LcdRegisterSelect, afterData, 1);
        addLines(Role::LcdChipSelect, afterData + 1, 1, LineLevel::High);
        addLines(Role::LcdReadStrobe, afterData + 2, 1, LineLevel::High);
        addLines(Role::LcdWriteStrobe, afterData + 3, 1, LineLevel::High);
        addLines(Role::LcdReset, afterData + 4, 1, LineLevel::High);
        bus.emplace(config.chip, config.shortestStrobe, config.silentChip);
    }
    for (const auto& [gpio, level] : config.stuckLines) {
        if (lines.count(gpio) == 0) {
            throw std::invalid_argument("GPIO " + std::to_string(gpio) + " cannot be stuck: it is not on this board");
        }
        follow(lineAt(gpio));
    }
}

std::chrono::nanoseconds Board::now() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return clock();
}

void Board::addLines(Role role, unsigned firstGpio, unsigned count, LineLevel pull)
{
    for (unsigned i = 0; i < count; ++i) {
        Line line;
        line.role = role;
        line.gpio = firstGpio + i;
        line.index = i;
        line.pull = pull;
        if (!lines.emplace(firstGpio + i, line).second) {
            throw std::invalid_argument("GPIO " + std::to_string(firstGpio + i) + " is wired twice");
        }
    }
}

void Board::press(unsigned key)
{
    setKey(key, true);
}

void Board::release(unsigned key)
{
    setKey(key, false);
}

void Board::setKey(unsigned key, bool isPressed)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (keyAt(key).pressed == isPressed) {
        return;
    }
    keys[key].pressed = isPressed;
    keys[key].seen = false;
    tellObserver(lineAt(config.keyGpioBase + key));
    tellListener();
}

const Board::Key& Board::keyAt(unsigned key) const
{
    if (key >= keys.size()) {
        throw std::out_of_range("there is no key " + std::to_string(key));
    }
    return keys[key];
}

std::uint64_t Board::keyReads(unsigned key) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return keyAt(key).reads;
}

PanelView Board::view() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return currentView();
}

void Board::onChange(std::function<void()> newListener)
{
    const std::lock_guard<std::mutex> lock(mutex);
    listener = std::move(newListener);
}

void Board::failPin(const PinFault& fault)
{
    const std::lock_guard<std::mutex> lock(mutex);
    faults.push_back({fault});
}

void Board::clearPinFaults()
{
    const std::lock_guard<std::mutex> lock(mutex);
    faults.clear();
}

std::uint64_t Board::pinOperations() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return operations;
}

std::size_t Board::claimedLines() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [](const auto& entry) { return entry.second.claimed; }));
}

std::vector<BusFault> Board::busFaults() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return bus ? bus->faults() : std::vector<BusFault>();
}

std::uint64_t Board::busFaultCount() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return bus ? bus->faultCount() : 0;
}

void Board::clearBusFaults()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (bus) {
        bus->clearFaults();
        tellListener();
    }
}

LineLevel Board::lineLevel(unsigned gpio) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return levelOf(lineAt(gpio));
}

void Board::observe(std::function<void(const LineChange&)> newObserver)
{
    const std::lock_guard<std::mutex> lock(mutex);
    observer = std::move(newObserver);
    if (observer) {
        const std::chrono::nanoseconds time = clock();
        for (const auto& [gpio, line] : lines) {
            observer({time, gpio, levelOf(line)});
        }
    }
}

unsigned char Board::lcdRegister(unsigned char reg) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return bus.value().chip().registerValue(reg);
}

bool Board::admit(PinOperation operation, std::optional<unsigned> gpio)
{
    const std::lock_guard<std::mutex> lock(mutex);
    ++operations;
    if (faults.empty()) {
        return true;
    }
    return !isDue(operation, gpio);
}

bool Board::isDue(PinOperation operation, std::optional<unsigned> gpio)
{
    std::optional<PinFault::Kind> due;
    for (ArmedFault& armed : faults) {
        if (matches(armed.fault, operation, gpio)) {
            ++armed.calls;
            if (armed.calls >= armed.fault.call) {
                due = armed.fault.kind;
            }
        }
    }
    faults.erase(std::remove_if(faults.begin(), faults.end(), isSpent), faults.end());
    if (due == PinFault::Kind::Throw) {
        throw std::runtime_error((gpio ? "GPIO " + std::to_string(*gpio) : std::string("pin factory")) +
                                 ": made to fail");
    }
    return due.has_value();
}

bool Board::isSpent(const ArmedFault& armed)
{
    // No overflow: counted from the first call that fails, which is at least 1.
    return armed.fault.calls && armed.calls >= armed.fault.call &&
           armed.calls - armed.fault.call + 1 >= *armed.fault.calls;
}

void Board::claim(unsigned gpio)
{
    const std::lock_guard<std::mutex> lock(mutex);
    Line& line = lineAt(gpio);
    if (line.claimed) {
        throwGpioError(gpio, EBUSY, "in use by another process or pin object");
    }
    line.claimed = true;
}

void Board::unclaim(unsigned gpio)
{
    const std::lock_guard<std::mutex> lock(mutex);
    lineAt(gpio).claimed = false;
}

void Board::makeInput(unsigned gpio)
{
    const std::lock_guard<std::mutex> lock(mutex);
    setLine(lineAt(gpio), false, false);
}

void Board::makeOutput(unsigned gpio, bool level)
{
    const std::lock_guard<std::mutex> lock(mutex);
    setLine(lineAt(gpio), true, level);
}

void Board::drive(unsigned gpio, bool level)
{
    const std::lock_guard<std::mutex> lock(mutex);
    Line& line = lineAt(gpio);
    if (!line.driven) {
        throwGpioError(gpio, EPERM, "the line is an input");
    }
    setLine(line, true, level);
}

bool Board::read(unsigned gpio)
{
    const std::lock_guard<std::mutex> lock(mutex);
    const Line& line = lineAt(gpio);
    if (line.role == Role::Key) {
        Key& key = keys[line.index];
        ++key.reads;
        if (!std::exchange(key.seen, true)) {
            tellListener();
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

void Board::setLine(Line& line, bool driven, bool level)
{
    if (line.driven == driven && line.output == level) {
        return;
    }
    const LineLevel before = levelOf(line);
    line.driven = driven;
    line.output = level;
    if (levelOf(line) != before) {
        tellObserver(line);
    }
    follow(line);
}

LineLevel Board::levelOf(const Line& line) const
{
    const auto stuck = config.stuckLines.find(line.gpio);
    if (stuck != config.stuckLines.end()) {
        return toLevel(stuck->second);
    }
    if (line.driven) {
        return toLevel(line.output);
    }
    switch (line.role) {
    case Role::Id:
        return toLevel((config.panelId >> line.index & 1U) != 0);
    case Role::Key:
        return toLevel(keys[line.index].pressed);
    case Role::LcdData:
        return bus->drivenByte() ? toLevel((*bus->drivenByte() >> line.index & 1U) != 0) : line.pull;
    default:
        return line.pull;
    }
}

void Board::tellObserver(const Line& line)
{
    if (observer) {
        observer({clock(), line.gpio, levelOf(line)});
    }
}

void Board::tellListener()
{
    if (listener) {
        listener();
    }
}

bool Board::isLit(unsigned gpio, bool inverted) const
{
    const LineLevel level = levelOf(lineAt(gpio));
    return level != LineLevel::Floating && level != toLevel(inverted);
}

void Board::follow(const Line& line)
{
    const bool level = levelOf(line) == LineLevel::High;
    switch (line.role) {
    case Role::Id:
    case Role::Key:
        return;
    case Role::Led:
    case Role::Backlight:
        tellListener();
        return;
    case Role::LcdData:
        setBit(levels.data, line.index, line.driven && level);
        setBit(levels.dataDriven, line.index, line.driven);
        break;
    case Role::LcdRegisterSelect:
        levels.registerSelect = level;
        break;
    case Role::LcdChipSelect:
        levels.chipSelect = level;
        break;
    case Role::LcdReadStrobe:
        levels.readStrobe = level;
        break;
    case Role::LcdWriteStrobe:
        levels.writeStrobe = level;
        break;
    case Role::LcdReset:
        levels.reset = level;
        break;
    }
    updateBus();
}

void Board::updateBus()
{
    const std::uint64_t before = bus->changeCount();
    const std::optional<unsigned char> drivenBefore = bus->drivenByte();
    bus->update(levels, clock());
    if (observer && bus->drivenByte() != drivenBefore) {
        for (unsigned i = 0; i < dataLineCount; ++i) {
            const Line& line = lineAt(config.lcdGpioBase + i);
            if (!line.driven) {
                tellObserver(line);
            }
        }
    }
    if (bus->changeCount() != before) {
        tellListener();
    }
}

PanelView Board::currentView() const
{
    PanelView view;
    for (const Key& key : keys) {
        view.keys.push_back(key.pressed);
    }
    for (unsigned i = 0; i < config.ledCount; ++i) {
        const bool inverted =
            std::find(config.invertedLeds.begin(), config.invertedLeds.end(), i) != config.invertedLeds.end();
        view.leds.push_back(isLit(config.ledGpioBase + i, inverted));
    }
    if (bus) {
        const LcdChip& chip = bus->chip();
        LcdView& lcd = view.lcd.emplace();
        lcd.chip = config.chip;
        lcd.identified = chip.identified();
        lcd.displayOn = chip.displayOn();
        lcd.backlight = isLit(config.ledGpioBase + config.ledCount, config.backlightInverted);
        lcd.contrast = chip.contrast();
        for (std::size_t row = 0; row < LcdChip::rows; ++row) {
            auto& line = lcd.lines.emplace_back();
            for (std::size_t column = 0; column < LcdChip::columns; ++column) {
                line.push_back(chip.shownCell(column, row));
            }
        }
    }
    return view;
}

} // namespace panelsim
