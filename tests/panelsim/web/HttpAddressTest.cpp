#include "panelsim/web/HttpAddress.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using panelsim::describe;
using panelsim::parseHttpAddress;

TEST(HttpAddress, TakesAPortWithOrWithoutAHost)
{
    const std::pair<const char*, const char*> cases[] = {{"8080", "127.0.0.1:8080"},
                                                         {"0", "127.0.0.1:0"},
                                                         {"127.0.0.1:65535", "127.0.0.1:65535"},
                                                         {"0.0.0.0:80", "0.0.0.0:80"},
                                                         {"[::1]:8080", "[::1]:8080"},
                                                         {"[0:0::0:1]:1", "[::1]:1"},
                                                         {"[FE80::A]:1", "[fe80::a]:1"},
                                                         {"LocalHost:8080", "localhost:8080"},
                                                         {"my-box.lan:1", "my-box.lan:1"},
                                                         {"4ever:1", "4ever:1"}};
    for (const auto& [text, address] : cases) {
        EXPECT_EQ(describe(parseHttpAddress(text)), address) << text;
    }
}

TEST(HttpAddress, RefusesAnythingElseWithOneLine)
{
    const std::string cases[] = {"",           "x",      "8080x",  "-1",        "+1",        " 1",
                                 "65536",      "99999",  "000001", ":80",       "1.2.3.4:",  "1.2.3:1",
                                 "1:2:3",      "::1:80", "[::1]",  "[::1]8080", "[]:1",      "[1.2.3.4]:1",
                                 "[::1%lo]:1", "a b:1",  "-a:1",   "a.:1",      "http://a:1"};
    for (const auto& text : cases) {
        try {
            parseHttpAddress(text);
            ADD_FAILURE() << text << " was taken";
        } catch (const std::invalid_argument& error) {
            EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos) << text;
            EXPECT_NE(std::string(error.what()).find("'" + text + "'"), std::string::npos) << text;
        }
    }
}

} // namespace
