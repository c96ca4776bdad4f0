#include "frontpanelhw/fp/IndoorFpImpl.h"

#include "frontpanelhw/lcd/IRaController.h"
#include "frontpanelhw/lcd/LcdRa8822GpioCreator.h"
#include "frontpanelhw/lcd/Ra8803RegistersController.h"
#include "frontpanelhw/lcd/Ra8806RegistersController.h"
#include "frontpanelhw/lcd/Ra8822LcdController.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <mutex>
#include <utility>

namespace frontpanelhw::fp {

namespace {

std::unique_ptr<lcd::LcdControllerBase> makeController(lcd::LcdRa8822& bus)
{
    std::unique_ptr<lcd::IRaController> profile;
    if (bus.lcdType() == lcd::LcdRa8822::ra8806) {
        profile = std::make_unique<lcd::Ra8806RegistersController>(bus);
    } else {
        profile = std::make_unique<lcd::Ra8803RegistersController>(bus);
    }
    return std::make_unique<lcd::Ra8822LcdController>(bus, std::move(profile));
}

/** Held while a panel replaces its display's objects, as any thread may call isRunning. */
std::mutex replacement;

} // namespace

bool isBacklightInverted(unsigned backlightGpioNumber, const std::vector<unsigned>& invertedLeds)
{
    return std::find(invertedLeds.begin(), invertedLeds.end(), backlightGpioNumber) != invertedLeds.end();
}

IndoorFpImpl::IndoorFpImpl(sysfs::ISysfsGpioFactory& factory, unsigned keyGpioBase, unsigned ledGpioBase,
                           unsigned lcdGpioBase, unsigned keyCount, unsigned ledCount,
                           const std::vector<unsigned>& invertedLeds, const std::vector<unsigned>& ledsInitiallyOn)
    : LcdFp(factory, keyGpioBase, keyCount, ledGpioBase, ledCount, invertedLeds, ledsInitiallyOn),
      gpios(lcd::LcdRa8822GpioCreator(factory).create())
{
    const unsigned backlightGpioNumber = ledGpioBase + ledCount;
    lcd = std::make_unique<lcd::LcdRa8822>(*gpios, isBacklightInverted(backlightGpioNumber, invertedLeds));
    exportLcdGpios(lcdGpioBase, backlightGpioNumber);
    lcd->init();
    initController(makeController(*lcd));
}

IndoorFpImpl::~IndoorFpImpl() = default;

void IndoorFpImpl::exportLcdGpios(unsigned lcdGpioBase, unsigned backlightGpioNumber)
{
    unsigned next = lcdGpioBase;
    for (auto& dataGpio : gpios->dataGpios) {
        dataGpio->exportGpio(next++);
    }
    gpios->registerSelectGpio->exportGpio(next++);
    gpios->chipSelectGpio->exportGpio(next++);
    gpios->readStrobeGpio->exportGpio(next++);
    gpios->writeStrobeGpio->exportGpio(next++);
    gpios->resetGpio->exportGpio(next);
    gpios->backlightGpio->exportGpio(backlightGpioNumber);
}

/** On a new bus driver: one that has identified an RA8806 never goes back to RA8803. */
bool IndoorFpImpl::restartDisplay()
{
    auto bus = std::make_unique<lcd::LcdRa8822>(*gpios, lcd->hasInvertedBacklight());
    bool ok = false;
    try {
        ok = bus->init();
    } catch (const std::exception& e) {
        std::cerr << "ERROR: unable to initialize lcd gpios; " << e.what() << "\n";
    }
    auto newController = makeController(*bus);
    {
        const std::lock_guard<std::mutex> lock(replacement);
        lcd.swap(bus); // the earlier driver outlives the controller on it
        controller.swap(newController);
    }
    return controller->init() && ok;
}

void IndoorFpImpl::connectAnyKeyChangedCb(const std::function<void(unsigned, bool)>& cb)
{
    FpBase::connectAnyKeyChangedCb(cb);
}

bool IndoorFpImpl::setLed(unsigned index, bool on)
{
    return FpBase::setLed(index, on);
}

void IndoorFpImpl::setAllLeds(bool on)
{
    FpBase::setAllLeds(on);
}

void IndoorFpImpl::stop()
{
    FpBase::stop();
}

bool IndoorFpImpl::isRunning()
{
    const std::lock_guard<std::mutex> lock(replacement);
    return controller->isInitialized() && FpBase::isRunning();
}

unsigned IndoorFpImpl::getChars() const
{
    return lcd->getChars();
}

unsigned IndoorFpImpl::getLines() const
{
    return lcd->getLines();
}

bool IndoorFpImpl::enable(bool on)
{
    return controller->enable(on);
}

} // namespace frontpanelhw::fp
