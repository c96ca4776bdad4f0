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
    EXPECT_LE(std::chrono::system_clock::now() - log.linesFrom(0).lines.back().time, std::chrono::minutes(1));
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
    AppLog::Position position{};
    EXPECT_FALSE(log.find("Ready", position));
    log.append(Source::Error, "Ready, Ready");
    EXPECT_TRUE(log.find("Ready", position));
    EXPECT_TRUE(log.find("Ready", position));
    EXPECT_FALSE(log.find("Ready", position));
    log.append(Source::Output, "Ready\n");
    EXPECT_TRUE(log.find("Ready", position));
    EXPECT_FALSE(log.find("Ready", position)) << "not what the line that goes on said before";
    log.append(Source::Error, ", Ready\n");
    EXPECT_TRUE(log.find("Ready", position));
    EXPECT_FALSE(log.find("Ready", position));
}

} // namespace
