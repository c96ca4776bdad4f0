#include "tools/PrintedPage.h"

#include "tools/InvertRange.h"
#include "tools/Utf8.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace {

using namespace std::string_literals;

TEST(Utf8, IsDecodedOrRefused)
{
    struct Case {
        std::string bytes;
        std::optional<std::u16string> text;
    };
    const Case cases[] = {
        {"", u""s},
        {"a\0b"s, u"a\0b"s},
        {"\x7F\xC2\x80\xE2\x82\xAC", u"\u007F\u0080\u20AC"s},
        {"\xF0\x90\x80\x80", u"\U00010000"s},
        {"a\x80", std::nullopt},            // continuation without a start
        {"\xE2\x82", std::nullopt},         // cut short
        {"\xC3(", std::nullopt},            // start without a continuation
        {"\xC1\xBF", std::nullopt},         // overlong
        {"\xED\xA0\x80", std::nullopt},     // surrogate
        {"\xF4\x90\x80\x80", std::nullopt}, // past the last code point
    };
    for (const Case& c : cases) {
        EXPECT_EQ(tools::decodeUtf8(c.bytes), c.text) << testing::PrintToString(c.bytes);
    }
}

TEST(PrintedPage, HasItsTextAndInvertsTheCellsOfEveryRange)
{
    tools::PrintedPage page;
    page.lines = {tools::parseLine("21\xC2\xB0"), tools::parseLine("")};
    for (const char* range : {"0:1-2", "0:24", "2"}) {
        page.inverted.push_back(tools::parseInvertRange(range));
    }
    const auto buffer = page.toBuffer();

    const std::u16string blanks(25, u' ');
    const std::u16string texts[] = {u"21\u00B0" + blanks.substr(3), blanks, blanks};
    const std::string inverted[] = {".ii.....................i", std::string(25, '.'), std::string(25, 'i')};
    ASSERT_EQ(buffer.getLineCount(), 3U);
    for (unsigned line = 0; line < 3; ++line) {
        EXPECT_EQ(buffer.getLineString(line), texts[line]) << line;
        for (unsigned column = 0; column < 25; ++column) {
            EXPECT_EQ(buffer.getLine(line).getInverted(column), inverted[line][column] == 'i') << line << ":" << column;
        }
    }
}

} // namespace
