#include "panelsim/wire/RemoteGpio.h"

#include "panelsim/wire/PinLink.h"
#include "panelsim/wire/Protocol.h"

#include <exception>
#include <stdexcept>

namespace panelsim {

namespace {

using Operation = Request::Operation;

Request request(Operation operation, std::uint32_t pin)
{
    Request made;
    made.operation = operation;
    made.pin = pin;
    return made;
}

std::uint8_t isOutput(sysfs::PinDirectionEn direction)
{
    return direction == sysfs::PinDirectionEn::Output ? 1 : 0;
}

} // namespace

RemoteGpio::RemoteGpio() : pin(static_cast<std::uint32_t>(PinLink::perform(request(Operation::Create, 0))))
{
}

RemoteGpio::~RemoteGpio()
{
    try {
        PinLink::perform(request(Operation::Destroy, pin));
    } catch (const std::exception&) {
        // Without panelsim there is no line left to give free.
    }
}

bool RemoteGpio::init(bool inverted, sysfs::PinDirectionEn direction, bool initialValue)
{
    Request init = request(Operation::Init, pin);
    init.inverted = inverted ? 1 : 0;
    init.output = isOutput(direction);
    init.level = initialValue ? 1 : 0;
    return PinLink::perform(init) != 0;
}

void RemoteGpio::deinit()
{
    number.reset();
    PinLink::perform(request(Operation::Deinit, pin));
}

void RemoteGpio::setDirection(sysfs::PinDirectionEn direction)
{
    Request set = request(Operation::SetDirection, pin);
    set.output = isOutput(direction);
    PinLink::perform(set);
}

bool RemoteGpio::setValue(bool value)
{
    Request set = request(Operation::SetValue, pin);
    set.level = value ? 1 : 0;
    return PinLink::perform(set) != 0;
}

bool RemoteGpio::getValue() const
{
    return PinLink::perform(request(Operation::GetValue, pin)) != 0;
}

void RemoteGpio::exportGpio(unsigned gpioNumber)
{
    Request exported = request(Operation::Export, pin);
    exported.gpio = gpioNumber;
    PinLink::perform(exported);
    number = gpioNumber;
}

unsigned RemoteGpio::getGpioNumber() const
{
    if (!number) {
        throw std::logic_error("pin used before exportGpio");
    }
    return *number;
}

} // namespace panelsim
