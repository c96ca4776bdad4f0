#include "panelsim/scenario/Scenario.h"
#include "panelsim/picture/PanelSvg.h"
#include "panelsim/scenario/ScenarioPlayer.h"
#include "tests/panelsim/FakeApplication.h"
#include "tests/panelsim/TestFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <thread>

using namespace panelsim;

static BoardConfig namedBoard()
{
    BoardConfig config = FakeApplication::boardConfig();
    config.keyNames = {"Up", "Down", "Enter"};
    config.ledNames = {"A", "B", "C", "D", "E", "F", "G", "Alarm"};
    return config;
}

/** A simulated panel that scenarios of the present folder are played on, and its application. */
struct Rig {
    explicit Rig(const BoardConfig& config = namedBoard())
        : simulation(config, [] { return std::chrono::nanoseconds(7); })
    {
        std::filesystem::current_path(folder.path(""));
    }

    void print(const std::string& text) { simulation.log.append(LogLine::Source::Output, text); }
    void show()
    {
        app.turnDisplayOn();
        app.clear();
        app.show(0, "Ready  to go");
        app.show(1, "Gr\xFC\xDF", true);
        app.light(7);
    }

    /** Says which use of pins failed and how key 1 is now and then. */
    void live(int times)
    {
        for (const unsigned gpio : times == 1 ? std::vector{20U, 20U, 20U, 21U, 21U} : std::vector<unsigned>()) {
            try {
                print(simulation.board.admit(PinOperation::Init, gpio) ? "1" : "0");
            } catch (const std::runtime_error&) {
                print("x");
            }
        }
        print(times == 0 ? "o\none two\n\033[7m" : times % 8 != 0 ? "" : simulation.board.read(11) ? "+" : "-");
    }

    /**
     * @param text of the scenario, or steps, which begin in line 4
     * @return the exit status and what was reported
     */
    std::string play(const std::string& text, bool lives = false)
    try {
        const bool isWhole = text.rfind("- ", 0) != 0;
        folder.write("a.yaml", isWhole ? text : "name: Try\nversion: 1\nsteps:\n" + text + "\n");
        const Scenario scenario = readScenario("a.yaml", simulation.board);
        std::optional<ScenarioPlayer> player(std::in_place, scenario, simulation);
        std::optional<ScenarioResult> result;
        for (int i = 0; !result; ++i) {
            lives ? live(i) : void();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            result = player->advance();
        }
        player.reset();
        EXPECT_EQ(simulation.board.view().keys, std::vector<bool>(3)) << "left pressed by " << text;
        return std::to_string(static_cast<int>(result->outcome)) + " " + result->message;
    } catch (const std::runtime_error& error) {
        return std::string("2 ") + error.what();
    }

    TestFolder folder;
    Simulation simulation;
    FakeApplication app{simulation.board};
};

/**
 * A line for each: how the application does, if it matters, a scenario or its steps, with ~ for the end of a line =>
 * exit status and first line of the report. A line that begins with a blank goes on.
 */
const char* const scenarios = R"(
live - delay: 3ms~- press: {key: Up}~- release:~    key: 0~- tap: {key: 0, for: 1ms}~- delay: 0s => 0 
live - tap: {key: Down, for: 1ms}~- tap: {key: 1, for: 1ms}~- wait-output: {text: +-+-} => 0 
- expect-text: {text: "go ", line: 0, whole: false}~- expect-text: {text: "Grüß  "}~- wait-text: {text: x, within: 1ms}
 => 1 a.yaml:6:3: step 3, wait-text: {text: x, within: 1ms}: after 1 ms, no line shows it
- wait-text: {text: Grü}~- expect-text: {text: Grü, line: 1}
 => 1 a.yaml:5:3: step 2, expect-text: {text: Grü, line: 1}: line 1 shows "Grüß"
dark - expect-inverted: {line: 1, is: off}~- expect-text: {line: 1, text: ''}~-  expect-text: {text: Grüß}
 => 1 a.yaml:6:4: step 3, expect-text: {text: Grüß}: the display is off
- wait-inverted: {line: 1, to: 3}~- expect-inverted: {line: 1, from: 4, is: FALSE}~- expect-inverted: {line: 1, to: 4}
 => 1 a.yaml:6:3: step 3, expect-inverted: {line: 1, to: 4}: column 4 is not inverted
- wait-led: {led: 7, is: on}~- expect-led: {led: 6, is: off}~- expect-led: {led: Alarm, is: false}
 => 1 a.yaml:6:3: step 3, expect-led: {led: Alarm, is: false}: LED Alarm is on
- wait-backlight: {is: "off"}~- expect-backlight: {is: on}
 => 1 a.yaml:5:3: step 2, expect-backlight: {is: on}: the backlight is off
live - wait-output: {text: one, within: 0s}~- wait-output: {text: one, within: 0s}
 => 1 a.yaml:5:3: step 2, wait-output: {text: one, within: 0s}: after 0 ms, it was not written
live - expect-output: {text: "\e[7m"}~- expect-output: {text: 'step 1'}
 => 1 a.yaml:5:3: step 2, expect-output: {text: step 1}: it was not written
live - fail-pin: {gpio: 20, calls: 2}~- fail-pin: {gpio: 21, with: false}~- wait-output: {text: xx101} => 0 
- expect-no-bus-faults:~- expect-exit => 1 a.yaml:5:3: step 2, expect-exit: the application is not started
3 - wait-exit: {status: 3}~- delay: 0s~- wait-exit
 => 1 a.yaml:6:3: step 3, wait-exit: the application has ended with status 3
0 - tap: {key: 0}~- wait-led: {led: 0, is: on}
 => 1 a.yaml:5:3: step 2, wait-led: {led: 0, is: on}: the application has ended with status 0; LED A is off
- delay: 1.s => 2 a.yaml:4:10: delay: expected a duration
- delay: 1440.1m => 2 a.yaml:4:10: delay: expected a duration up to 24 hours, such as 300ms, 1.5s or 2m, not "1440.1m"
- press: {key: 3} => 2 a.yaml:4:16: key: expected a whole number from 0 to 2 or one of Up, Down, Enter, not "3"
- fail-pin: {gpio: 53} => 2 a.yaml:4:20: gpio: GPIO 53: no such GPIO on this board
- wait-led: {led: 1} => 2 a.yaml:4:13: wait-led: the field "is" is missing
- press: {key: 0, key: 0} => 2 a.yaml:4:19: "key" is given twice
- press:~  key: 0
 => 2 a.yaml:4:3: expected a step such as press: {key: 0}, each with a dash of its own, its fields indented
- expect-text: {text: äääääääääääääääääääääääää}~- expect-text: {text: äääääääääääääääääääääääää.}
 => 2 a.yaml:5:23: text: expected Latin-1 characters only, 25 at most
- take-screenshot => 2 a.yaml:4:3: take-screenshot: save-to or compare-with is missing
- take-screenshot: {save-to: no/a.svg}
 => 2 a.yaml:4:30: save-to: expected the name of a file that ends in .svg or .txt, in a folder that is there, not "no/a
- take-screenshot: {save-to: b.txt, compare-with: ./b.txt}
 => 2 a.yaml:4:20: take-screenshot: compare-with is the file that save-to
- waittext: {}
 => 2 a.yaml:4:3: there is no step "waittext"; the steps are delay, press, release, tap, expect-text, wait-text, 
- delay: "1s => 2 a.yaml:5:1: this is not YAML: a quoted text does not end
- delay: 1s~--- # x~- delay: 1s => 2 a.yaml:6:1: a second document begins here: a scenario is one
)";

TEST(Scenario, EndsAsItsStepsAndTheApplicationDo)
{
    std::vector<std::pair<std::string, std::string>> cases = {
        {"", "2 a.yaml:1:1: a scenario: the field \"name\" is missing"},
        {"\xEF\xBB\xBF{name: ä,\r\nversion: 1, steps: [press]}", "2 a.yaml:2:21: press: the field \"key\" is missing"},
        {std::string(largestScenario + 1, ' '), "2 cannot read a.yaml: File too large"},
        {"- delay: " + std::string(600, '['), "2 a.yaml:5:1: this is not YAML: it is nested too deeply"},
        {"- delay: \x04", "2 a.yaml:4:10: this is a control character, or not UTF-8"}};
    std::istringstream lines(std::regex_replace(scenarios + 1, std::regex("\n "), " "));
    for (std::string line; std::getline(lines, line);) {
        const auto arrow = line.find(" => ");
        cases.emplace_back(std::regex_replace(line.substr(0, arrow), std::regex("~"), "\n"), line.substr(arrow + 4));
    }
    for (const auto& [text, expected] : cases) {
        const std::size_t blank = text.find(" - ");
        const std::string how = blank <= 4 ? text.substr(0, blank) : "";
        Rig rig;
        rig.folder.write("b.txt", "");
        rig.show();
        if (how == "dark") {
            rig.app.writeRegister(0x00, 0);
        } else if (how.size() == 1) {
            rig.simulation.app = AppState{AppState::Phase::Exited, std::stoi(how)};
        }
        const std::string report = rig.play(text.substr(how.empty() ? 0 : blank + 1), how == "live");
        const bool isRefused = expected[0] == '2';
        EXPECT_EQ(report.substr(0, isRefused ? expected.size() : report.find('\n')), expected) << text.substr(0, 99);
        EXPECT_TRUE(!isRefused || report.find('\n') == std::string::npos) << report;
    }
    EXPECT_EQ(Rig(boardOf(panelKind("outdoor"))).play("- wait-backlight: {is: on}"),
              "2 a.yaml:4:3: wait-backlight: this panel has no display");
}

TEST(Scenario, SavesAndComparesPicturesAndReportsPanelAndLogOfAFailure)
{
    Rig rig;
    EXPECT_EQ(rig.play("- take-screenshot: {save-to: a.svg}\n- take-screenshot: {save-to: a.txt}"), "0 ");
    EXPECT_EQ(rig.play("- take-screenshot: {compare-with: a.svg}\n- take-screenshot: {compare-with: a.txt}"), "0 ");
    rig.show();
    rig.app.disturbBus();
    for (int i = 0; i < 12; ++i) {
        rig.print("\033 " + std::to_string(i) + "\n");
    }
    const std::pair<std::string, std::string> cases[] = {
        {"- take-screenshot: {compare-with: a.txt}",
         "line 2 differs:\n  file:  │                           │\n  panel: │ Ready  to go              │\n"
         "To accept the panel as it is, write save-to"},
        {"- take-screenshot: {save-to: b.svg, compare-with: a.svg}",
         "the picture differs\nTo accept the panel as it is, copy b.svg to a.svg\nThe panel"},
        {"- expect-no-bus-faults",
         "1 fault on the LCD bus:\n  chip select changed during a strobe at 7 ns\nThe panel"}};
    for (const auto& [step, message] : cases) {
        const std::string report = rig.play(step);
        EXPECT_NE(report.find(": " + message), std::string::npos) << report;
        EXPECT_NE(report.find("\nThe last lines of the application:\n  · 2\n"), std::string::npos) << report;
    }
    EXPECT_EQ(rig.folder.read("b.svg"),
              drawPanelSvg(rig.simulation.board.getConfig(), rig.simulation.board.view(), SvgExtent::Panel));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 4) << "no leftovers";
}
