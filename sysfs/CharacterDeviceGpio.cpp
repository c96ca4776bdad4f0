#include "sysfs/CharacterDeviceGpio.h"

#include "sysfs/CallOrder.h"
#include "sysfs/GpioFile.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/gpio.h>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace sysfs {

namespace {

constexpr char consumer[] = "libsysfsgpio";

/** @return why the line could not be requested, with the name of who uses it */
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

GpioFile request(ISystemCalls& calls, const GpioLine& place, unsigned gpioNumber)
{
    const std::string path = "/dev/" + place.chip.name;
    const std::string lineName = "line " + std::to_string(place.offset) + " of " + path;
    const GpioFile chip(calls, gpioNumber, path, O_RDWR);
    gpio_v2_line_request request{};
    request.offsets[0] = place.offset;
    request.num_lines = 1;
    std::char_traits<char>::copy(request.consumer, consumer, sizeof consumer);
    if (!chip.tryControl(GPIO_V2_GET_LINE_IOCTL, &request)) {
        throw refusal(chip, gpioNumber, lineName, place.offset);
    }
    return {calls, gpioNumber, lineName, GpioFile::Opened{request.fd}};
}

} // namespace

struct CharacterDeviceGpio::Line {
    Line(ISystemCalls& calls, const GpioLine& place, unsigned gpioNumber)
        : number(gpioNumber), file(request(calls, place, gpioNumber))
    {
    }

    void configure(PinDirectionEn direction);

    unsigned number;
    GpioFile file;
    std::optional<bool> inverted;
    bool level = false;         // last asked for
    bool isOutput = false;      // by a configuration of this object
    std::optional<bool> driven; // the level that the output certainly has
    gpio_v2_line_values transfer{0, 1};
};

void CharacterDeviceGpio::Line::configure(PinDirectionEn direction)
{
    isOutput = false;
    driven.reset();
    gpio_v2_line_config config{};
    config.flags = inverted.value() ? GPIO_V2_LINE_FLAG_ACTIVE_LOW : 0;
    if (direction == PinDirectionEn::Output) {
        config.flags |= GPIO_V2_LINE_FLAG_OUTPUT;
        config.num_attrs = 1;
        config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
        config.attrs[0].attr.values = level ? 1 : 0;
        config.attrs[0].mask = 1;
    } else {
        config.flags |= GPIO_V2_LINE_FLAG_INPUT;
    }
    file.control(GPIO_V2_LINE_SET_CONFIG_IOCTL, &config, "configure");
    if (direction == PinDirectionEn::Output) {
        isOutput = true;
        driven = level;
    }
}

CharacterDeviceGpio::CharacterDeviceGpio(GpioLine line, ISystemCalls& systemCalls)
    : place(std::move(line)), calls(systemCalls)
{
}

CharacterDeviceGpio::~CharacterDeviceGpio() = default;

bool CharacterDeviceGpio::init(bool inverted, PinDirectionEn direction, bool initialValue)
{
    Line& pin = exported(current, "init");
    pin.inverted = inverted;
    pin.level = initialValue;
    pin.configure(direction);
    return true;
}

void CharacterDeviceGpio::deinit()
{
    current.reset();
}

void CharacterDeviceGpio::setDirection(PinDirectionEn direction)
{
    Line& pin = exported(current, "setDirection");
    if (!pin.inverted) {
        failBeforeInit(pin.number);
    }
    pin.configure(direction);
}

bool CharacterDeviceGpio::setValue(bool value)
{
    Line& pin = exported(current, "setValue");
    pin.level = value;
    if (pin.driven == value) {
        return true;
    }
    pin.transfer.bits = value ? 1 : 0;
    if (!pin.file.tryControl(GPIO_V2_LINE_SET_VALUES_IOCTL, &pin.transfer)) {
        pin.driven.reset();
        pin.file.fail("set");
    }
    if (pin.isOutput) {
        pin.driven = value;
    }
    return true;
}

bool CharacterDeviceGpio::getValue() const
{
    Line& pin = exported(current, "getValue");
    pin.file.control(GPIO_V2_LINE_GET_VALUES_IOCTL, &pin.transfer, "get");
    return (pin.transfer.bits & 1U) != 0;
}

void CharacterDeviceGpio::exportGpio(unsigned gpioNumber)
{
    if (current) {
        failExportedAgain(current->number);
    }
    if (place.chip.name.empty()) {
        const std::string& chips = place.chip.candidates;
        throw gpioError(gpioNumber, "find", "the chip of base " + std::to_string(*place.chip.sysfsBase) + " in /dev",
                        ENODEV, chips.empty() ? "" : "it may be " + chips + "; name it in /etc/sysfsgpio.conf");
    }
    current = std::make_unique<Line>(calls, place, gpioNumber);
}

unsigned CharacterDeviceGpio::getGpioNumber() const
{
    return exported(current, "getGpioNumber").number;
}

} // namespace sysfs
