#include "frontpanelhw/fp/FpBase.h"

#include "frontpanelhw/IndexFlags.h"
#include "frontpanelhw/Wait.h"
#include "frontpanelhw/handler/GpioVectorCreator.h"

#include <algorithm>
#include <chrono>

namespace frontpanelhw::fp {

namespace {

constexpr std::chrono::milliseconds keyPollingPeriod(25);

} // namespace

FpBase::FpBase(sysfs::ISysfsGpioFactory& factory, unsigned keyGpioBase, unsigned keyCount, unsigned ledGpioBase,
               unsigned ledCount, const std::vector<unsigned>& invertedLeds,
               const std::vector<unsigned>& ledsInitiallyOn)
    : ledCreator(std::make_unique<handler::LedCreator>(factory, ledGpioBase, ledCount)),
      leds(&ledCreator->create(invertedLeds, ledsInitiallyOn)),
      keyHandler(std::make_unique<handler::KeyHandler>(
          std::make_unique<handler::GpioVectorCreator>(factory, keyGpioBase, keyCount)))
{
    initLedStateVector(ledsInitiallyOn);
}

FpBase::~FpBase() = default;

void FpBase::connectAnyKeyChangedCb(const std::function<void(unsigned, bool)>& cb)
{
    keyHandler->replaceCallback(cb);
}

bool FpBase::setLed(unsigned index, bool on)
{
    if (index >= leds->size()) {
        return false;
    }
    ledStates.at(index) = on;
    return allLedsOn || (*leds)[index]->setValue(on);
}

void FpBase::setAllLeds(bool on)
{
    allLedsOn = on;
    for (unsigned i = 0; i < leds->size(); ++i) {
        (*leds)[i]->setValue(on || ledStates.at(i));
    }
}

bool FpBase::start(bool lampTest, unsigned lampTestSeconds)
{
    if (lampTest) {
        setAllLeds(true);
        if (lampTestSeconds != 0) {
            wait(std::chrono::seconds(lampTestSeconds));
        }
        setAllLeds(false);
    }
    return keyHandler->start(keyPollingPeriod);
}

void FpBase::stop()
{
    keyHandler->stop();
    std::fill(ledStates.begin(), ledStates.end(), false);
    setAllLeds(false);
}

bool FpBase::isRunning()
{
    return keyHandler->running;
}

void FpBase::initLedStateVector(const std::vector<unsigned>& ledsInitiallyOn)
{
    for (const bool on : indexFlags(ledsInitiallyOn, leds->size())) {
        ledStates.push_back(on);
    }
}

} // namespace frontpanelhw::fp
