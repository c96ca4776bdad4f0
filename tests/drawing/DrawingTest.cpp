#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "frontpanelhw/drawing/Text.h"
#include "panelsim/picture/PanelText.h"
#include "tests/support/CapturedOutput.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <stdexcept>

using namespace frontpanelhw::drawing;
using namespace std::string_literals;

/** @return the line or page as written to a stream whose format must have no effect */
template <typename Drawn>
static std::string rendered(const Drawn& drawn)
{
    std::ostringstream text;
    text << std::hex << std::showbase << std::setfill('*') << std::setw(40) << drawn;
    return text.str();
}

TEST(DisplayLine, WritesTextAtAnOffset)
{
    const struct {
        unsigned offset;
        std::u16string text;
        const char* line;
        std::string log = "";
    } cases[] = {
        {2, u"xy", "abxy"},
        {3, u"\u0141y", "abcd", "! ERROR: text 'Ay' is too long to write in line!\n"},
        {0, u"x\0z"s, "xbzd"},
        {~0U, u"\0\0z"s, "azcd"},
    };
    for (const auto& c : cases) {
        DisplayLine line(u"abcd");
        EXPECT_TRUE(line.setInverted(0, 1, true));
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
    EXPECT_TRUE(line.setCharacter(2, {u'd', false}) && line.setCharacter(0, {u'\u20C1', true}));
    EXPECT_FALSE(line.setCharacter(3, {u'x', true}) || line.setInverted(0, 3, true) || line.setInverted(2, 1, true));
    EXPECT_TRUE(line.setInverted(1, 1, true) && line.setInverted(0, 0, false) && line.setInverted(2, 2, true));
    EXPECT_EQ(rendered(line), "'\xC1"
                              "bd' - nii - cnt: 3");
    EXPECT_TRUE(line.getInverted(2) && line.getCharacter(1).character == u'b' && line.getCharacter(1).inverted);
    EXPECT_FALSE(line.getInverted(3) || line.getCharacter(3).inverted || line.getCharacter(3).character != u' ');
    EXPECT_FALSE(line == DisplayLine(line.getString()) || DisplayLine() == DisplayLine(1));
    line.setLine(u"x\0"s);
    EXPECT_EQ(line, DisplayLine(u"x\0"s)) << "no flag is left, and 0 is a cell";
}

TEST(DisplayBuffer, ChangesItsLinesAndRefusesOnesPastTheLast)
{
    DisplayBuffer page(4, 2);
    EXPECT_TRUE(page.setDisplayLine(1, DisplayLine(u"longer")) && page.setLineContent(1, u"L") &&
                page.setLineContent(0, 1, u"xyz") && page.setInverted(0, true, 1, 2));
    EXPECT_FALSE(page.setDisplayLine(2, DisplayLine(1)) || page.setLineContent(2, u"") ||
                 page.setInverted(2, true, 0, 0) || page.setInverted(0, true, 0, page.getCharCount()));
    page.clear(2);
    EXPECT_EQ(rendered(page), "\nchars: 4 - lines: 2\n' xyz' - niin - cnt: 4\n'Longer' - nnnnnn - cnt: 6");
    EXPECT_EQ(page.getLineString(1), u"Longer");
    EXPECT_TRUE(page.getLine(2) == DisplayLine() && page.getLineString(2).empty());
    DisplayBuffer other = page;
    other.clear(1);
    EXPECT_FALSE(other == page || DisplayBuffer(4, 0) == DisplayBuffer(5, 0) ||
                 DisplayBuffer(4, 1) == DisplayBuffer(4, 2));
}

TEST(Text, HasTheCharactersThatTheSimulatedPanelDrawsAndASubstituteForOtherBytes)
{
    for (unsigned code = 0; code < 256; ++code) {
        const std::string drawn = panelsim::glyph(static_cast<unsigned char>(code));
        const bool isControl = drawn == "\u00B7" && code != 0xB7;
        EXPECT_EQ(fromUtf8(drawn), std::u16string(1, static_cast<char16_t>(isControl ? 0xB7 : code))) << code;
    }
    EXPECT_EQ(fromUtf8("5 °€, ä\n\u007F\u0080\u009F\u0800\uFFFF\U00010000\U0010FFFF", u'#'), u"5 °#, ä########");
    const std::string invalid = "\x80\xC3"
                                "A\xC1\xBF\xE2\x82|\xE0\x83\xBF\xED\xA0\x80\xF0\x80\x80\xA0\xF4\x90\x80\x80\xF8\x88\x80"
                                "\x80\x80\xFF\xED\xBF\xBF\xC3\xA4\xC3";
    EXPECT_EQ(fromUtf8(invalid), u"??A????|???????????????????????ä?");
}

TEST(Text, AlignsToAWidth)
{
    EXPECT_EQ(aligned(u"abc", 7, Align::Left) + aligned(u"abc", 7, Align::Right) + aligned(u"abc", 7, Align::Centre),
              u"abc        abc  abc  ");
    EXPECT_EQ(aligned(u"abc", 2, Align::Centre) + aligned(u"abc", 0, Align::Right), u"ab");
}
