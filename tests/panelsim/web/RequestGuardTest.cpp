#include "panelsim/web/RequestGuard.h"

#include <gtest/gtest.h>

namespace {

using panelsim::HttpAddress;
using panelsim::RequestGuard;
using Texts = std::vector<std::string>;

/** As a Host header, and as an origin of a request with a Host header that is ours. */
void expectTaken(const HttpAddress& served, const Texts& ours, const Texts& others)
{
    const RequestGuard guard(served);
    for (const auto& text : ours) {
        EXPECT_FALSE(guard.refusal({{text}})) << describe(served) << " Host " << text;
        EXPECT_FALSE(guard.refusal({{ours.front()}, {"http://" + text}})) << describe(served) << " Origin " << text;
    }
    for (const auto& text : others) {
        EXPECT_TRUE(guard.refusal({{text}})) << describe(served) << " Host " << text;
        EXPECT_TRUE(guard.refusal({{ours.front()}, {"http://" + text}})) << describe(served) << " Origin " << text;
    }
}

TEST(RequestGuard, TakesTheNamesOfWhatIsServedAndNoOthers)
{
    const Texts loopback = {"127.0.0.1:8080", "localhost:8080", "LOCALHOST:8080", "[::1]:8080", "[0:0::1]:8080"};
    const Texts foreign = {"",
                           ":8080",
                           "127.0.0.1",
                           "127.0.0.1:80",
                           "127.0.0.1:18080",
                           "127.0.0.1:8080:8080",
                           "127.0.0.1:8080/",
                           "::1:8080",
                           "192.168.0.9:8080",
                           "evil.example:8080",
                           "localhost.evil.example:8080",
                           "evil.example@127.0.0.1:8080"};
    for (const char* host : {"127.0.0.1", "localhost", "::1"}) {
        expectTaken({host, 8080}, loopback, foreign);
    }
    expectTaken({"127.0.0.2", 8080}, {"127.0.0.2:8080", "localhost:8080"}, {"127.0.0.3:8080"});
    expectTaken({"my-box", 8080}, {"my-box:8080", "My-Box:8080"}, {"my-box.evil.example:8080", "localhost:8080"});
    expectTaken({"fe80::1", 1}, {"[fe80::1]:1", "[FE80:0::1]:1"}, {"[fe80::2]:1", "[::1]:1"});
    for (const char* host : {"0.0.0.0", "::"}) {
        expectTaken({host, 8080}, {"192.168.0.9:8080", "[fe80::1]:8080", "localhost:8080"},
                    {"evil.example:8080", "192.168.0.9.evil.example:8080", "192.168.0.9",
                     std::string("192.168.0.9\0.evil.example:8080", 30)});
    }
    expectTaken({"127.0.0.1", 80}, {"localhost", "127.0.0.1:80", "[::1]"}, {"localhost:8080", "evil.example"});
}

TEST(RequestGuard, TakesOneHostAndNoMoreThanOneOrigin)
{
    const RequestGuard guard({"127.0.0.1", 8080});
    const std::string ours = "127.0.0.1:8080";
    const std::string origin = "http://" + ours;
    const RequestGuard::Headers refused[] = {{{}, {}},
                                             {{}, {origin}},
                                             {{ours, ours}, {}},
                                             {{ours}, {"null"}},
                                             {{ours}, {ours}},
                                             {{ours}, {"https://" + ours}},
                                             {{ours}, {origin, origin}},
                                             {{ours}, {}, {"cross-site"}, {"no-cors"}},
                                             {{ours}, {}, {"same-site"}, {}},
                                             {{ours}, {}, {"none", "cross-site"}, {"navigate", "cors"}}};
    for (const auto& headers : refused) {
        const auto reason = guard.refusal(headers);
        ASSERT_TRUE(reason) << "case " << &headers - refused;
        EXPECT_EQ(reason->find('\n'), std::string::npos);
    }
    for (const char* site : {"same-origin", "none"}) {
        EXPECT_FALSE(guard.refusal({{ours}, {}, {site}, {"no-cors"}})) << site;
    }
    EXPECT_FALSE(guard.refusal({{ours}, {}, {"cross-site"}, {"navigate"}})) << "a link to the page";
}

} // namespace
