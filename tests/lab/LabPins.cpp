#include "tests/lab/LabPins.h"

#include "sysfs/SysfsGpioFactory.h"

#include <functional>
#include <stdexcept>
#include <type_traits>
#include <utility>

using sysfs::ISysfsGpio;
using Op = panelsim::PinOperation;
using Direction = sysfs::PinDirectionEn;

/** An exception derived from nothing. */
struct ForeignException {};

class LabPin final : public ISysfsGpio {
public:
    LabPin(const LabPins& itsPins, std::unique_ptr<ISysfsGpio> itsPin) : pins(itsPins), pin(std::move(itsPin)) {}

    bool init(bool inverted, Direction direction, bool value) override
    {
        return pins.perform(Op::Init, gpio, &ISysfsGpio::init, pin, inverted, direction, value);
    }
    void deinit() override { pins.perform(Op::Deinit, gpio, &ISysfsGpio::deinit, pin); }
    void setDirection(Direction to) override
    {
        pins.perform(Op::SetDirection, gpio, &ISysfsGpio::setDirection, pin, to);
    }
    bool setValue(bool value) override { return pins.perform(Op::SetValue, gpio, &ISysfsGpio::setValue, pin, value); }
    bool getValue() const override { return pins.perform(Op::GetValue, gpio, &ISysfsGpio::getValue, pin); }
    void exportGpio(unsigned number) override
    {
        gpio = number;
        pins.perform(Op::Export, gpio, &ISysfsGpio::exportGpio, pin, number);
    }
    unsigned getGpioNumber() const override { return gpio; }

private:
    const LabPins& pins;
    const std::unique_ptr<ISysfsGpio> pin;
    unsigned gpio = 0;
};

std::unique_ptr<ISysfsGpio> sysfs::SysfsGpioFactory::create() const
{
    return LabPins::installed->create();
}

std::unique_ptr<ISysfsGpio> LabPins::create() const
{
    std::unique_ptr<ISysfsGpio> pin;
    perform(Op::Create, 0, [&] { pin = std::make_unique<LabPin>(*this, factory.create()); });
    return pin;
}

template <typename... Effect>
bool LabPins::perform(Op operation, unsigned gpio, const Effect&... effect) const
{
    const bool ownThread = std::this_thread::get_id() == owner;
    const unsigned backlight = config.ledGpioBase + config.ledCount;
    const bool foreign = failure.kind == PinFailure::Foreign;
    ++operations;
    const bool due = (failure.lasting ? operations >= failure.operation : operations == failure.operation) &&
                     (failure.kind != PinFailure::False || operation == Op::Init || operation == Op::SetValue) &&
                     (!foreign || ownThread);
    failed |= due;
    record.polledReads += !ownThread && operation == Op::GetValue ? 1 : 0;
    if (due && failure.kind == PinFailure::False) {
        record.refused = true;
        record.backlightRefused |= gpio == backlight;
        return false;
    }
    try {
        bool result = true;
        if (!due || failure.kind == PinFailure::After) {
            if constexpr (std::is_void_v<decltype(std::invoke(effect...))>) {
                std::invoke(effect...);
            } else {
                result = std::invoke(effect...);
            }
        }
        if (due) {
            foreign ? throw ForeignException() : throw std::runtime_error("made to fail");
        }
        return result;
    } catch (...) { // also one of the pin's own, after an earlier failure
        if (ownThread) {
            ++record.thrown;
            record.foreign |= due && foreign;
            record.escapes |= operation < Op::SetDirection || (gpio >= config.ledGpioBase && gpio < backlight);
        }
        throw;
    }
}
