#include "frontpanelhw/FrontPanelType.h"

#include "frontpanelhw/handler/GpioVectorCreator.h"

#include <exception>
#include <iostream>
#include <string>

namespace frontpanelhw {

namespace {

constexpr unsigned idLineCount = 4;
constexpr unsigned outdoorId = 5;
constexpr unsigned indoorId = 15;

} // namespace

unsigned readGpios(sysfs::ISysfsGpioFactory& factory, unsigned idGpioBase)
{
    handler::GpioVectorCreator creator(factory, idGpioBase, idLineCount);
    unsigned id = 0;
    unsigned bit = 0;
    for (const auto& gpio : creator.createAndInit(false, sysfs::PinDirectionEn::Input, false)) {
        try {
            id |= static_cast<unsigned>(gpio->getValue()) << bit;
            ++bit;
        } catch (const std::exception&) {
            std::cerr << "ERROR: unable to read led gpio for HW ID check: " << std::to_string(gpio->getGpioNumber())
                      << "\n";
        }
    }
    return id;
}

FrontPanelType detectType(sysfs::ISysfsGpioFactory& factory, unsigned idGpioBase)
{
    const unsigned id = readGpios(factory, idGpioBase);
    switch (id) {
    case outdoorId:
        std::cout << "INFO: detected outdoor front panel type\n";
        return FrontPanelType::Outdoor;
    case indoorId:
        std::cout << "INFO: detected indoor front panel type\n";
        return FrontPanelType::Indoor;
    default:
        std::cout << "WARNING: detected unknown front panel type: " << id << "\n";
        return FrontPanelType::Unknown;
    }
}

} // namespace frontpanelhw
