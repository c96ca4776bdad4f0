#include "panelsim/picture/VcdTrace.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

using namespace panelsim;
using namespace std::chrono_literals;

namespace {

class VcdTraceTest : public testing::Test {
protected:
    VcdTraceTest() { config.ledCount = config.keyCount = 1; }
    ~VcdTraceTest() override { std::filesystem::remove(path); }

    std::string written() const
    {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /** Lets LED 0 blink, at each nanosecond. */
    void blink(Board& board, unsigned times)
    {
        for (unsigned i = 0; i < times; ++i) {
            ++now;
            board.makeOutput(config.ledGpioBase, i % 2 == 0);
        }
    }
    static std::string failureOf(VcdTrace& trace, int error)
    {
        try {
            trace.close();
        } catch (const std::system_error& e) {
            EXPECT_EQ(e.code().value(), error);
            return e.what();
        }
        return "none";
    }

    BoardConfig config;
    std::chrono::nanoseconds now = 1h;
    const Board::Clock clock = [this] { return now; };
    const std::filesystem::path path = testing::TempDir() + "trace" + std::to_string(getpid()) + ".vcd";
};

TEST_F(VcdTraceTest, TellsLevelsAndWhenTheyChange)
{
    config.chip = ChipVariant::Ra8803;
    Board board(config, clock);
    VcdTrace trace(board, path);
    now += 5ns;
    board.press(0);
    board.makeOutput(20, true);
    now += 2ns;
    board.makeOutput(10, true);
    board.release(0); // does not show on a line that is driven
    board.makeOutput(49, false);
    now += 3ns;
    board.makeOutput(50, false); // the chip answers 0xC9
    now += 10us;
    board.makeOutput(50, true);
    now += 10ns;
    trace.close();
    board.press(0);
    const std::string text = written();
    EXPECT_EQ(text.find("$version panelsim "), 0U);
    EXPECT_EQ(text.substr(text.find("$timescale")),
              "$timescale 1 ns $end\n$scope module panel $end\n$scope module lcd $end\n"
              "$var wire 1 ! data0 $end\n$var wire 1 \" data1 $end\n$var wire 1 # data2 $end\n"
              "$var wire 1 $ data3 $end\n$var wire 1 % data4 $end\n$var wire 1 & data5 $end\n"
              "$var wire 1 ' data6 $end\n$var wire 1 ( data7 $end\n$var wire 1 ) register_select $end\n"
              "$var wire 1 * chip_select_n $end\n$var wire 1 + read_strobe_n $end\n"
              "$var wire 1 , write_strobe_n $end\n$var wire 1 - reset_n $end\n$var wire 1 . backlight $end\n"
              "$upscope $end\n$scope module keys $end\n$var wire 1 / key0 $end\n"
              "$upscope $end\n$scope module leds $end\n$var wire 1 0 led0 $end\n"
              "$upscope $end\n$scope module id $end\n$var wire 1 1 id0 $end\n$var wire 1 2 id1 $end\n"
              "$var wire 1 3 id2 $end\n$var wire 1 4 id3 $end\n$upscope $end\n$upscope $end\n$enddefinitions $end\n"
              "#0\n$dumpvars\n11\n12\n13\n14\n0/\nz0\nz.\nz!\nz\"\nz#\nz$\nz%\nz&\nz'\nz(\nz)\n1*\n1+\n1,\n1-\n$end\n"
              "#5\n1/\n10\n#7\n0*\n#10\n0+\n1!\n0\"\n0#\n1$\n0%\n0&\n1'\n1(\n"
              "#10010\n1+\nz!\nz\"\nz#\nz$\nz%\nz&\nz'\nz(\n#10020\n");
}

TEST_F(VcdTraceTest, NamesManyLinesOfAPanelWithoutLcd)
{
    config = boardOf(panelKind("outdoor"));
    config.ledCount = 100;
    Board board(config, clock);
    VcdTrace(board, path).close();
    const std::string text = written();
    EXPECT_NE(text.find("$scope module panel $end\n$scope module keys $end\n"), std::string::npos);
    EXPECT_NE(text.find("$var wire 1 ~ led91 $end\n$var wire 1 !\" led92 $end\n"), std::string::npos);
}

TEST_F(VcdTraceTest, ReachesTheFileWhileItGoesOn)
{
    Board board(config, clock);
    VcdTrace trace(board, path);
    blink(board, 1000);
    trace.flush();
    EXPECT_NE(written().find("#999\n10\n#1000\n00\n"), std::string::npos);
    for (int i = 0; i < 1000 && written().find("#1500") == std::string::npos; ++i) {
        blink(board, 100);
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_NE(written().find("#1500"), std::string::npos) << "while lines change, without flush";
}

TEST_F(VcdTraceTest, SaysWhatCouldNotBeWrittenAndLetsTheBoardGoOn)
{
    Board board(config, clock);
    EXPECT_THROW(VcdTrace(board, path / "none"), std::system_error);
    VcdTrace full(board, "/dev/full");
    blink(board, 2);
    EXPECT_EQ(failureOf(full, ENOSPC), "cannot write /dev/full: No space left on device");
    EXPECT_EQ(failureOf(full, ENOSPC), "none") << "reported once";

    mkfifo(path.c_str(), 0600);
    EXPECT_THROW(VcdTrace(board, path), std::system_error) << "nobody reads it";
    const FileDescriptor reader(open(path.c_str(), O_RDONLY | O_NONBLOCK), "pipe");
    VcdTrace stalled(board, path);
    blink(board, 20000);
    EXPECT_EQ(failureOf(stalled, ETIMEDOUT), "cannot write " + path.string() + ": Connection timed out");
    EXPECT_EQ(board.lineLevel(config.ledGpioBase), LineLevel::Low);
}

} // namespace
