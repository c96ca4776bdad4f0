#pragma once

#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "panelsim/board/LcdChip.h"
#include "panelsim/board/PanelView.h"

#include <array>
#include <vector>

/** What a panel has to show, with the operations of a panel. */
struct PanelModel {
    static constexpr unsigned memoryColumns = 256;
    static constexpr unsigned memoryRows = 16;
    using Page = std::vector<std::vector<panelsim::LcdCell>>;
    inline static const Page blank{memoryRows, std::vector<panelsim::LcdCell>(memoryColumns)};

    bool lcdReady = true;
    bool pageKnown = true; ///< not after a failure on the display, nor after a reset, which takes the chip's registers
    bool onKnown = true;   ///< display and backlight; known again after a reset
    bool on = true;
    bool backlight = true;
    unsigned written = 0; ///< the page
    std::array<Page, 2> pages{blank, blank};
    bool polling = false;
    bool allLedsOn = false;
    bool ledsKnown = true; ///< not after an LED failed
    std::vector<bool> leds = {};
    std::vector<bool> keys = {}; ///< up to the first one that could not be read

    void printLine(unsigned line, const frontpanelhw::drawing::DisplayLine& text)
    {
        for (unsigned i = 0; i < text.getCharCount(); ++i) {
            const frontpanelhw::drawing::DisplayChar cell = text.getCharacter(i);
            pages.at(written).at(line % memoryRows).at(i % memoryColumns) = {static_cast<unsigned char>(cell.character),
                                                                             cell.inverted};
        }
    }
    void printBuffer(const frontpanelhw::drawing::DisplayBuffer& page)
    {
        for (unsigned i = 0; i < page.getLineCount(); ++i) {
            printLine(i, page.getLine(i));
        }
        swapPage();
    }
    void fillDisplay()
    {
        frontpanelhw::drawing::DisplayBuffer filled(panelsim::LcdChip::columns, panelsim::LcdChip::rows);
        for (unsigned i = 0; i < filled.getLineCount(); ++i) {
            filled.setInverted(i, true, 0, panelsim::LcdChip::columns - 1);
        }
        printBuffer(filled);
        backlight = true;
    }
    void swapPage() { written = 1 - written; }
    void clear() { pages.at(written) = blank; }
    void enable(bool value) { on = value; }
    void setBacklight(bool value) { backlight = value; }
    void resetController() { pageKnown = on = backlight = false; }
    bool setLed(unsigned led, bool value)
    {
        if (led < leds.size()) {
            leds[led] = value;
        }
        return led < leds.size();
    }
};
