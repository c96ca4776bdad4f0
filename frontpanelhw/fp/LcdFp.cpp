#include "frontpanelhw/fp/LcdFp.h"

#include <utility>

namespace frontpanelhw::fp {

LcdFp::LcdFp(sysfs::ISysfsGpioFactory& factory, unsigned keyGpioBase, unsigned keyCount, unsigned ledGpioBase,
             unsigned ledCount, const std::vector<unsigned>& invertedLeds, const std::vector<unsigned>& ledsInitiallyOn)
    : FpBase(factory, keyGpioBase, keyCount, ledGpioBase, ledCount, invertedLeds, ledsInitiallyOn)
{
}

LcdFp::~LcdFp() = default;

bool LcdFp::initController(std::unique_ptr<lcd::LcdControllerBase> newController)
{
    controller = std::move(newController);
    return controller && controller->init();
}

bool LcdFp::setBacklight(bool on)
{
    return controller && controller->setBacklight(on);
}

bool LcdFp::setContrast(unsigned percent)
{
    return controller && controller->setContrast(percent);
}

void LcdFp::fullfillDisplay()
{
    if (!controller) {
        return;
    }
    drawing::DisplayLine filled(getChars());
    filled.setInverted(0, getChars() - 1, true);
    for (unsigned row = 0; row < getLines(); ++row) {
        controller->printLine(row, filled);
    }
    controller->setBacklight(true);
    controller->swapPage();
}

bool LcdFp::start(bool lampTest, unsigned lampTestSeconds)
{
    if (lampTest) {
        fullfillDisplay();
    }
    return FpBase::start(lampTest, lampTestSeconds);
}

bool LcdFp::clear()
{
    return controller && controller->clear();
}

bool LcdFp::printLine(unsigned line, const drawing::DisplayLine& text)
{
    return controller && controller->printLine(line, text);
}

bool LcdFp::printBuffer(const drawing::DisplayBuffer& buffer)
{
    if (!controller) {
        return false;
    }
    bool ok = true;
    for (unsigned i = 0; i < buffer.getLineCount(); ++i) {
        ok &= controller->printLine(i, buffer.getLine(i));
    }
    ok &= controller->swapPage();
    return ok;
}

bool LcdFp::resetController()
{
    return controller && controller->resetController() && controller->setBacklight(false);
}

bool LcdFp::swapPage()
{
    return controller && controller->swapPage();
}

} // namespace frontpanelhw::fp
