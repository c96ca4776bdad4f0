#pragma once

#include "sysfs/ISysfsGpio.h"
#include "sysfs/PinDirectionEn.h"

#include <cstdint>
#include <optional>

namespace panelsim {

/**
 * A pin of an application, on a line of the board in the panelsim process. It fails as a pin on that board does. A
 * forked process works on with the pins that there were. After the application has closed all descriptors those pins
 * are gone and new ones work.
 */
class RemoteGpio final : public sysfs::ISysfsGpio {
public:
    /** @throws std::runtime_error when panelsim cannot be reached */
    RemoteGpio();

    /** Releases the line, which stays as it is driven. */
    ~RemoteGpio() override;

    RemoteGpio(const RemoteGpio&) = delete;
    RemoteGpio& operator=(const RemoteGpio&) = delete;

    bool init(bool inverted, sysfs::PinDirectionEn direction, bool initialValue) override;
    void deinit() override;
    void setDirection(sysfs::PinDirectionEn direction) override;
    bool setValue(bool value) override;
    bool getValue() const override;
    void exportGpio(unsigned gpioNumber) override;
    unsigned getGpioNumber() const override;

private:
    std::uint32_t pin;
    std::optional<unsigned> number;
};

} // namespace panelsim
