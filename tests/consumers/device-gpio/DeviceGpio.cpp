/*
 * Stands for the GPIO library that a device brings along. It is compiled from its own declarations, and nothing of this
 * project. Its pins report on standard error what they are asked to do. The lines that DEVICE_GPIO_HIGH names, each
 * with a blank before and after, read high.
 */
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

namespace sysfs {

enum class PinDirectionEn { Input, Output };

/** With more operations than the front panel's library knows of. */
class ISysfsGpio {
public:
    virtual ~ISysfsGpio() = default;
    virtual bool init(bool inverted, PinDirectionEn direction, bool initialValue) = 0;
    virtual void deinit() = 0;
    virtual void setInverted(bool) { std::abort(); }
    virtual void setDirection(PinDirectionEn direction) = 0;
    virtual void setEdge(bool, bool) { std::abort(); }
    virtual int getEdgeDescriptor() const { std::abort(); }
    virtual bool waitForEdge(std::chrono::milliseconds) { std::abort(); }
    virtual bool setValue(bool value) = 0;
    virtual bool getValue() const = 0;
    virtual void exportGpio(unsigned gpioNumber) = 0;
    virtual unsigned getGpioNumber() const = 0;
};

class ISysfsGpioFactory {
public:
    virtual ~ISysfsGpioFactory() = default;
    virtual std::unique_ptr<ISysfsGpio> create() const = 0;
};

class SysfsGpioFactory : public ISysfsGpioFactory {
public:
    std::unique_ptr<ISysfsGpio> create() const override;
};

} // namespace sysfs

namespace {

class DeviceGpio final : public sysfs::ISysfsGpio {
public:
    ~DeviceGpio() override { report("deleted"); }

    bool init(bool inverted, sysfs::PinDirectionEn direction, bool initialValue) override
    {
        report("init" + std::string(inverted ? " inverted" : "") + name(direction) + (initialValue ? " 1" : " 0"));
        return true;
    }
    void deinit() override { report("deinit"); }
    void setDirection(sysfs::PinDirectionEn direction) override { report("direction" + name(direction)); }
    bool setValue(bool value) override
    {
        report(value ? "= 1" : "= 0");
        return true;
    }
    bool getValue() const override
    {
        const char* high = std::getenv("DEVICE_GPIO_HIGH");
        report("read");
        return high != nullptr && std::string(high).find(" " + std::to_string(number) + " ") != std::string::npos;
    }
    void exportGpio(unsigned gpioNumber) override
    {
        number = gpioNumber;
        report("export");
    }
    unsigned getGpioNumber() const override { return number; }

private:
    static std::string name(sysfs::PinDirectionEn direction)
    {
        return direction == sysfs::PinDirectionEn::Input ? " in" : " out";
    }
    void report(const std::string& event) const { std::cerr << "gpio " << number << " " << event << "\n"; }

    unsigned number = 0;
};

} // namespace

std::unique_ptr<sysfs::ISysfsGpio> sysfs::SysfsGpioFactory::create() const
{
    return std::make_unique<DeviceGpio>();
}
