#include "frontpanelhw/drawing/DisplayBuffer.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

using frontpanelhw::drawing::DisplayBuffer;

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
