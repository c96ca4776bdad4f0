#include "sysfs/GpioExport.h"

#include "sysfs/SysfsFile.h"

#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <system_error>
#include <utility>

namespace sysfs {

GpioExport::GpioExport(ISystemCalls& calls, const std::string& root, unsigned gpioNumber)
    : calls_(calls), root_(root), gpioNumber_(gpioNumber)
{
    const std::string number = std::to_string(gpioNumber);
    try {
        SysfsFile(calls, gpioNumber, root + "/export", O_WRONLY).write(number);
        owned_ = true;
    } catch (const std::system_error& failure) {
        // EBUSY: it is exported, or a driver has it. EACCES: only root exports here, and may have done so before.
        const bool mayBeExported = failure.code().value() == EBUSY || failure.code().value() == EACCES;
        if (!mayBeExported || !SysfsFile::exists(calls, root + "/gpio" + number)) {
            throw;
        }
    }
}

GpioExport::~GpioExport()
{
    try {
        release();
    } catch (const std::exception&) {
        // A destructor has nobody to tell; the next process takes the line as it finds it.
    }
}

void GpioExport::release()
{
    if (std::exchange(owned_, false)) {
        SysfsFile(calls_, gpioNumber_, root_ + "/unexport", O_WRONLY).write(std::to_string(gpioNumber_));
    }
}

void GpioExport::abandon() noexcept
{
    owned_ = false;
}

} // namespace sysfs
