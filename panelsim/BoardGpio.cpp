#include "panelsim/BoardGpio.h"

#include <stdexcept>

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
    if (!board.admit(PinOperation::Init, exportedNumber())) {
        return false;
    }
    inverted = isInverted;
    level = initialValue;
    applyDirection(direction);
    return true;
}

void BoardGpio::deinit()
{
    board.admit(PinOperation::Deinit, number);
    giveFree();
}

void BoardGpio::setDirection(sysfs::PinDirectionEn direction)
{
    board.admit(PinOperation::SetDirection, exportedNumber());
    applyDirection(direction);
}

bool BoardGpio::setValue(bool value)
{
    if (!board.admit(PinOperation::SetValue, exportedNumber())) {
        return false;
    }
    board.drive(exportedNumber(), value != inverted);
    level = value;
    return true;
}

bool BoardGpio::getValue() const
{
    board.admit(PinOperation::GetValue, exportedNumber());
    return board.read(exportedNumber()) != inverted;
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
    return number.value_or(0);
}

unsigned BoardGpio::exportedNumber() const
{
    if (!number) {
        throw std::logic_error("pin used before exportGpio");
    }
    return *number;
}

void BoardGpio::applyDirection(sysfs::PinDirectionEn direction)
{
    if (direction == sysfs::PinDirectionEn::Output) {
        board.makeOutput(exportedNumber(), level != inverted);
    } else {
        board.makeInput(exportedNumber());
    }
}

void BoardGpio::giveFree()
{
    if (number) {
        board.unclaim(*number);
        number.reset();
    }
}

} // namespace panelsim
