#include "sysfs/GpioExport.h"

#include "sysfs/GpioFile.h"

#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <system_error>
#include <utility>

namespace sysfs {

GpioExport::GpioExport(ISystemCalls& systemCalls, const std::string& directory, unsigned number, unsigned kernelNumber)
    : calls(systemCalls), root(directory), gpioNumber(number), name(std::to_string(kernelNumber))
{
    try {
        GpioFile(calls, gpioNumber, root + "/export", O_WRONLY).write(name);
        owned = true;
    } catch (const std::system_error& failure) {
        // EBUSY: it is exported, or a driver has it. EACCES: only root exports here, and may have done so before.
        const bool mayBeExported = failure.code().value() == EBUSY || failure.code().value() == EACCES;
        if (!mayBeExported || !GpioFile::exists(calls, root + "/gpio" + name)) {
            throw;
        }
    }
}

GpioExport::~GpioExport()
{
    try {
        release();
    } catch (const std::exception&) {
        // A destructor cannot report. The next process takes over the exported line.
    }
}

void GpioExport::release()
{
    if (std::exchange(owned, false)) {
        GpioFile(calls, gpioNumber, root + "/unexport", O_WRONLY).write(name);
    }
}

void GpioExport::abandon() noexcept
{
    owned = false;
}

} // namespace sysfs
