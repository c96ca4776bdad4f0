#include "frontpanelhw/drawing/DisplayBuffer.h"

#include "tests/support/CapturedOutput.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <stdexcept>

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

TEST(DisplayBuffer, WritesIntoOneLine)
{
    DisplayBuffer buffer(8, 2);
    EXPECT_TRUE(buffer.setLineContent(1, u"abcdefgh") && buffer.setLineContent(1, u"xyz"));
    EXPECT_TRUE(buffer.setLineContent(1, 6, u"!!"));
    EXPECT_TRUE(buffer.setInverted(1, true, 2, 4) && buffer.setInverted(1, false, 4, 4));
    EXPECT_FALSE(buffer.setInverted(1, true, 0, buffer.getCharCount()));
    EXPECT_EQ(buffer.getLineString(1), u"xyzdef!!");
    DisplayLine line(u"xyzdef!!");
    line.setInverted(2, 3, true);
    EXPECT_EQ(buffer.getLine(1), line);
    EXPECT_EQ(buffer.getLine(0), DisplayLine(8));
    EXPECT_THROW(buffer.setLineContent(0, 9, u"x"), std::out_of_range);
}

TEST(DisplayBuffer, RefusesLinesThatItDoesNotHaveWithoutAMessage)
{
    DisplayBuffer buffer(4, 2);
    CapturedOutput output;
    EXPECT_FALSE(buffer.setDisplayLine(2, DisplayLine(4)) || buffer.setLineContent(2, u"much too long") ||
                 buffer.setLineContent(2, 1, u"x") || buffer.setInverted(2, true, 0, 0));
    EXPECT_EQ(buffer.getLine(2), DisplayLine());
    EXPECT_EQ(buffer.getLineString(2), u"");
    buffer.clear(2);
    EXPECT_EQ(buffer, DisplayBuffer(4, 2));
    EXPECT_EQ(output.take(), "");
}

TEST(DisplayBuffer, KeepsItsWidthWhateverTheLinesHold)
{
    DisplayBuffer buffer(20, 2);
    EXPECT_TRUE(buffer.setDisplayLine(0, DisplayLine(25)) && buffer.setLineContent(0, 23, u"ab"));
    EXPECT_TRUE(buffer.setInverted(1, true, 0, 19));
    EXPECT_EQ(buffer.getCharCount(), 20U);
    EXPECT_FALSE(buffer == DisplayBuffer(20, 2));
    buffer.clear();
    EXPECT_EQ(buffer, DisplayBuffer(20, 2));
    EXPECT_FALSE(DisplayBuffer(3, 0) == DisplayBuffer(4, 0));
    EXPECT_FALSE(DisplayBuffer(3, 1) == DisplayBuffer(3, 2));
}
