#include "tests/lab/LabPins.h"

#include "sysfs/SysfsGpioFactory.h"

#include <stdexcept>
#include <utility>

using Op = panelsim::PinOperation;
using Direction = sysfs::PinDirectionEn;

namespace {

const LabPins* installed = nullptr;

/** An exception derived from nothing. */
struct ForeignException {};

class LabPin final : public sysfs::ISysfsGpio {
public:
    LabPin(const LabPins& itsPins, std::unique_ptr<sysfs::ISysfsGpio> itsPin) : pins(itsPins), pin(std::move(itsPin)) {}

    bool init(bool inverted, Direction direction, bool value) override
    {
        return pins.perform(Op::Init, gpio, [&] { return pin->init(inverted, direction, value); });
    }
    void deinit() override
    {
        pins.perform(Op::Deinit, gpio, [&] { return pin->deinit(), true; });
    }
    void setDirection(Direction direction) override
    {
        pins.perform(Op::SetDirection, gpio, [&] { return pin->setDirection(direction), true; });
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
        pins.perform(Op::Export, gpio, [&] { return pin->exportGpio(number), true; });
    }
    unsigned getGpioNumber() const override { return gpio; }

private:
    const LabPins& pins;
    const std::unique_ptr<sysfs::ISysfsGpio> pin;
    unsigned gpio = 0;
};

} // namespace

std::unique_ptr<sysfs::ISysfsGpio> sysfs::SysfsGpioFactory::create() const
{
    return installed->create();
}

LabPins::LabPins(panelsim::Board& itsBoard, const PinFailure& itsFailure)
    : failure(itsFailure), config(itsBoard.getConfig()), factory(itsBoard)
{
    installed = this;
}

LabPins::~LabPins()
{
    installed = nullptr;
}

std::unique_ptr<sysfs::ISysfsGpio> LabPins::create() const
{
    std::unique_ptr<sysfs::ISysfsGpio> pin;
    perform(Op::Create, 0, [&] { return pin = std::make_unique<LabPin>(*this, factory.create()), true; });
    return pin;
}

template <typename Effect>
bool LabPins::perform(Op operation, unsigned gpio, Effect effect) const
{
    const bool ownThread = std::this_thread::get_id() == owner;
    const unsigned backlight = config.ledGpioBase + config.ledCount;
    const bool isKey = operation == Op::GetValue && gpio < config.keyGpioBase + config.keyCount;
    const bool foreign = failure.kind == PinFailure::Foreign;
    ++operations;
    const bool due = failure.operation != 0 &&
                     (failure.lasting ? operations >= failure.operation : operations == failure.operation) &&
                     (failure.kind != PinFailure::False || operation == Op::Init || operation == Op::SetValue) &&
                     (!foreign || ownThread);
    failed |= due;
    if (due && failure.kind == PinFailure::False) {
        record.refused = true;
        record.backlightRefused |= gpio == backlight;
        return false;
    }
    if (isKey) {
        record.keyReads.push_back(false);
    }
    try {
        const bool result = (due && failure.kind != PinFailure::After) || effect();
        if (due) {
            foreign ? throw ForeignException() : throw std::runtime_error("made to fail");
        }
        if (isKey) {
            record.keyReads.back() = true;
        }
        return result;
    } catch (...) { // also one of the pin's own, after an earlier failure
        if (ownThread) {
            record.foreign |= due && foreign;
            record.thrown += due && foreign ? 0 : 1;
            record.escapes |= operation < Op::SetDirection || (gpio >= config.ledGpioBase && gpio < backlight);
        }
        throw;
    }
}
