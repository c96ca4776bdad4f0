/*
 * Stands for the GPIO library that a device brings along. It is compiled from
 * its own declarations, and nothing of this project. Its pins report on
 * standard error what they are asked to do. The lines that DEVICE_GPIO_HIGH
 * names, each with a blank before and after, read high.
 */
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

namespace sysfs {

enum class PinDirectionEn { Input, Output };

/** With more operations than the front panel's library knows of, which abort. */
struct ISysfsGpio {
    virtual ~ISysfsGpio() { report("deleted"); }
    virtual bool init(bool inverted, PinDirectionEn direction, bool initialValue)
    {
        return report((inverted ? "init inverted" : "init") + name(direction) + (initialValue ? " 1" : " 0"));
    }
    virtual void deinit() { report("deinit"); }
    virtual void setInverted(bool) { std::abort(); }
    virtual void setDirection(PinDirectionEn direction) { report("direction" + name(direction)); }
    virtual void setEdge(bool, bool) { std::abort(); }
    virtual int getEdgeDescriptor() const { std::abort(); }
    virtual bool waitForEdge(unsigned) { std::abort(); }
    virtual bool setValue(bool value) { return report(value ? "= 1" : "= 0"); }
    virtual bool getValue() const
    {
        const std::string high = std::getenv("DEVICE_GPIO_HIGH");
        return report("read") && high.find(" " + std::to_string(number) + " ") != std::string::npos;
    }
    virtual void exportGpio(unsigned gpioNumber) { number = gpioNumber, report("export"); }
    virtual unsigned getGpioNumber() const { return number; }

    static std::string name(PinDirectionEn direction) { return direction == PinDirectionEn::Input ? " in" : " out"; }
    bool report(const std::string& event) const
    {
        std::cerr << "gpio " << number << " " << event << "\n";
        return true;
    }

    unsigned number = 0;
};

struct ISysfsGpioFactory {
    virtual ~ISysfsGpioFactory() = default;
    virtual std::unique_ptr<ISysfsGpio> create() const = 0;
};

struct SysfsGpioFactory : ISysfsGpioFactory {
    std::unique_ptr<ISysfsGpio> create() const override;
};

std::unique_ptr<ISysfsGpio> SysfsGpioFactory::create() const
{
    return std::make_unique<ISysfsGpio>();
}

} // namespace sysfs
