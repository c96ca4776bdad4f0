#include "bench/IdlePins.h"

#include "sysfs/PinDirectionEn.h"

namespace bench {

namespace {

class IdlePin : public sysfs::ISysfsGpio {
public:
    explicit IdlePin(unsigned char byte) : lcdByte(byte) {}

    bool init(bool /*inverted*/, sysfs::PinDirectionEn /*direction*/, bool /*initialValue*/) override { return true; }
    void deinit() override {}
    void setDirection(sysfs::PinDirectionEn /*direction*/) override {}
    bool setValue(bool /*value*/) override { return true; }
    bool getValue() const override { return level; }
    void exportGpio(unsigned gpioNumber) override
    {
        number = gpioNumber;
        level = number >= lcdBase && number < lcdBase + 8 && ((lcdByte >> (number - lcdBase)) & 1U) != 0;
    }
    unsigned getGpioNumber() const override { return number; }

private:
    unsigned number = 0;
    unsigned char lcdByte;
    bool level = false;
};

} // namespace

std::unique_ptr<sysfs::ISysfsGpio> IdlePins::create() const
{
    return std::make_unique<IdlePin>(lcdByte);
}

} // namespace bench
