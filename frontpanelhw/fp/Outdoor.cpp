#include "frontpanelhw/fp/Outdoor.h"

#include "sysfs/SysfsGpioFactory.h"

#include <vector>

namespace frontpanelhw::fp {

namespace {

constexpr unsigned keyCount = 2;
constexpr unsigned ledCount = 8;

} // namespace

Outdoor::Outdoor(unsigned keyGpioBase, unsigned ledGpioBase)
{
    sysfs::SysfsGpioFactory factory;
    core = std::make_unique<FpBase>(factory, keyGpioBase, keyCount, ledGpioBase, ledCount, std::vector<unsigned>(),
                                    std::vector<unsigned>());
}

Outdoor::~Outdoor() = default;

void Outdoor::connectAnyKeyChangedCb(const std::function<void(unsigned, bool)>& cb)
{
    core->connectAnyKeyChangedCb(cb);
}

bool Outdoor::setLed(unsigned index, bool on)
{
    return core->setLed(index, on);
}

void Outdoor::setAllLeds(bool on)
{
    core->setAllLeds(on);
}

bool Outdoor::start(bool lampTest, unsigned lampTestSeconds)
{
    return core->start(lampTest, lampTestSeconds);
}

void Outdoor::stop()
{
    core->stop();
}

bool Outdoor::isRunning()
{
    return core->isRunning();
}

} // namespace frontpanelhw::fp
