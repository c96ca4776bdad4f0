#include "sysfs/LinuxGpio.h"

#include "sysfs/GpioFile.h"
#include "sysfs/PinDirectionEn.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <fcntl.h>
#include <optional>
#include <system_error>
#include <utility>

namespace sysfs {

namespace {

constexpr std::chrono::milliseconds udevPatience{1000};

/** A line that is exported as long as the object lives. Unexports only what it exported itself. */
class Exported {
public:
    Exported(ISystemCalls& systemCalls, std::string directory, unsigned number, unsigned kernelNumber)
        : calls(systemCalls), root(std::move(directory)), gpioNumber(number), name(std::to_string(kernelNumber))
    {
        try {
            write("/export");
            owned = true;
        } catch (const std::system_error& failure) {
            // EBUSY: it is exported, or a driver has it. EACCES: only root exports here, and may have done so before.
            const bool mayBeExported = failure.code().value() == EBUSY || failure.code().value() == EACCES;
            if (!mayBeExported || !GpioFile::exists(calls, root + "/gpio" + name)) {
                throw;
            }
        }
    }

    ~Exported()
    {
        try {
            release();
        } catch (const std::exception&) {
            // A destructor cannot report. The next process takes over the exported line.
        }
    }

    Exported(const Exported&) = delete;
    Exported& operator=(const Exported&) = delete;

    void release()
    {
        if (std::exchange(owned, false)) {
            write("/unexport");
        }
    }

    void abandon() { owned = false; }

private:
    void write(const char* file) const { GpioFile(calls, gpioNumber, root + file, O_WRONLY).write(name); }

    ISystemCalls& calls;
    std::string root;
    unsigned gpioNumber;
    std::string name;
    bool owned = false;
};

class LinuxGpio final : public IHeldGpio {
public:
    LinuxGpio(ISystemCalls& systemCalls, const std::string& root, unsigned gpioNumber, unsigned kernelNumber)
        : calls(systemCalls), number(gpioNumber), directory(root + "/gpio" + std::to_string(kernelNumber)),
          exported(calls, root, number, kernelNumber)
    {
        direction.emplace(calls, number, directory + "/direction", O_WRONLY, udevPatience);
        value.emplace(calls, number, directory + "/value", O_RDWR, udevPatience);
        if (!value->tryLock()) {
            exported.abandon();
            throw value->error("lock", EBUSY);
        }
    }

    void setPolarity(bool inverted) override
    {
        GpioFile(calls, number, directory + "/active_low", O_WRONLY, udevPatience).write(inverted ? "1" : "0");
        isInverted = inverted;
    }

    // The kernel takes "high" and "low" as electrical levels, independent of active_low, and sets the level before it
    // turns the line into an output.
    void configure(PinDirectionEn newDirection, bool level) override
    {
        if (newDirection == PinDirectionEn::Input) {
            direction->write("in");
        } else {
            direction->write(level != isInverted ? "high" : "low");
        }
    }

    void setValue(bool newValue) override { value->write(newValue ? "1" : "0"); }

    bool getValue() override { return value->readLevel(); }

    void release() override { exported.release(); }

private:
    ISystemCalls& calls;
    unsigned number;
    std::string directory;
    bool isInverted = false;
    std::optional<GpioFile> direction;
    std::optional<GpioFile> value; // locked
    // Released before the lock: otherwise another process could take over a line that is about to vanish.
    Exported exported;
};

} // namespace

std::unique_ptr<IHeldGpio> exportLinuxGpio(ISystemCalls& calls, const std::string& directory, unsigned gpioNumber,
                                           unsigned kernelNumber)
{
    return std::make_unique<LinuxGpio>(calls, directory, gpioNumber, kernelNumber);
}

} // namespace sysfs
