#include "frontpanelhw/drawing/DisplayLine.h"

#include "tests/support/CapturedOutput.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <stdexcept>

using frontpanelhw::drawing::DisplayLine;

namespace {

std::string rendered(const DisplayLine& line)
{
    std::ostringstream stream;
    stream << line;
    return stream.str();
}

DisplayLine marked(const std::u16string& text, unsigned from, unsigned to)
{
    DisplayLine line(text);
    line.setInverted(from, to, true);
    return line;
}

} // namespace

TEST(DisplayLine, RendersTextFlagsAndCount)
{
    EXPECT_EQ(rendered(DisplayLine()), "'' -  - cnt: 0");
    EXPECT_EQ(rendered(DisplayLine(3)), "'   ' - nnn - cnt: 3");
    EXPECT_EQ(rendered(marked(u"Hi!", 1, 1)), "'Hi!' - nin - cnt: 3");
    EXPECT_EQ(rendered(DisplayLine(u"\u0141\u20AC")), "'A\xAC' - nn - cnt: 2");
}

TEST(DisplayLine, RendersWhateverTheStreamsNumberFormat)
{
    std::ostringstream stream;
    stream << std::hex << std::showbase << std::setfill('*') << std::setw(40) << DisplayLine(17);
    EXPECT_EQ(stream.str(), "'                 ' - nnnnnnnnnnnnnnnnn - cnt: 17");
}

TEST(DisplayLine, InvertsARangeWithBothEnds)
{
    struct Case {
        unsigned from, to;
        bool accepted;
        const char* flags;
    };
    for (const Case& c : {Case{2, 2, true, "nninn"}, Case{0, 4, true, "iiiii"}, Case{0, 5, false, "nnnnn"},
                          Case{3, 1, false, "nnnnn"}, Case{5, 5, false, "nnnnn"}, Case{0, ~0U, false, "nnnnn"}}) {
        DisplayLine line(5);
        EXPECT_EQ(line.setInverted(c.from, c.to, true), c.accepted) << c.from << "-" << c.to;
        EXPECT_EQ(rendered(line), std::string("'     ' - ") + c.flags + " - cnt: 5");
    }
    DisplayLine empty;
    EXPECT_FALSE(empty.setInverted(0, 0, true));
}

TEST(DisplayLine, WritesTextAtAnOffset)
{
    using namespace std::string_literals;
    struct Case {
        unsigned offset;
        std::u16string text;
        bool accepted;
        const char* line;
    };
    const Case cases[] = {
        {2, u"xy", true, "'abxy' - iinn - cnt: 4"},       {3, u"xy", false, "'abcd' - iinn - cnt: 4"},
        {4, u"", true, "'abcd' - iinn - cnt: 4"},         {0, u"x\0z"s, true, "'xbzd' - iinn - cnt: 4"},
        {~0U, u"\0\0z"s, true, "'azcd' - iinn - cnt: 4"}, {9, u"\0"s, true, "'abcd' - iinn - cnt: 4"},
        {0, u"vwxyz", false, "'abcd' - iinn - cnt: 4"}};
    for (const Case& c : cases) {
        DisplayLine line = marked(u"abcd", 0, 1);
        const CapturedOutput output;
        EXPECT_EQ(line.setLine(c.offset, c.text), c.accepted) << c.offset;
        EXPECT_EQ(rendered(line), c.line);
        EXPECT_EQ(output.err().empty(), c.accepted);
    }
}

TEST(DisplayLine, SaysWhichTextIsTooLong)
{
    DisplayLine line(1);
    const CapturedOutput output;
    EXPECT_FALSE(line.setLine(0, u"\u0141b"));
    EXPECT_EQ(output.err(), "ERROR: text 'Ab' is too long to write in line!\n");
    EXPECT_EQ(output.out(), "");
}

TEST(DisplayLine, ThrowsForACharacterPastTheEnd)
{
    DisplayLine line(u"abcd");
    EXPECT_THROW(line.setLine(5, u"x"), std::out_of_range);
    EXPECT_EQ(line, DisplayLine(u"abcd"));
}

TEST(DisplayLine, ReplacesTheWholeLine)
{
    using namespace std::string_literals;
    DisplayLine line = marked(u"abcd", 0, 3);
    line.setLine(u"x\0"s);
    EXPECT_EQ(line.getString(), u"x\0"s);
    EXPECT_EQ(line, DisplayLine(u"x\0"s));
    EXPECT_FALSE(line.getInverted(0));
}

TEST(DisplayLine, ReadsAndRefusesPastTheEnd)
{
    DisplayLine line = marked(u"ab", 0, 1);
    EXPECT_EQ(line.getCharacter(2).character, u' ');
    EXPECT_FALSE(line.getCharacter(2).inverted);
    EXPECT_FALSE(line.getInverted(2));
    EXPECT_FALSE(line.setCharacter(2, {u'x', true}));
    EXPECT_EQ(rendered(line), "'ab' - ii - cnt: 2");
    EXPECT_TRUE(line.setCharacter(1, {u'x', false}));
    line.addCharacter({u'y', true});
    EXPECT_EQ(rendered(line), "'axy' - ini - cnt: 3");
}

TEST(DisplayLine, ComparesLengthTextAndFlags)
{
    EXPECT_EQ(DisplayLine(), DisplayLine(u""));
    EXPECT_EQ(DisplayLine(0), DisplayLine());
    EXPECT_FALSE(DisplayLine(u"ab") == DisplayLine(u"abc"));
    EXPECT_FALSE(DisplayLine(u"ab") == DisplayLine(u"ac"));
    EXPECT_FALSE(DisplayLine(u"ab") == marked(u"ab", 1, 1));
}
