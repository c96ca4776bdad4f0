#include "panelsim/board/BoardGpio.h"

#include <stdexcept>
#include <string>

namespace panelsim {

BoardGpio::BoardGpio(Board& itsBoard) : board(itsBoard)
{
}

BoardGpio::~BoardGpio()
{
    giveFree();
}

bool BoardGpio::init(bool isInverted, sysfs::PinDirectionEn direction, bool initialValue)
{
    if (!board.admit(PinOperation::Init, getGpioNumber())) {
        return false;
    }
    inverted = isInverted;
    level = initialValue;
    initialised = true;
    applyDirection(direction);
    return true;
}

void BoardGpio::deinit()
{
    const std::optional<unsigned> released = number;
    giveFree();
    board.admit(PinOperation::Deinit, released);
}

void BoardGpio::setDirection(sysfs::PinDirectionEn direction)
{
    board.admit(PinOperation::SetDirection, getGpioNumber());
    if (!initialised) {
        throw std::logic_error("GPIO " + std::to_string(*number) + ": setDirection before init");
    }
    applyDirection(direction);
}

bool BoardGpio::setValue(bool value)
{
    if (!board.admit(PinOperation::SetValue, getGpioNumber())) {
        return false;
    }
    board.drive(*number, value != inverted);
    level = value;
    return true;
}

bool BoardGpio::getValue() const
{
    board.admit(PinOperation::GetValue, getGpioNumber());
    return board.read(*number) != inverted;
}

void BoardGpio::exportGpio(unsigned gpioNumber)
{
    board.admit(PinOperation::Export, gpioNumber);
    if (number) {
        throw std::logic_error("GPIO " + std::to_string(*number) + ": this pin is already exported");
    }
    board.claim(gpioNumber);
    number = gpioNumber;
}

unsigned BoardGpio::getGpioNumber() const
{
    if (!number) {
        throw std::logic_error("pin used before exportGpio");
    }
    return *number;
}

void BoardGpio::applyDirection(sysfs::PinDirectionEn direction)
{
    if (direction == sysfs::PinDirectionEn::Output) {
        board.makeOutput(*number, level != inverted);
    } else {
        board.makeInput(*number);
    }
}

void BoardGpio::giveFree()
{
    if (number) {
        board.unclaim(*number);
        number.reset();
        initialised = false;
    }
}

} // namespace panelsim
