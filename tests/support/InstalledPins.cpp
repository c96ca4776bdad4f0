#include "tests/support/InstalledPins.h"

#include "sysfs/SysfsGpioFactory.h"

namespace {

const sysfs::ISysfsGpioFactory* installed = nullptr;

} // namespace

std::unique_ptr<sysfs::ISysfsGpio> sysfs::SysfsGpioFactory::create() const
{
    return installed->create();
}

InstalledPins::InstalledPins(const sysfs::ISysfsGpioFactory& factory)
{
    installed = &factory;
}

InstalledPins::~InstalledPins()
{
    installed = nullptr;
}
