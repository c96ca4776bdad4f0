#pragma once

#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "panelsim/board/LcdChip.h"
#include "panelsim/board/PanelView.h"

#include <algorithm>
#include <array>

/** What a display that was brought up has to show, with the operations of a display. */
struct DisplayModel {
    using Page = std::array<std::array<panelsim::LcdCell, 256>, 16>; ///< as the chip's memory: positions wrap around

    bool on = true;
    bool backlight = true;
    unsigned written = 0; ///< the page
    std::array<Page, 2> pages{};

    void printLine(unsigned row, const frontpanelhw::drawing::DisplayLine& line)
    {
        for (unsigned i = 0; i < line.getCharCount(); ++i) {
            const frontpanelhw::drawing::DisplayChar cell = line.getCharacter(i);
            pages[written][row % 16][i % 256] = {static_cast<unsigned char>(cell.character), cell.inverted};
        }
    }
    void printBuffer(const frontpanelhw::drawing::DisplayBuffer& page)
    {
        for (unsigned i = 0; i < page.getLineCount(); ++i) {
            printLine(i, page.getLine(i));
        }
        swapPage();
    }
    void fill()
    {
        for (unsigned row = 0; row < panelsim::LcdChip::rows; ++row) {
            std::fill_n(pages[written][row].begin(), panelsim::LcdChip::columns, panelsim::LcdCell{' ', true});
        }
        swapPage();
        backlight = true;
    }
    void swapPage() { written = 1 - written; }
    void clear() { pages[written] = {}; }
    void enable(bool value) { on = value; }
    void setBacklight(bool value) { backlight = value; }
    void resetController() { on = backlight = false; }
};
