#include "sysfs/CharacterDeviceGpio.h"

#include "sysfs/GpioFile.h"
#include "sysfs/PinDirectionEn.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <linux/gpio.h>
#include <optional>
#include <string>
#include <system_error>

namespace sysfs {

namespace {

constexpr char consumer[] = "libsysfsgpio";

/** @return why the line could not be requested, with the name of its user */
std::system_error refusal(const GpioFile& chip, unsigned gpioNumber, const std::string& lineName, unsigned offset)
{
    const int requestError = errno;
    gpio_v2_line_info info{};
    info.offset = offset;
    if (requestError != EBUSY || !chip.tryControl(GPIO_V2_GET_LINEINFO_IOCTL, &info)) {
        return gpioError(gpioNumber, "request", lineName, requestError);
    }
    const std::string user = info.consumer;
    if (user == "sysfs") {
        return gpioError(gpioNumber, "request", lineName, EEXIST);
    }
    return gpioError(gpioNumber, "request", lineName, EBUSY,
                     user.empty() ? "in use by the kernel or a driver" : "in use by '" + user + "'");
}

GpioFile request(ISystemCalls& calls, const GpioLine& line, unsigned gpioNumber)
{
    if (line.chip.name.empty()) {
        const std::string& chips = line.chip.candidates;
        throw gpioError(gpioNumber, "find", "the chip of base " + std::to_string(*line.chip.sysfsBase) + " in /dev",
                        ENODEV, chips.empty() ? "" : "it may be " + chips + "; name it in /etc/sysfsgpio.conf");
    }
    const std::string path = "/dev/" + line.chip.name;
    const std::string lineName = "line " + std::to_string(line.offset) + " of " + path;
    const GpioFile chip(calls, gpioNumber, path, O_RDWR);
    gpio_v2_line_request request{};
    request.offsets[0] = line.offset;
    request.num_lines = 1;
    std::char_traits<char>::copy(request.consumer, consumer, sizeof consumer);
    if (!chip.tryControl(GPIO_V2_GET_LINE_IOCTL, &request)) {
        throw refusal(chip, gpioNumber, lineName, line.offset);
    }
    return {calls, gpioNumber, lineName, GpioFile::Opened{request.fd}};
}

class CharacterDeviceGpio final : public IHeldGpio {
public:
    CharacterDeviceGpio(ISystemCalls& calls, const GpioLine& line, unsigned gpioNumber)
        : file(request(calls, line, gpioNumber))
    {
    }

    void setPolarity(bool inverted) override { polarity = inverted ? GPIO_V2_LINE_FLAG_ACTIVE_LOW : 0; }

    void configure(PinDirectionEn direction, bool level) override
    {
        isOutput = false;
        driven.reset();
        const bool output = direction == PinDirectionEn::Output;
        gpio_v2_line_config config{};
        config.flags = polarity | (output ? GPIO_V2_LINE_FLAG_OUTPUT : GPIO_V2_LINE_FLAG_INPUT);
        if (output) {
            config.num_attrs = 1;
            config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
            config.attrs[0].attr.values = level ? 1 : 0;
            config.attrs[0].mask = 1;
        }
        file.control(GPIO_V2_LINE_SET_CONFIG_IOCTL, &config, "configure");
        isOutput = output;
        if (output) {
            driven = level;
        }
    }

    void setValue(bool value) override
    {
        if (driven == value) {
            return;
        }
        driven.reset();
        transfer.bits = value ? 1 : 0;
        file.control(GPIO_V2_LINE_SET_VALUES_IOCTL, &transfer, "set");
        if (isOutput) {
            driven = value;
        }
    }

    bool getValue() override
    {
        file.control(GPIO_V2_LINE_GET_VALUES_IOCTL, &transfer, "get");
        return (transfer.bits & 1U) != 0;
    }

private:
    GpioFile file;
    std::uint64_t polarity = 0; // as a flag
    bool isOutput = false;      // by a configuration of this object
    std::optional<bool> driven; // the level that the output certainly has
    gpio_v2_line_values transfer{0, 1};
};

} // namespace

std::unique_ptr<IHeldGpio> exportCharacterDeviceGpio(ISystemCalls& calls, const GpioLine& line, unsigned gpioNumber)
{
    return std::make_unique<CharacterDeviceGpio>(calls, line, gpioNumber);
}

} // namespace sysfs
