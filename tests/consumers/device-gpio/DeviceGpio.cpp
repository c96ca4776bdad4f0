/*
 * Stands for the GPIO library that a device brings along. It is compiled from its own declarations, and nothing of this
 * project. Its pins report on standard error what they are asked to do. The lines that DEVICE_GPIO_HIGH names, each
 * with a blank before and after, read high.
 */
#include "SysfsGpioFactory.h"

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>

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

    void setInverted(bool) override { throw std::logic_error("setInverted is called"); }
    void setEdge(bool, bool) override { throw std::logic_error("setEdge is called"); }
    int getEdgeDescriptor() const override { throw std::logic_error("getEdgeDescriptor is called"); }
    bool waitForEdge(std::chrono::milliseconds) override { throw std::logic_error("waitForEdge is called"); }

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
