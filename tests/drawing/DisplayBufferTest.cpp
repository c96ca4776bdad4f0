#include "frontpanelhw/drawing/DisplayBuffer.h"

#include "tests/support/CapturedOutput.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <stdexcept>

using frontpanelhw::drawing::DisplayBuffer;
using frontpanelhw::drawing::DisplayLine;

namespace {

/** Counts its flushes. */
class FlushCounter : public std::stringbuf {
public:
    int flushes = 0;

protected:
    int sync() override
    {
        ++flushes;
        return std::stringbuf::sync();
    }
};

} // namespace

TEST(DisplayBuffer, RendersLineByLineAndFlushesBeforeEach)
{
    struct Case {
        unsigned chars, lines;
        const char* text;
        int flushes;
    };
    for (const Case& c :
         {Case{3, 2, "\nchars: 3 - lines: 2\n'   ' - nnn - cnt: 3\n'   ' - nnn - cnt: 3", 3},
          Case{20, 0, "\nchars: 20 - lines: 0", 1}, Case{0, 1, "\nchars: 0 - lines: 1\n'' -  - cnt: 0", 2}}) {
        FlushCounter buffer;
        std::ostream stream(&buffer);
        stream << std::hex << std::setw(9) << DisplayBuffer(c.chars, c.lines);
        EXPECT_EQ(buffer.str(), c.text);
        EXPECT_EQ(buffer.flushes, c.flushes);
    }
}

TEST(DisplayBuffer, WritesIntoOneLine)
{
    DisplayBuffer buffer(8, 2);
    EXPECT_TRUE(buffer.setLineContent(1, u"abcdefgh"));
    EXPECT_TRUE(buffer.setLineContent(1, u"xyz"));
    EXPECT_TRUE(buffer.setLineContent(1, 6, u"!!"));
    EXPECT_TRUE(buffer.setInverted(1, true, 2, 3));
    EXPECT_EQ(buffer.getLineString(1), u"xyzdef!!");
    EXPECT_TRUE(buffer.getLine(1).getInverted(3));
    EXPECT_FALSE(buffer.getLine(1).getInverted(4));
    EXPECT_FALSE(buffer.setInverted(1, true, 0, buffer.getCharCount()));
    EXPECT_EQ(buffer.getLine(0), DisplayLine(8));
    EXPECT_THROW(buffer.setLineContent(0, 9, u"x"), std::out_of_range);
}

TEST(DisplayBuffer, RefusesLinesThatItDoesNotHaveWithoutAMessage)
{
    DisplayBuffer buffer(4, 2);
    const DisplayBuffer untouched = buffer;
    const CapturedOutput output;
    EXPECT_FALSE(buffer.setDisplayLine(2, DisplayLine(4)));
    EXPECT_FALSE(buffer.setLineContent(2, u"much too long"));
    EXPECT_FALSE(buffer.setLineContent(2, 1, u"x"));
    EXPECT_FALSE(buffer.setInverted(2, true, 0, 0));
    EXPECT_EQ(buffer.getLine(2), DisplayLine());
    EXPECT_EQ(buffer.getLineString(2), u"");
    buffer.clear(2);
    EXPECT_EQ(buffer, untouched);
    EXPECT_EQ(output.err() + output.out(), "");
}

TEST(DisplayBuffer, KeepsItsWidthWhateverTheLinesHold)
{
    DisplayBuffer buffer(20, 2);
    EXPECT_TRUE(buffer.setDisplayLine(0, DisplayLine(25)));
    EXPECT_TRUE(buffer.setInverted(1, true, 0, 19));
    EXPECT_EQ(buffer.getLine(0).getCharCount(), 25U);
    EXPECT_EQ(buffer.getCharCount(), 20U);
    EXPECT_TRUE(buffer.setLineContent(0, 23, u"ab"));
    buffer.clear();
    EXPECT_EQ(buffer, DisplayBuffer(20, 2));
}

TEST(DisplayBuffer, ComparesWidthLineCountAndLines)
{
    EXPECT_FALSE(DisplayBuffer(3, 0) == DisplayBuffer(4, 0));
    EXPECT_FALSE(DisplayBuffer(3, 1) == DisplayBuffer(3, 2));
    DisplayBuffer inverted(3, 2);
    inverted.setInverted(1, true, 0, 0);
    EXPECT_FALSE(DisplayBuffer(3, 2) == inverted);
}
