#include "tests/lab/LabPins.h"

#include <exception>
#include <stdexcept>

using panelsim::PinOperation;
using sysfs::PinDirectionEn;

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

    bool init(bool inverted, PinDirectionEn direction, bool value) override
    {
        return pins.perform(PinOperation::Init, gpio, [&] { return pin->init(inverted, direction, value); });
    }
    void deinit() override
    {
        pins.perform(PinOperation::Deinit, gpio, [&] { return pin->deinit(), true; });
    }
    void setDirection(PinDirectionEn direction) override
    {
        pins.perform(PinOperation::SetDirection, gpio, [&] { return pin->setDirection(direction), true; });
    }
    bool setValue(bool value) override
    {
        return pins.perform(PinOperation::SetValue, gpio, [&] { return pin->setValue(value); });
    }
    bool getValue() const override
    {
        return pins.perform(PinOperation::GetValue, gpio, [&] { return pin->getValue(); });
    }
    void exportGpio(unsigned number) override
    {
        gpio = number;
        pins.perform(PinOperation::Export, gpio, [&] { return pin->exportGpio(number), true; });
    }
    unsigned getGpioNumber() const override { return gpio; }

private:
    const LabPins& pins;
    std::unique_ptr<sysfs::ISysfsGpio> pin;
    unsigned gpio = 0;
};

} // namespace

std::unique_ptr<sysfs::ISysfsGpio> LabPins::create() const
{
    std::unique_ptr<sysfs::ISysfsGpio> pin;
    perform(PinOperation::Create, 0, [&] { return pin = std::make_unique<LabPin>(*this, factory.create()), true; });
    return pin;
}

bool LabPins::perform(PinOperation operation, unsigned gpio, const std::function<bool()>& effect) const
{
    const bool ownThread = std::this_thread::get_id() == owner;
    PinRecord& now = ownThread ? record : polled;
    const bool canRefuse = operation == PinOperation::Init || operation == PinOperation::SetValue;
    ++operations;
    const bool due = failure.operation != 0 &&
                     (failure.lasting ? operations >= failure.operation : operations == failure.operation) &&
                     (failure.kind != PinFailure::Kind::False || canRefuse) &&
                     (failure.kind != PinFailure::Kind::Foreign || ownThread);
    now.ledWrites += isLed(gpio) && operation == PinOperation::SetValue ? 1 : 0;
    const bool isRead = operation == PinOperation::GetValue && !isLcd(gpio);
    if (isRead) {
        now.reads.emplace_back(gpio, std::nullopt);
    }
    try {
        const bool result = due ? fail(now, operation, gpio, effect) : effect();
        if (isRead) {
            now.reads.back().second = result;
        }
        return result;
    } catch (const std::exception&) { // also one of the pin's own, after an earlier failure
        ++now.thrown;
        note(now, operation, gpio);
        throw;
    }
}

bool LabPins::fail(PinRecord& now, PinOperation operation, unsigned gpio, const std::function<bool()>& effect) const
{
    everFailed = true;
    switch (failure.kind) {
    case PinFailure::Kind::False:
        now.refused = true;
        now.lcdInitRefused |= operation == PinOperation::Init && isLcd(gpio);
        now.backlightRefused |= gpio == backlight();
        return false;
    case PinFailure::Kind::Foreign:
        now.foreign = true;
        note(now, operation, gpio);
        throw ForeignException();
    case PinFailure::Kind::After:
        effect();
        break;
    case PinFailure::Kind::Before:
        break;
    }
    throw std::runtime_error("made to fail");
}

void LabPins::note(PinRecord& now, PinOperation operation, unsigned gpio) const
{
    now.setUpThrew |= operation < PinOperation::SetDirection;
    now.ledThrew |= isLed(gpio) && operation == PinOperation::SetValue;
}
