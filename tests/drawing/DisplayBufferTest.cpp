#include "frontpanelhw/drawing/DisplayBuffer.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

using frontpanelhw::drawing::DisplayBuffer;
using frontpanelhw::drawing::DisplayLine;

namespace {

/** Shows each flush as "|". */
class FlushMarks : public std::stringbuf {
protected:
    int sync() override { return sputc('|') == '|' ? 0 : -1; }
};

} // namespace

TEST(DisplayBuffer, RendersLineByLineAndFlushesBeforeEach)
{
    FlushMarks text;
    std::ostream(&text) << std::hex << std::setw(9) << DisplayBuffer(3, 2) << DisplayBuffer(20, 0);
    EXPECT_EQ(text.str(),
              "\n|chars: 3 - lines: 2\n|'   ' - nnn - cnt: 3\n|'   ' - nnn - cnt: 3\n|chars: 20 - lines: 0");
}

TEST(DisplayBuffer, ChangesItsLinesAndRefusesOnesPastTheLast)
{
    DisplayBuffer page(4, 2);
    EXPECT_TRUE(page.setDisplayLine(1, DisplayLine(u"longer")) && page.setLineContent(1, u"L") &&
                page.setLineContent(0, 1, u"xyz") && page.setInverted(0, true, 1, 2));
    EXPECT_FALSE(page.setDisplayLine(2, DisplayLine(1)) || page.setLineContent(2, u"") ||
                 page.setLineContent(2, 0, u"") || page.setInverted(2, true, 0, 0) ||
                 page.setInverted(0, true, 0, page.getCharCount()));
    page.clear(2);
    DisplayLine first(u" xyz");
    first.setInverted(1, 2, true);
    EXPECT_TRUE(page.getLine(0) == first && page.getLine(1) == DisplayLine(u"Longer"));
    EXPECT_EQ(page.getLineString(1), u"Longer");
    EXPECT_TRUE(page.getLine(2) == DisplayLine() && page.getLineString(2).empty());

    DisplayBuffer other = page;
    EXPECT_EQ(other, page);
    other.clear(1);
    EXPECT_EQ(other.getLine(1), DisplayLine(4)) << "the width is that of the page";
    EXPECT_FALSE(other == page);
    other.clear();
    EXPECT_EQ(other, DisplayBuffer(4, 2));
    EXPECT_FALSE(DisplayBuffer(4, 0) == DisplayBuffer(5, 0) || DisplayBuffer(4, 1) == DisplayBuffer(4, 2));
}
