#include "frontpanelhw/fp/Indoor.h"

#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "sysfs/SysfsGpioFactory.h"

namespace frontpanelhw::fp {

Indoor::Indoor(unsigned keyGpioBase, unsigned ledGpioBase, unsigned lcdGpioBase, unsigned keyCount, unsigned ledCount,
               const std::vector<unsigned>& invertedLeds, const std::vector<unsigned>& ledsInitiallyOn)
{
    sysfs::SysfsGpioFactory factory;
    impl = std::make_unique<IndoorFpImpl>(factory, keyGpioBase, ledGpioBase, lcdGpioBase, keyCount, ledCount,
                                          invertedLeds, ledsInitiallyOn);
}

Indoor::~Indoor() = default;

void Indoor::connectAnyKeyChangedCb(const std::function<void(unsigned, bool)>& cb)
{
    impl->connectAnyKeyChangedCb(cb);
}

bool Indoor::setLed(unsigned index, bool on)
{
    return impl->setLed(index, on);
}

void Indoor::setAllLeds(bool on)
{
    impl->setAllLeds(on);
}

bool Indoor::start(bool lampTest, unsigned lampTestSeconds)
{
    return impl->start(lampTest, lampTestSeconds);
}

void Indoor::stop()
{
    impl->stop();
}

bool Indoor::isRunning()
{
    return impl->isRunning();
}

bool Indoor::clear()
{
    return impl->clear();
}

unsigned Indoor::getChars() const
{
    return impl->getChars();
}

unsigned Indoor::getLines() const
{
    return impl->getLines();
}

bool Indoor::printLine(unsigned line, const drawing::DisplayLine& text)
{
    return impl->printLine(line, text);
}

bool Indoor::printBuffer(const drawing::DisplayBuffer& buffer)
{
    return impl->printBuffer(buffer);
}

bool Indoor::resetController()
{
    return impl->resetController();
}

bool Indoor::swapPage()
{
    return impl->swapPage();
}

bool Indoor::enable(bool on)
{
    return impl->enable(on);
}

bool Indoor::setBacklight(bool on)
{
    return impl->setBacklight(on);
}

bool Indoor::setContrast(unsigned percent)
{
    return impl->setContrast(percent);
}

bool Indoor::restartDisplay()
{
    return impl->restartDisplay();
}

} // namespace frontpanelhw::fp
