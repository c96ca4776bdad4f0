#include "panelsim/board/Duration.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using namespace std::chrono_literals;

TEST(Duration, ReadsANumberWithAUnit)
{
    struct Case {
        const char* text;
        std::chrono::milliseconds duration;
        const char* description;
    };
    const Case cases[] = {{"0s", 0ms, "0 ms"},       {"300ms", 300ms, "300 ms"},  {"0.0005s", 1ms, "1 ms"},
                          {"1.5s", 1500ms, "1.5 s"}, {"1.05s", 1050ms, "1.05 s"}, {"002m", 2min, "120 s"},
                          {"1440m", 24h, "86400 s"}};
    for (const Case& c : cases) {
        EXPECT_EQ(panelsim::parseDuration(c.text), c.duration) << c.text;
        EXPECT_EQ(panelsim::describe(c.duration), c.description);
    }
}

TEST(Duration, SaysWhatIsWrong)
{
    const std::string none = " is not a duration such as 300ms, 1.5s or 2m";
    struct Case {
        std::string text;
        std::string error;
    };
    const std::string digits(400, '9');
    const Case cases[] = {{"300", "300 has no unit: write 300ms, 300s or 300m"},
                          {"1440.1m", "1440.1m is longer than 24 hours"},
                          {digits + "s", digits + "s is longer than 24 hours"},
                          {"", "\"\"" + none},
                          {"1h", "\"1h\"" + none},
                          {"1 s", "\"1 s\"" + none},
                          {"-1s", "\"-1s\"" + none},
                          {".5s", "\".5s\"" + none},
                          {"5.s", "\"5.s\"" + none},
                          {"1e3s", "\"1e3s\"" + none},
                          {"nans", "\"nans\"" + none}};
    for (const Case& c : cases) {
        try {
            panelsim::parseDuration(c.text);
            ADD_FAILURE() << c.text;
        } catch (const std::invalid_argument& e) {
            EXPECT_EQ(e.what(), c.error);
        }
    }
}
