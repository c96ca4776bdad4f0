#include "frontpanelhw/lcd/Ra8822LcdController.h"

#include "frontpanelhw/drawing/DisplayChar.h"
#include "frontpanelhw/drawing/LowByte.h"
#include "frontpanelhw/lcd/Hexadecimal.h"

#include <iostream>
#include <utility>

namespace frontpanelhw::lcd {

namespace {

constexpr unsigned char pageRegister = 0x12;
constexpr unsigned char cursorColumnRegister = 0x60;
constexpr unsigned char cursorRowRegister = 0x70;
constexpr unsigned char memoryRegister = 0xF0;
constexpr unsigned clearMemoryBit = 0x08;

constexpr std::uint32_t unknownPosition = 1000;
constexpr unsigned highestContrast = 100;
constexpr unsigned initialContrast = 50;

} // namespace

Ra8822LcdController::Ra8822LcdController(ILcd& bus, std::unique_ptr<IRaController> profile)
    : LcdControllerBase(bus), raController(std::move(profile)), cursorColumn(unknownPosition),
      cursorLine(unknownPosition)
{
}

Ra8822LcdController::~Ra8822LcdController() = default;

bool Ra8822LcdController::init()
{
    bool ok = lcd.isInitialized();
    ok &= raController->initializeRegisterSettings();
    ok &= prepareDisplay();

    unsigned char status = 0;
    const bool statusRead = lcd.readStatus(status);
    std::cout << "INFO: status register: " << (statusRead ? "1" : "0") << " 0x" << hexadecimal
              << static_cast<unsigned>(status) << "\n";
    return ok;
}

bool Ra8822LcdController::prepareDisplay()
{
    bool ok = clear();
    ok &= swapPage();
    ok &= clear();
    ok &= enable(true);
    ok &= setContrast(initialContrast);
    ok &= lcd.setBacklight(true);
    return ok;
}

bool Ra8822LcdController::clear()
{
    unsigned char memory = 0;
    return lcd.isInitialized() && lcd.readCmd(memoryRegister, memory) &&
           lcd.writeCmd(memoryRegister, static_cast<unsigned char>(memory | clearMemoryBit));
}

bool Ra8822LcdController::setCursor(unsigned column, unsigned line)
{
    if (!lcd.isInitialized()) {
        return false;
    }
    if (column != cursorColumn) {
        const bool written = lcd.writeCmd(cursorColumnRegister, static_cast<unsigned char>(column));
        cursorColumn = column;
        if (!written) {
            return false;
        }
    }
    if (line == cursorLine) {
        return true;
    }
    const bool written = lcd.writeCmd(cursorRowRegister, static_cast<unsigned char>(line << 4));
    cursorLine = line;
    return written;
}

bool Ra8822LcdController::printLine(unsigned line, const drawing::DisplayLine& text)
{
    if (!setCursor(0, line)) {
        return false;
    }
    for (unsigned i = 0; i < text.getCharCount(); ++i) {
        const drawing::DisplayChar cell = text.getCharacter(i);
        if (!raController->setInverted(cell.inverted) || !lcd.writeData(drawing::lowByte(cell.character))) {
            return false;
        }
        ++cursorColumn;
    }
    return true;
}

bool Ra8822LcdController::enable(bool on)
{
    return lcd.isInitialized() && raController->enable(on);
}

bool Ra8822LcdController::setContrast(unsigned percent)
{
    return lcd.isInitialized() && percent <= highestContrast && raController->setContrast(percent);
}

bool Ra8822LcdController::swapPage()
{
    if (!lcd.isInitialized()) {
        return false;
    }
    displayPage = writePage;
    writePage = writePage == 1 ? 2 : 1;
    return setPageConfig(writePage, displayPage);
}

bool Ra8822LcdController::setPageConfig(unsigned pageToWrite, unsigned pageToShow)
{
    return lcd.writeCmd(pageRegister, static_cast<unsigned char>(0x80U | pageToWrite | (pageToShow << 4)));
}

} // namespace frontpanelhw::lcd
