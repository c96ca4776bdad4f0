#include "panelsim/scenario/ScenarioRunner.h"

#include "panelsim/board/BoardGpioFactory.h"
#include "panelsim/picture/PanelSvg.h"
#include "panelsim/picture/PanelText.h"
#include "panelsim/scenario/ScenarioFile.h"
#include "tests/panelsim/scenario/FakeApplication.h"
#include "tests/panelsim/scenario/ScenarioFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace panelsim;
using namespace std::chrono_literals;
using Outcome = ScenarioResult::Outcome;

/** A simulated panel that scenarios are played on. */
class Stage {
public:
    Stage() { app.turnDisplayOn(); }

    ScenarioResult play(const std::string& steps)
    {
        const Scenario scenario = read(steps);
        return ScenarioRunner(scenario, simulation).run();
    }

    /** Plays while the application does something, once the scenario is in step 2. */
    ScenarioResult play(const std::string& steps, const std::function<void(ScenarioRunner&)>& meanwhile)
    {
        const Scenario scenario = read(steps);
        ScenarioRunner runner(scenario, simulation);
        auto result = std::async(std::launch::async, [&] { return runner.run(); });
        while (log().find("step 2: ") == std::string::npos && result.wait_for(1ms) != std::future_status::ready) {
        }
        meanwhile(runner);
        return result.get();
    }

    std::string log() const
    {
        std::string text;
        for (const LogLine& line : simulation.log.linesFrom(0).lines) {
            text += line.text + "\n";
        }
        return text;
    }

    ScenarioFolder folder;
    Simulation simulation{FakeApplication::boardConfig(), [] { return 7ns; }};
    FakeApplication app{simulation};

private:
    Scenario read(const std::string& steps) const
    {
        return readScenario(folder.writeSteps(steps), simulation.board.getConfig());
    }
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
        Stage stage;
        c.prepare(stage.app);
        const ScenarioResult result = stage.play(c.steps);
        EXPECT_EQ(result.outcome, c.outcome) << c.steps << "\n" << result.message;
        const auto text = result.message.find("step ");
        EXPECT_EQ(text == std::string::npos ? "" : result.message.substr(text, result.message.find('\n') - text),
                  c.text)
            << c.steps;
    }
}

void nothing(FakeApplication& /*app*/)
{
}

} // namespace

TEST(ScenarioRunner, PassesWhenThePanelIsAsExpected)
{
    Stage stage;
    stage.app.show(0, "Ready  to go");
    stage.app.show(1, "Gr\xFC\xDF", true);
    stage.app.show(2, "\x01|");
    stage.app.light(3);
    stage.app.light(8);
    const ScenarioResult result = stage.play(R"(
  - wait-text: {text: "y  t"}
  - wait-text: {text: "go ", line: 0}
  - expect-text: {line: 1, text: Grüß}
  - expect-text: {line: 2, text: "·| "}
  - expect-inverted: {line: 1, to: 3}
  - expect-inverted: {line: 1, from: 4, is: false}
  - expect-led: {led: 3, is: on}
  - wait-led: {led: 4, is: off}
  - expect-backlight: {is: on}
  - expect-no-bus-faults)");
    EXPECT_EQ(result.outcome, Outcome::Passed);
    EXPECT_EQ(result.message, "");
    EXPECT_FALSE(result.exitAccepted);
    EXPECT_NE(stage.log().find("step 1: wait-text a line to contain \"y  t\" within 5 s\n"), std::string::npos);
}

TEST(ScenarioRunner, SaysWhatIsThereInstead)
{
    const auto ready = [](FakeApplication& app) { app.show(1, "Not yet"); };
    const auto off = [](FakeApplication& app) { app.turnDisplayOff(); };
    expectAll({
        {"- wait-text: {text: Ready, line: 1, within: 0s}", ready, Outcome::Failed,
         "step 1, wait-text: expected line 1 to contain \"Ready\" within 0 ms, but line 1 shows \"Not yet\""},
        {"- wait-text: {text: Ready, within: 10ms}", ready, Outcome::Failed,
         "step 1, wait-text: expected a line to contain \"Ready\" within 10 ms, but none does"},
        {"- wait-text: {text: Ready, within: 0s}", off, Outcome::Failed,
         "step 1, wait-text: expected a line to contain \"Ready\" within 0 ms, but the display is off"},
        {"- expect-text: {line: 1, text: Not}", ready, Outcome::Failed,
         "step 1, expect-text: expected line 1 to be \"Not\", but line 1 shows \"Not yet\""},
        {"- expect-text: {line: 1, text: ''}\n- expect-text: {line: 1, text: Not yet}", off, Outcome::Failed,
         "step 2, expect-text: expected line 1 to be \"Not yet\", but the display is off"},
        {"- expect-inverted: {line: 1, from: 2}", ready, Outcome::Failed,
         "step 1, expect-inverted: expected line 1 to be inverted from column 2 to 24, but column 2 is not"},
        {"- expect-led: {led: 3, is: on}", nothing, Outcome::Failed,
         "step 1, expect-led: expected LED 3 to be on, but LED 3 is off"},
        {"- wait-led: {led: 3, is: off, within: 0s}", [](FakeApplication& app) { app.light(3); }, Outcome::Failed,
         "step 1, wait-led: expected LED 3 to be off within 0 ms, but LED 3 is on"},
        {"- expect-backlight: {is: on}", nothing, Outcome::Failed,
         "step 1, expect-backlight: expected the backlight to be on, but it is off"},
        {"- wait-output: {text: one, within: 0s}\n- wait-output: {text: one, within: 0s}",
         [](FakeApplication& app) { app.print("o\none two\n"); }, Outcome::Failed,
         "step 2, wait-output: expected the application to write \"one\" within 0 ms, but it has not"},
        {"- wait-output: {text: 'step 1', within: 0s}", nothing, Outcome::Failed,
         "step 1, wait-output: expected the application to write \"step 1\" within 0 ms, but it has not"},
        {"- wait-exit: {within: 0s}", nothing, Outcome::Failed,
         "step 1, wait-exit: expected the application to end with status 0 within 0 ms, but it is not started"},
    });
}

TEST(ScenarioRunner, JudgesHowTheApplicationEnds)
{
    const auto fails = [](FakeApplication& app) { app.exit(3); };
    const auto ends = [](FakeApplication& app) { app.exit(0); };
    const auto crashes = [](FakeApplication& app) { app.crash(); };
    const std::string status3 = "the application has ended with status 3";
    expectAll({
        {"- wait-exit: {status: 3}\n- tap: {key: 0, for: 0s}\n- delay: 0s", fails, Outcome::Passed, ""},
        {"- wait-exit: {status: 3}\n- wait-led: {led: 0, is: on}", fails, Outcome::Failed,
         "step 2, wait-led: expected LED 0 to be on within 5 s, but " + status3 + " and LED 0 is off"},
        {"- wait-exit", fails, Outcome::Failed,
         "step 1, wait-exit: expected the application to end with status 0 within 5 s, but it has ended with status 3"},
        {"- wait-exit: {status: 139}", crashes, Outcome::Passed, ""},
        {"- delay: 0s", crashes, Outcome::ApplicationFailed,
         "step 1, delay: the application has ended by signal 11 (Segmentation fault)"},
        {"- press: {key: 0}", fails, Outcome::ApplicationFailed, "step 1, press: " + status3},
        {"- expect-led: {led: 0, is: off}\n- wait-text: {text: a}", fails, Outcome::ApplicationFailed,
         "step 2, wait-text: " + status3 + "; expected a line to contain \"a\" within 5 s, but none does"},
        {"- expect-led: {led: 0, is: on}", fails, Outcome::ApplicationFailed,
         "step 1, expect-led: " + status3 + "; expected LED 0 to be on, but LED 0 is off"},
        {"- tap: {key: 0}\n- wait-led: {led: 0, is: off}\n- wait-output: {text: a}", ends, Outcome::Failed,
         "step 3, wait-output: expected the application to write \"a\" within 5 s, but the application has ended with "
         "status 0 and it has not"},
        {"- expect-led: {led: 0, is: on}", ends, Outcome::Failed,
         "step 1, expect-led: expected LED 0 to be on, but LED 0 is off"},
    });
    Stage stage;
    stage.app.exit(3);
    EXPECT_TRUE(stage.play("- wait-exit: {status: 3}").exitAccepted);
}

TEST(ScenarioRunner, ShowsThePanelAndTheLogOfAFailure)
{
    Stage stage;
    const std::string place = stage.folder.path("a.yaml").string() + ":5:3: step 2, expect-led: ";
    const std::string panel = "\nThe panel shows:\n"
                              "┌───────────────────────────┐\n"
                              "│ Hello                     │\n"
                              "│                           │\n"
                              "│                           │\n"
                              "└───────────────────────────┘\n"
                              "display on, backlight off\n"
                              "LEDs ○ ○ ○ ○ ○ ○ ○ ○   keys [0]  1   2\n";
    stage.app.show(0, "Hello");
    const std::string steps = "- press: {key: 0}\n- expect-led: {led: 0, is: on}";
    EXPECT_EQ(stage.play(steps).message,
              place + "expected LED 0 to be on, but LED 0 is off" + panel + "The application has written nothing.");
    std::string last;
    for (int i = 0; i < 12; ++i) {
        stage.app.print("\033 " + std::to_string(i) + "\xFF\n");
        last += i < 2 ? "" : "\n  · " + std::to_string(i) + "\uFFFD";
    }
    EXPECT_EQ(stage.play(steps).message, place + "expected LED 0 to be on, but LED 0 is off" + panel +
                                             "The last lines of the application:" + last);
}

TEST(ScenarioRunner, ListsTheFirstBusFaults)
{
    Stage stage;
    for (int i = 0; i < 6; ++i) {
        stage.app.disturbBus();
    }
    const std::string message = stage.play("- expect-no-bus-faults").message;
    std::string faults;
    for (int i = 0; i < 5; ++i) {
        faults += "\n  chip select changed during a strobe at 7 ns";
    }
    EXPECT_NE(message.find("expected no faults on the LCD bus, but there are 6:" + faults + "\n  ...\nThe panel"),
              std::string::npos)
        << message;
}

TEST(ScenarioRunner, PressesKeysAndLeavesThemInTheEnd)
{
    Stage stage;
    std::string changes;
    stage.simulation.board.observe([&](const LineChange& change) {
        changes += std::to_string(change.gpio) + (change.level == LineLevel::High ? "+ " : "- ");
    });
    changes.clear(); // of the levels that the lines had
    EXPECT_EQ(
        stage.play("- press: {key: 0}\n- tap: {key: 1, for: 1ms}\n- release: {key: 0}\n- press: {key: 2}").outcome,
        Outcome::Passed);
    EXPECT_EQ(changes, "10+ 11+ 11- 10- 12+ 12- ");
}

TEST(ScenarioRunner, LetsPinsFail)
{
    Stage stage;
    stage.play("- fail-pin: {gpio: 20, calls: 2}\n- fail-pin: {gpio: 21, with: false}");
    const auto made = [&](unsigned gpio) {
        auto pin = BoardGpioFactory(stage.simulation.board).create();
        pin->exportGpio(gpio);
        return pin->init(false, sysfs::PinDirectionEn::Output, true);
    };
    EXPECT_THROW(made(20), std::runtime_error);
    EXPECT_THROW(made(20), std::runtime_error);
    EXPECT_TRUE(made(20));
    EXPECT_FALSE(made(21));
    EXPECT_TRUE(made(21));
}

TEST(ScenarioRunner, WaitsUntilItComesTrue)
{
    const std::string steps = "- delay: 1ms\n";
    const auto playAlong = [&](const std::string& wait, const std::function<void(FakeApplication&)>& action) {
        Stage stage;
        const ScenarioResult result = stage.play(steps + wait, [&](ScenarioRunner&) { action(stage.app); });
        EXPECT_EQ(result.outcome, Outcome::Passed) << result.message;
    };
    playAlong("- wait-text: {text: Ready, within: 1m}", [](FakeApplication& app) { app.show(2, "Ready"); });
    playAlong("- wait-led: {led: 7, is: on, within: 1m}", [](FakeApplication& app) { app.light(7); });
    playAlong("- wait-output: {text: ab, within: 1m}", [](FakeApplication& app) {
        app.print("b\na");
        app.print("b");
    });
    playAlong("- wait-exit: {status: 1, within: 1m}", [](FakeApplication& app) { app.exit(1); });
}

TEST(ScenarioRunner, EndsWhenItIsStoppedOrTheApplicationFails)
{
    for (const std::string step : {"delay: 1440m", "tap: {key: 0, for: 60m}", "wait-text: {text: a, within: 60m}"}) {
        Stage stage;
        const std::string steps = "- delay: 0s\n- " + step + "\n- press: {key: 0}";
        EXPECT_EQ(stage.play(steps, [](ScenarioRunner& runner) { runner.stop(); }).outcome, Outcome::Stopped);
        EXPECT_EQ(stage.simulation.board.lineLevel(10), LineLevel::Low);
        Stage other;
        EXPECT_EQ(other.play(steps, [&](ScenarioRunner&) { other.app.crash(); }).outcome, Outcome::ApplicationFailed);
        EXPECT_EQ(other.simulation.board.lineLevel(10), LineLevel::Low);
    }
}

TEST(ScenarioRunner, SavesAndComparesPictures)
{
    Stage stage;
    for (const std::string extension : {".txt", ".svg"}) {
        const std::string golden = "golden" + extension;
        const std::string take = "- take-screenshot: {save-to: " + golden + "}";
        const std::string compare = "- take-screenshot: {compare-with: " + golden + "}";
        const std::string both = "- take-screenshot: {save-to: new" + extension + ", compare-with: " + golden + "}";
        EXPECT_EQ(stage.play(take).outcome, Outcome::Passed);
        EXPECT_EQ(stage.play(compare).outcome, Outcome::Passed);
        stage.app.show(1, extension);
        const ScenarioResult result = stage.play(both);
        EXPECT_EQ(result.outcome, Outcome::Failed);
        const std::string path = stage.folder.path(golden).string();
        EXPECT_NE(result.message.find("in " + path + ", saved to "), std::string::npos) << result.message;
        EXPECT_NE(result.message.find("new" + extension + " to " + path + "\nThe panel"), std::string::npos);
        EXPECT_NE(stage.play(compare).message.find("write save-to in place of compare-with"), std::string::npos);
        EXPECT_NE(stage.folder.read("new" + extension), stage.folder.read(golden));
        const PanelView view = stage.simulation.board.view();
        EXPECT_EQ(stage.folder.read("new" + extension),
                  extension == ".txt" ? drawPanel(stage.simulation.board.getConfig(), view, TextStyle::Plain)
                                      : drawPanelSvg(stage.simulation.board.getConfig(), view, SvgExtent::Panel));
    }
    const std::string blank = "│                           │";
    EXPECT_NE(stage.play("- take-screenshot: {compare-with: golden.txt}")
                  .message.find("line 3 differs:\n  file:  " + blank + "\n  panel: │ .svg"),
              std::string::npos);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(stage.folder.path("")), {}), 5) << "no leftovers";
}

TEST(ScenarioRunner, TellsOfPicturesThatCannotBeWritten)
{
    Stage stage;
    std::filesystem::create_directory(stage.folder.path("folder.txt"));
    stage.folder.write("folder.txt/old", "");
    const ScenarioResult result = stage.play("- take-screenshot: {save-to: folder.txt}");
    EXPECT_EQ(result.outcome, Outcome::FileError);
    EXPECT_EQ(result.message, stage.folder.path("a.yaml").string() + ":4:3: step 1, take-screenshot: cannot write " +
                                  stage.folder.path("folder.txt").string() + ": Is a directory");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(stage.folder.path("")), {}), 2) << "no leftovers";
}
