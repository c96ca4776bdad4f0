#include "frontpanelhw/drawing/DisplayLine.h"

#include "tests/support/CapturedOutput.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <stdexcept>

using frontpanelhw::drawing::DisplayLine;
using namespace std::string_literals;

namespace {

/** @return the line as written to a stream whose format must have no effect */
std::string rendered(const DisplayLine& line)
{
    std::ostringstream stream;
    stream << std::hex << std::showbase << std::setfill('*') << std::setw(40) << line;
    return stream.str();
}

/** The first two of its characters are inverted. */
DisplayLine marked(const std::u16string& text)
{
    DisplayLine line(text);
    EXPECT_TRUE(line.setInverted(0, 1, true));
    return line;
}

} // namespace

TEST(DisplayLine, RendersTextFlagsAndCount)
{
    EXPECT_EQ(rendered(DisplayLine()), "'' -  - cnt: 0");
    EXPECT_EQ(rendered(DisplayLine(17)), "'                 ' - nnnnnnnnnnnnnnnnn - cnt: 17");
    EXPECT_EQ(rendered(marked(u"\u0141\u20AC!")), "'A\xAC!' - iin - cnt: 3");
}

TEST(DisplayLine, WritesTextAtAnOffset)
{
    struct Case {
        unsigned offset;
        std::u16string text;
        const char* line;
        std::string log;
    };
    const Case cases[] = {{2, u"xy", "abxy", ""},
                          {3, u"\u0141y", "abcd", "! ERROR: text 'Ay' is too long to write in line!\n"},
                          {0, u"vwxyz", "abcd", "! ERROR: text 'vwxyz' is too long to write in line!\n"},
                          {4, u"", "abcd", ""},
                          {0, u"x\0z"s, "xbzd", ""},
                          {~0U, u"\0\0z"s, "azcd", ""},
                          {9, u"\0"s, "abcd", ""}};
    for (const Case& c : cases) {
        DisplayLine line = marked(u"abcd");
        CapturedOutput output;
        EXPECT_EQ(line.setLine(c.offset, c.text), c.log.empty()) << c.offset;
        EXPECT_EQ(rendered(line), "'"s + c.line + "' - iinn - cnt: 4");
        EXPECT_EQ(output.take(), c.log);
    }
    DisplayLine line(u"abcd");
    EXPECT_THROW(line.setLine(5, u"x"), std::out_of_range);
    EXPECT_EQ(line, DisplayLine(u"abcd"));
}

TEST(DisplayLine, ChangesItsCellsAndRefusesOnesPastTheEnd)
{
    DisplayLine line(u"ab");
    line.addCharacter({u'c', true});
    EXPECT_TRUE(line.setCharacter(2, {u'd', false}) && line.setCharacter(0, {u'A', true}));
    EXPECT_FALSE(line.setCharacter(3, {u'x', true}) || line.setInverted(0, 3, true) || line.setInverted(2, 1, true));
    EXPECT_TRUE(line.setInverted(1, 1, true) && line.setInverted(0, 0, false) && line.setInverted(2, 2, true));
    EXPECT_EQ(rendered(line), "'Abd' - nii - cnt: 3");
    EXPECT_EQ(line.getString(), u"Abd");
    EXPECT_TRUE(line.getInverted(2) && line.getCharacter(1).character == u'b' && line.getCharacter(1).inverted);
    EXPECT_FALSE(line.getInverted(3) || line.getCharacter(3).inverted || line.getCharacter(3).character != u' ');
    EXPECT_FALSE(line == DisplayLine(u"Abd") || line == DisplayLine(u"Ab"));
    line.setLine(u"x\0"s);
    EXPECT_EQ(line, DisplayLine(u"x\0"s)) << "no flag is left, and 0 is a cell";
}
