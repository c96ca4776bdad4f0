#include "panelsim/board/AppLog.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using panelsim::AppLog;
using Source = panelsim::LogLine::Source;

std::string textFrom(const AppLog& log, std::uint64_t number)
{
    const AppLog::Lines found = log.linesFrom(number);
    std::string text = std::to_string(found.first) + ":";
    for (const auto& line : found.lines) {
        text += " " + line.text + (line.complete ? ";" : "...");
    }
    return text;
}

TEST(AppLog, PutsPiecesTogetherToLinesInTheOrderInWhichTheyBegan)
{
    panelsim::ChangeSignal changes;
    AppLog log(changes);
    log.append(Source::Output, "one\ntw");
    log.append(Source::Error, "ERR");
    log.remark("remark");
    log.append(Source::Output, "o\n\n");
    EXPECT_EQ(textFrom(log, 0), "0: one; two; ERR... remark; ;");
    log.endLine(Source::Error);
    log.endLine(Source::Error);
    EXPECT_EQ(textFrom(log, 2), "2: ERR; remark; ;");
    EXPECT_EQ(textFrom(log, 9), "5:");
    EXPECT_EQ(changes.count(), 5U);
}

TEST(AppLog, StaysBoundedWhateverIsWritten)
{
    panelsim::ChangeSignal changes;
    AppLog log(changes);
    log.append(Source::Output, std::string(2 * AppLog::longestLine, 'x'));
    EXPECT_EQ(log.linesFrom(0).lines.size(), 2U);
    for (std::size_t i = 0; i < AppLog::mostOvertaking; ++i) {
        log.append(Source::Error, "e\n");
    }
    EXPECT_FALSE(log.linesFrom(1).lines.front().complete);
    log.append(Source::Error, "e\n");
    EXPECT_TRUE(log.linesFrom(1).lines.front().complete) << "overtaken by many";
    log.append(Source::Output, "later\n");
    for (std::size_t i = 0; i < AppLog::keptLines - 1; ++i) {
        log.append(Source::Error, "e\n");
    }
    EXPECT_EQ(log.linesFrom(0).lines.size(), AppLog::keptLines);
    EXPECT_EQ(log.linesFrom(0).lines.front().text, "later");
    EXPECT_EQ(log.linesFrom(0).first, 23U);
    const AppLog::Lines some = log.linesFrom(0, 7);
    EXPECT_EQ(some.lines.size(), 3U) << "later, e, e";
    EXPECT_FALSE(some.last);
    EXPECT_TRUE(log.linesFrom(some.first + AppLog::keptLines - 2, 2).last);
}

TEST(AppLog, FindsTextAfterAPlaceButNotInRemarks)
{
    panelsim::ChangeSignal changes;
    AppLog log(changes);
    log.remark("Ready");
    EXPECT_FALSE(log.find("Ready", {}));
    log.append(Source::Error, "Ready, Ready");
    const auto first = log.find("Ready", {});
    ASSERT_TRUE(first);
    EXPECT_EQ(first->place.line, 1U);
    EXPECT_EQ(first->place.column, 5U);
    const auto second = log.find("Ready", *first);
    ASSERT_TRUE(second);
    EXPECT_FALSE(log.find("Ready", *second));
    log.append(Source::Output, "Ready\n");
    const auto third = log.find("Ready", *second);
    ASSERT_TRUE(third);
    EXPECT_FALSE(log.find("Ready", *third)) << "not what the line that goes on said before";
    log.append(Source::Error, ", Ready\n");
    const auto fourth = log.find("Ready", *third);
    ASSERT_TRUE(fourth);
    EXPECT_FALSE(log.find("Ready", *fourth));
}

} // namespace
