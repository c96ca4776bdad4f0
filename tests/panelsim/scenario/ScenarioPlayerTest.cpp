#include "panelsim/scenario/ScenarioPlayer.h"

#include "panelsim/board/BoardGpioFactory.h"
#include "panelsim/picture/PanelSvg.h"
#include "panelsim/scenario/Scenario.h"
#include "tests/panelsim/scenario/FakeApplication.h"
#include "tests/panelsim/scenario/ScenarioFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace panelsim;
using namespace std::chrono_literals;
using Outcome = ScenarioResult::Outcome;

/** A simulated panel that scenarios are played on. */
class Rig {
public:
    Rig() { app.turnDisplayOn(); }

    /** @param meanwhile called each time that the player waits */
    ScenarioResult play(
        const std::string& steps, const std::function<void()>& meanwhile = [] {})
    {
        const Scenario scenario = readScenario(folder.writeSteps(steps), simulation.board);
        ScenarioPlayer player(scenario, simulation);
        while (true) {
            if (const auto result = player.advance()) {
                return *result;
            }
            meanwhile();
            std::this_thread::sleep_for(1ms);
        }
    }

    ScenarioFolder folder;
    Simulation simulation{FakeApplication::boardConfig(), [] { return 7ns; }};
    FakeApplication app{simulation};
};

/** What a step is to end with on a panel that a function has prepared. */
struct Case {
    const char* steps;
    std::function<void(FakeApplication&)> prepare;
    Outcome outcome;
    std::string text; ///< first line of the message, from the step's number on
};

void expectAll(const std::vector<Case>& cases)
{
    for (const Case& c : cases) {
        Rig rig;
        c.prepare(rig.app);
        const ScenarioResult result = rig.play(c.steps);
        EXPECT_EQ(result.outcome, c.outcome) << c.steps << "\n" << result.message;
        const auto text = result.message.find("step ");
        EXPECT_EQ(text == std::string::npos ? "" : result.message.substr(text, result.message.find('\n') - text),
                  c.text)
            << c.steps;
    }
}

} // namespace

TEST(ScenarioPlayer, PassesWhenThePanelIsAsExpected)
{
    Rig rig;
    rig.app.show(0, "Ready  to go");
    rig.app.show(1, "Gr\xFC\xDF", true);
    rig.app.show(2, "\x01|");
    rig.app.light(3);
    rig.app.light(8);
    rig.app.print("o\none two\n");
    const ScenarioResult result = rig.play(R"(
  - wait-text: {text: "y  t"}
  - expect-text: {text: "go ", line: 0, whole: false}
  - expect-text: {line: 1, text: Grüß}
  - wait-text: {text: "·| ", whole: true}
  - wait-inverted: {line: 1, to: 3}
  - expect-inverted: {line: 1, from: 4, is: false}
  - expect-led: {led: 3, is: on}
  - wait-led: {led: 4, is: off}
  - wait-backlight: {is: on}
  - expect-output: {text: one}
  - expect-no-bus-faults)");
    EXPECT_EQ(result.outcome, Outcome::Passed) << result.message;
    EXPECT_FALSE(result.exitAccepted);
    EXPECT_EQ(rig.simulation.log.linesFrom(2).lines.front().text,
              "step 1: wait-text a line to contain \"y  t\" within 5 s");
}

TEST(ScenarioPlayer, ReportsWhatIsThereInstead)
{
    const auto nothing = [](FakeApplication&) {};
    const auto ready = [](FakeApplication& app) { app.show(1, "Not yet"); };
    const auto off = [](FakeApplication& app) { app.turnDisplayOff(); };
    expectAll({
        {"- wait-text: {text: Ready, line: 1, within: 10ms}", ready, Outcome::Failed,
         "step 1, wait-text: expected line 1 to contain \"Ready\" within 10 ms, but line 1 shows \"Not yet\""},
        {"- expect-text: {text: Not}", ready, Outcome::Failed,
         "step 1, expect-text: expected a line to be \"Not\", but none is"},
        {"- expect-text: {line: 1, text: ''}\n- expect-text: {line: 1, text: Not yet}", off, Outcome::Failed,
         "step 2, expect-text: expected line 1 to be \"Not yet\", but the display is off"},
        {"- wait-inverted: {line: 1, from: 2, within: 1ms}", ready, Outcome::Failed,
         "step 1, wait-inverted: expected line 1 to be inverted from column 2 to 24 within 1 ms, but column 2 is not"},
        {"- expect-led: {led: 3, is: off}", [](FakeApplication& app) { app.light(3); }, Outcome::Failed,
         "step 1, expect-led: expected LED 3 to be off, but LED 3 is on"},
        {"- wait-backlight: {is: on, within: 1ms}", nothing, Outcome::Failed,
         "step 1, wait-backlight: expected the backlight to be on within 1 ms, but it is off"},
        {"- wait-output: {text: one, within: 0s}\n- wait-output: {text: one, within: 0s}",
         [](FakeApplication& app) { app.print("o\none two\n"); }, Outcome::Failed,
         "step 2, wait-output: expected the application to write \"one\" within 0 ms, but it has not"},
        {"- wait-output: {text: 'step 1', within: 0s}", nothing, Outcome::Failed,
         "step 1, wait-output: expected the application to write \"step 1\" within 0 ms, but it has not"},
        {"- expect-exit", nothing, Outcome::Failed,
         "step 1, expect-exit: expected the application to end with status 0, but it is not started"},
    });
}

TEST(ScenarioPlayer, JudgesHowTheApplicationEnds)
{
    const auto fails = [](FakeApplication& app) { app.exit(3); };
    const auto ends = [](FakeApplication& app) { app.exit(0); };
    const auto crashes = [](FakeApplication& app) { app.crash(); };
    const std::string status3 = "the application has ended with status 3";
    expectAll({
        {"- wait-exit: {status: 3}\n- tap: {key: 0, for: 0s}\n- delay: 0s", fails, Outcome::Passed, ""},
        {"- wait-exit: {status: 3}\n- wait-led: {led: 0, is: on}", fails, Outcome::Failed,
         "step 2, wait-led: expected LED 0 to be on within 5 s, but LED 0 is off"},
        {"- wait-exit", fails, Outcome::Failed,
         "step 1, wait-exit: expected the application to end with status 0 within 5 s, but it has ended with status 3"},
        {"- wait-exit: {status: 139}", crashes, Outcome::Passed, ""},
        {"- delay: 0s", crashes, Outcome::ApplicationFailed,
         "step 1, delay: the application has ended by signal 11 (Segmentation fault)"},
        {"- expect-led: {led: 0, is: off}\n- wait-text: {text: a}", fails, Outcome::ApplicationFailed,
         "step 2, wait-text: " + status3 + "; expected a line to contain \"a\" within 5 s, but none does"},
        {"- tap: {key: 0}\n- wait-led: {led: 0, is: off}\n- wait-output: {text: a}", ends, Outcome::Failed,
         "step 3, wait-output: expected the application to write \"a\" within 5 s, but the application has ended with "
         "status 0 and it has not"},
    });
    Rig rig;
    rig.app.exit(3);
    EXPECT_TRUE(rig.play("- wait-exit: {status: 3}").exitAccepted);
}

TEST(ScenarioPlayer, ShowsThePanelAndTheLogOfAFailure)
{
    Rig rig;
    rig.app.show(0, "Hello");
    std::string last;
    for (int i = 0; i < 12; ++i) {
        rig.app.print("\033 " + std::to_string(i) + "\xFF\n");
        last += i < 2 ? "" : "\n  · " + std::to_string(i) + "\uFFFD";
    }
    EXPECT_EQ(rig.play("- press: {key: 0}\n- expect-led: {led: 0, is: on}").message,
              rig.folder.path("a.yaml").string() +
                  ":5:3: step 2, expect-led: expected LED 0 to be on, but LED 0 is off\n"
                  "The panel shows:\n"
                  "┌───────────────────────────┐\n"
                  "│ Hello                     │\n"
                  "│                           │\n"
                  "│                           │\n"
                  "└───────────────────────────┘\n"
                  "display on, backlight off\n"
                  "LEDs ○ ○ ○ ○ ○ ○ ○ ○   keys [0]  1   2\n"
                  "The last lines of the application:" +
                  last);
    for (int i = 0; i < 6; ++i) {
        rig.app.disturbBus();
    }
    const std::string message = rig.play("- expect-no-bus-faults").message;
    EXPECT_NE(message.find("but there are 6:\n  chip select changed during a strobe at 7 ns\n"), std::string::npos);
    EXPECT_NE(message.find("at 7 ns\n  ...\nThe panel"), std::string::npos) << message;
}

TEST(ScenarioPlayer, HoldsATappedKeyUntilItIsReadAndLeavesItUntilThatIsReadToo)
{
    Rig rig;
    auto pin = BoardGpioFactory(rig.simulation.board).create();
    pin->exportGpio(11);
    pin->init(false, sysfs::PinDirectionEn::Input, false);
    std::string seen;
    auto due = std::chrono::steady_clock::now();
    const auto result = rig.play("- press: {key: 2}\n- tap: {key: 1, for: 1ms}\n- tap: {key: 1, for: 1ms}", [&] {
        if (std::chrono::steady_clock::now() > due) { // a busy machine
            seen += pin->getValue() ? '1' : '0';
            due += 50ms;
        }
    });
    EXPECT_EQ(result.outcome, Outcome::Passed);
    EXPECT_NE(seen.find("101"), std::string::npos) << seen;
    EXPECT_EQ(rig.simulation.board.lineLevel(12), LineLevel::Low) << "the end releases it";
    const auto begin = std::chrono::steady_clock::now();
    rig.play("- tap: {key: 0, for: 1ms}");
    EXPECT_LE(std::chrono::steady_clock::now() - begin, 3s) << "although nobody reads it";
}

TEST(ScenarioPlayer, WaitsUntilItComesTrueOrTheApplicationFails)
{
    Rig rig;
    int waits = 0;
    const ScenarioResult result =
        rig.play("- wait-text: {text: Ready}\n- wait-output: {text: ab}\n- tap: {key: 0, for: 60m}", [&] {
            rig.app.show(2, waits == 0 ? "Ready" : "");
            rig.app.print(waits == 1 ? "b\na" : waits == 2 ? "b" : "");
            if (++waits == 4) {
                rig.app.crash();
            }
        });
    EXPECT_EQ(result.outcome, Outcome::ApplicationFailed);
    EXPECT_NE(result.message.find("step 3, tap: the application has ended by signal 11"), std::string::npos);
    EXPECT_EQ(rig.simulation.board.lineLevel(10), LineLevel::Low);
}

TEST(ScenarioPlayer, LetsPinsFail)
{
    Rig rig;
    rig.play("- fail-pin: {gpio: 20, calls: 2}\n- fail-pin: {gpio: 21, with: false}");
    const auto made = [&](unsigned gpio) {
        auto pin = BoardGpioFactory(rig.simulation.board).create();
        pin->exportGpio(gpio);
        return pin->init(false, sysfs::PinDirectionEn::Output, true);
    };
    EXPECT_THROW(made(20), std::runtime_error);
    EXPECT_THROW(made(20), std::runtime_error);
    EXPECT_TRUE(made(20));
    EXPECT_FALSE(made(21));
    EXPECT_TRUE(made(21));
}

TEST(ScenarioPlayer, SavesAndComparesPictures)
{
    Rig rig;
    for (const std::string extension : {".txt", ".svg"}) {
        const std::string golden = "golden" + extension;
        const std::string compare = "- take-screenshot: {compare-with: " + golden + "}";
        EXPECT_EQ(rig.play("- take-screenshot: {save-to: " + golden + "}").outcome, Outcome::Passed);
        EXPECT_EQ(rig.play(compare).outcome, Outcome::Passed);
        rig.app.show(1, extension);
        const ScenarioResult result =
            rig.play("- take-screenshot: {save-to: new" + extension + ", compare-with: " + golden + "}");
        EXPECT_EQ(result.outcome, Outcome::Failed);
        const std::string path = rig.folder.path(golden).string();
        EXPECT_NE(result.message.find("new" + extension + " to " + path + "\nThe panel"), std::string::npos);
        EXPECT_NE(rig.folder.read("new" + extension), rig.folder.read(golden));
    }
    EXPECT_EQ(rig.folder.read("new.svg"),
              drawPanelSvg(rig.simulation.board.getConfig(), rig.simulation.board.view(), SvgExtent::Panel));
    const std::string message = rig.play("- take-screenshot: {compare-with: golden.txt}").message;
    EXPECT_NE(message.find("line 3 differs:\n  file:  │                           │\n  panel: │ .svg"),
              std::string::npos)
        << message;
    std::filesystem::create_directory(rig.folder.path("folder.txt"));
    const ScenarioResult result = rig.play("- take-screenshot: {save-to: folder.txt}");
    EXPECT_EQ(result.outcome, Outcome::FileError);
    EXPECT_NE(result.message.find("cannot write " + rig.folder.path("folder.txt").string() + ": Is a directory"),
              std::string::npos);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(rig.folder.path("")), {}), 6) << "no leftovers";
}
