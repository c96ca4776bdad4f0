#pragma once

#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "panelsim/board/LcdChip.h"
#include "panelsim/board/PanelView.h"

#include <array>
#include <vector>

/** What a display that was brought up has to show, with the operations of a display. */
struct DisplayModel {
    using Page = std::vector<std::vector<panelsim::LcdCell>>; ///< what of the chip's memory can be seen

    static Page pageOf(unsigned char code, bool inverted)
    {
        return Page(panelsim::LcdChip::rows, {panelsim::LcdChip::columns, panelsim::LcdCell{code, inverted}});
    }

    bool on = true;
    bool backlight = true;
    unsigned written = 0; ///< the page
    std::array<Page, 2> pages{pageOf(' ', false), pageOf(' ', false)};

    void printLine(unsigned row, const frontpanelhw::drawing::DisplayLine& line)
    {
        Page& page = pages[written];
        row %= 16; // the chip's
        for (unsigned i = 0; row < page.size() && i < line.getCharCount() && i < page[row].size(); ++i) {
            page[row][i] = {static_cast<unsigned char>(line.getCharacter(i).character), line.getInverted(i)};
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
        pages[written] = pageOf(' ', true);
        swapPage();
        backlight = true;
    }
    void swapPage() { written = 1 - written; }
    void clear() { pages[written] = pageOf(' ', false); }
    void enable(bool value) { on = value; }
    void setBacklight(bool value) { backlight = value; }
    void resetController() { on = backlight = false; }
};
