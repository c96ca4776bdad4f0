#include "frontpanelhw/drawing/Text.h"

#include "panelsim/picture/PanelText.h"

#include <gtest/gtest.h>

using namespace frontpanelhw::drawing;

TEST(Text, HasTheCharactersThatTheSimulatedPanelDraws)
{
    for (unsigned code = 0; code < 256; ++code) {
        const std::string drawn = panelsim::glyph(static_cast<unsigned char>(code));
        const bool isControl = drawn == "\u00B7" && code != 0xB7;
        EXPECT_EQ(fromUtf8(drawn), std::u16string(1, static_cast<char16_t>(isControl ? 0xB7 : code))) << code;
    }
    EXPECT_EQ(fromUtf8("21 °C, 5 €, ä\n\u007F\u0080\u009F\U0001F600", u'#'), u"21 °C, 5 #, ä#####");
    EXPECT_EQ(fromUtf8({"\0a", 2}), u"?a");
}

TEST(Text, GivesASubstituteForEachByteThatIsNotUtf8)
{
    for (const auto& [bytes, expected] : {std::pair("\x80", u"?"),
                                          {"\xC3", u"?"},
                                          {"\xC3"
                                           "A",
                                           u"?A"},
                                          {"\xC1\xBF", u"??"},
                                          {"\xE2\x82", u"??"},
                                          {"\xE0\x83\xBF", u"???"},
                                          {"\xED\xA0\x80", u"???"},
                                          {"\xF0\x80\x80\xA0", u"????"},
                                          {"\xF4\x90\x80\x80", u"????"},
                                          {"\xF8\x88\x80\x80\x80", u"?????"},
                                          {"\xFF\xC3\xA4\xFE", u"?ä?"}}) {
        EXPECT_EQ(fromUtf8(bytes), expected) << bytes;
    }
}

TEST(Text, AlignsToAWidth)
{
    EXPECT_EQ(aligned(u"abc", 6, Align::Left), u"abc   ");
    EXPECT_EQ(aligned(u"abc", 6, Align::Right), u"   abc");
    EXPECT_EQ(aligned(u"abc", 6, Align::Centre), u" abc  ");
    for (const Align align : {Align::Left, Align::Right, Align::Centre}) {
        EXPECT_EQ(aligned(u"abc", 2, align) + aligned(u"abc", 0, align) + aligned(u"", 1, align), u"ab ");
    }
}
