#include "tests/lab/LabPins.h"

#include <exception>
#include <stdexcept>

using Op = panelsim::PinOperation;
using Direction = sysfs::PinDirectionEn;

namespace {

class LabPin final : public sysfs::ISysfsGpio {
public:
    LabPin(const LabPins& itsPins, std::unique_ptr<sysfs::ISysfsGpio> itsPin) : pins(itsPins), pin(std::move(itsPin))
    {
        ++pins.livePins;
    }
    ~LabPin() override { --pins.livePins; }
    LabPin(const LabPin&) = delete;
    LabPin& operator=(const LabPin&) = delete;

    bool init(bool inverted, Direction direction, bool value) override
    {
        return pins.perform(Op::Init, gpio, [&] { return pin->init(inverted, direction, value); });
    }
    void deinit() override
    {
        effect(Op::Deinit, [&] { pin->deinit(); });
    }
    void setDirection(Direction direction) override
    {
        effect(Op::SetDirection, [&] { pin->setDirection(direction); });
    }
    bool setValue(bool value) override
    {
        return pins.perform(Op::SetValue, gpio, [&] { return pin->setValue(value); });
    }
    bool getValue() const override
    {
        return pins.perform(Op::GetValue, gpio, [&] { return pin->getValue(); });
    }
    void exportGpio(unsigned number) override
    {
        gpio = number;
        effect(Op::Export, [&] { pin->exportGpio(number); });
    }
    unsigned getGpioNumber() const override { return gpio; }

private:
    template <typename Effect>
    void effect(Op operation, Effect done)
    {
        pins.perform(operation, gpio, [&] { return done(), true; });
    }

    const LabPins& pins;
    std::unique_ptr<sysfs::ISysfsGpio> pin;
    unsigned gpio = 0;
};

} // namespace

std::unique_ptr<sysfs::ISysfsGpio> LabPins::create() const
{
    std::unique_ptr<sysfs::ISysfsGpio> pin;
    perform(Op::Create, 0, [&] { return pin = std::make_unique<LabPin>(*this, factory.create()), true; });
    return pin;
}

bool LabPins::perform(Op operation, unsigned gpio, const std::function<bool()>& effect) const
{
    using Kind = PinFailure::Kind;
    const bool ownThread = std::this_thread::get_id() == owner;
    PinRecord& now = ownThread ? record : polled;
    ++operations;
    const bool due = failure.operation != 0 &&
                     (failure.lasting ? operations >= failure.operation : operations == failure.operation) &&
                     (failure.kind != Kind::False || operation == Op::Init || operation == Op::SetValue) &&
                     (failure.kind != Kind::Foreign || ownThread);
    everFailed |= due;
    const bool isLedWrite = operation == Op::SetValue && gpio >= board.getConfig().ledGpioBase && gpio < backlight();
    now.ledWrites += isLedWrite ? 1 : 0;
    const bool isLcd = board.getConfig().hasLcd && (gpio >= board.getConfig().lcdGpioBase || gpio == backlight());
    const bool isRead = operation == Op::GetValue && !isLcd;
    if (isRead) {
        now.reads.emplace_back(gpio, std::nullopt);
    }
    if (due && failure.kind == Kind::False) {
        now.refused = true;
        now.lcdInitRefused |= operation == Op::Init && isLcd;
        now.backlightRefused |= gpio == backlight();
        return false;
    }
    try {
        const bool result = (due && failure.kind != Kind::After) || effect();
        if (due && failure.kind == Kind::Foreign) {
            throw ForeignException();
        }
        if (due) {
            throw std::runtime_error("made to fail");
        }
        if (isRead) {
            now.reads.back().second = result;
        }
        return result;
    } catch (...) { // also one of the pin's own, after an earlier failure
        const bool foreign = due && failure.kind == Kind::Foreign;
        now.foreign |= foreign;
        now.thrown += foreign ? 0 : 1;
        now.setUpThrew |= operation < Op::SetDirection;
        now.ledThrew |= isLedWrite;
        throw;
    }
}
