#include "panelsim/scenario/Scenario.h"
#include "panelsim/board/BoardGpioFactory.h"
#include "panelsim/picture/PanelSvg.h"
#include "panelsim/scenario/ScenarioPlayer.h"
#include "tests/panelsim/FakeApplication.h"
#include "tests/panelsim/TestFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <thread>

namespace {

using namespace panelsim;
using namespace std::chrono_literals;

BoardConfig namedBoard()
{
    BoardConfig config = FakeApplication::boardConfig();
    config.keyNames = {"Up", "Down", "Enter"};
    config.ledNames = {"A", "B", "C", "D", "E", "F", "G", "Alarm"};
    return config;
}

/** A simulated panel that scenarios are played on. */
struct Rig {
    /** What the application does, first of all and then each time that the player waits; the times are counted from 0.
     */
    using Behaviour = std::function<void(Rig&, int)>;

    explicit Rig(const BoardConfig& config = namedBoard()) : simulation(config, [] { return 7ns; })
    {
        if (config.hasLcd) {
            app.turnDisplayOn();
            app.clear();
        }
    }

    void print(const std::string& text) { simulation.log.append(LogLine::Source::Output, text); }
    void exit(int status) { simulation.app = AppState{AppState::Phase::Exited, status}; }
    void crash() { simulation.app = AppState{AppState::Phase::Killed, 11}; }

    /**
     * @param text of the scenario, or steps, which begin in line 4
     * @return "refused", "passed", "failed", "application failed" or "file error", and what was reported
     */
    std::string play(
        const std::string& text, const Behaviour& behave = [](Rig&, int) {})
    {
        const std::string head = text.rfind("- ", 0) == 0 ? "name: Try\nversion: 1\nsteps:\n" : "";
        const auto file = folder.write("a.yaml", head + text + (head.empty() ? "" : "\n"));
        static constexpr const char* outcomes[] = {"passed", "failed ", "application failed ", "file error ",
                                                   "stopped "};
        std::string report;
        try {
            const Scenario scenario = readScenario(file, simulation.board);
            ScenarioPlayer player(scenario, simulation);
            std::optional<ScenarioResult> result;
            behave(*this, 0);
            for (int i = 1; !(result = player.advance()); ++i) {
                behave(*this, i);
                std::this_thread::sleep_for(1ms);
            }
            report = outcomes[static_cast<std::size_t>(result->outcome)] + result->message;
        } catch (const std::runtime_error& error) {
            report = std::string("refused ") + error.what();
        }
        EXPECT_EQ(simulation.board.view().keys, std::vector<bool>(simulation.board.getConfig().keyCount));
        for (const auto& [part, name] : {std::pair(file.string() + ":", ""), {folder.path("").string(), "FOLDER/"}}) {
            for (auto at = report.find(part); at != std::string::npos; at = report.find(part)) {
                report.replace(at, part.size(), name);
            }
        }
        return report;
    }

    TestFolder folder;
    Simulation simulation;
    FakeApplication app{simulation.board};
};

const std::map<std::string, Rig::Behaviour> behaviours = {
    {"idle", [](Rig&, int) {}},
    {"not yet", [](Rig& rig, int) { rig.app.show(1, "Not yet"); }},
    {"half inverted",
     [](Rig& rig, int) {
         rig.app.show(0, "xx");
         rig.app.writeRegister(0x10, 0x20);
         rig.app.writeRegister(0xB0, 'x');
     }},
    {"off",
     [](Rig& rig, int) {
         rig.app.show(1, "Not yet", true);
         rig.app.turnDisplayOff();
     }},
    {"lit", [](Rig& rig, int) { rig.app.light(3); }},
    {"prints", [](Rig& rig, int times) { rig.print(times == 0 ? "o\none two\n" : ""); }},
    {"fails", [](Rig& rig, int) { rig.exit(3); }},
    {"ends", [](Rig& rig, int) { rig.exit(0); }},
    {"crashes", [](Rig& rig, int) { rig.crash(); }},
    {"crashes later", [](Rig& rig, int times) { times == 4 ? rig.crash() : void(); }},
    {"reads key 1 now and then",
     [](Rig& rig, int times) {
         rig.print(times % 8 != 0 ? "" : rig.simulation.board.read(11) ? "1" : "0");
     }},
    {"makes pins", [](Rig& rig, int times) {
         for (const unsigned gpio : times == 1 ? std::vector{20U, 20U, 20U, 21U, 21U} : std::vector<unsigned>()) {
             const auto pin = BoardGpioFactory(rig.simulation.board).create();
             try {
                 pin->exportGpio(gpio);
                 rig.print(pin->init(false, sysfs::PinDirectionEn::Output, true) ? "1" : "0");
             } catch (const std::runtime_error&) {
                 rig.print("x");
             }
         }
     }}};

/** A line for each: what the application does: a scenario's steps, with ~ for the end of a line => the first line of
 * the report; a line that begins with a blank goes on. */
const char* const plays = R"(
not yet: wait-text: {text: Ready, line: 1, within: 10ms} => failed 4:3: step 1, wait-text: expected line 1 to contain
 "Ready" within 10 ms, but line 1 shows "Not yet"
not yet: expect-text: {text: Not} => failed 4:3: step 1, expect-text: expected a line to be "Not", but none is
not yet: expect-text: {text: Ready, whole: false} => failed 4:3: step 1, expect-text: expected a line to contain "Ready",
 but none does
off: expect-inverted: {line: 1, is: off}~- expect-text: {line: 1, text: ''}~-  expect-text: {text: Not yet}
 => failed 6:4: step 3, expect-text: expected a line to be "Not yet", but the display is off
not yet: wait-inverted: {line: 1, from: 2, within: 1ms} => failed 4:3: step 1, wait-inverted: expected line 1 to be
 inverted from column 2 to 24 within 1 ms, but column 2 is not
half inverted: expect-inverted: {line: 0, from: 1, to: 1, is: off}~- expect-inverted: {line: 0, from: 1, to: 2, is: false}
 => failed 5:3: step 2, expect-inverted: expected line 0 not to be inverted from column 1 to 2, but column 2 is
lit: expect-led: {led: 3, is: off} => failed 4:3: step 1, expect-led: expected LED D to be off, but LED D is on
idle: wait-backlight: {is: on, within: 1ms} => failed 4:3: step 1, wait-backlight: expected the backlight to be on
 within 1 ms, but it is off
prints: wait-output: {text: one, within: 0s}~- wait-output: {text: one, within: 0s}
 => failed 5:3: step 2, wait-output: expected the application to write "one" within 0 ms, but it has not
idle: expect-output: {text: 'step 1'} => failed 4:3: step 1, expect-output: expected the application to write "step 1",
 but it has not
idle: expect-exit => failed 4:3: step 1, expect-exit: expected the application to end with status 0, but it is not
 started
fails: wait-exit: {status: 3}~- tap: {key: 0, for: 0s}~- delay: 0s => passed
fails: wait-exit: {status: 3}~- wait-led: {led: 0, is: on} => failed 5:3: step 2, wait-led: expected LED A to be on
 within 5 s, but LED A is off
fails: wait-exit => failed 4:3: step 1, wait-exit: expected the application to end with status 0 within 5 s, but it has
 ended with status 3
crashes: delay: 0s => application failed 4:3: step 1, delay: the application has ended by signal 11 (Segmentation fault)
fails: expect-led: {led: 0, is: off}~- wait-text: {text: a} => application failed 5:3: step 2, wait-text: the application
 has ended with status 3; expected a line to contain "a" within 5 s, but none does
ends: tap: {key: 0}~- wait-led: {led: 0, is: on} => failed 5:3: step 2, wait-led: expected LED A to be on within 5 s, but
 the application has ended with status 0 and LED A is off
crashes later: tap: {key: 0, for: 60m} => application failed 4:3: step 1, tap: the application has ended by signal 11
 (Segmentation fault)
idle: tap: {key: 0, for: 1ms} => passed
reads key 1 now and then: tap: {key: 1, for: 1ms}~- tap: {key: 1, for: 1ms}~- wait-output: {text: '101'} => passed
makes pins: fail-pin: {gpio: 20, calls: 2}~- fail-pin: {gpio: 21, with: false}~- wait-output: {text: xx101} => passed
)";

/** A line for each: a scenario's steps or text, with ~ for the end of a line, and where and how it is refused. */
const char* const refusals = R"(
- delay => 4:3: delay: expected a duration such as 300ms, 1.5s or 2m, but nothing is there
- delay: 300 => 4:10: delay: 300 has no unit: write 300ms, 300s or 300m
- delay: 1440.1m => 4:10: delay: 1440.1m is longer than 24 hours
- delay: 5.s => 4:10: delay: "5.s" is not a duration such as 300ms, 1.5s or 2m
- wait-text: {text: ä, within: [1s]} => 4:32: within: expected a duration such as 300ms, 1.5s or 2m, not a list
- press: {key: 3} => 4:16: key: expected a whole number from 0 to 2, not 3
- press: {key: 4294967296} => 4:16: key: expected a whole number from 0 to 2, not 4294967296
- press: {key: '0'} => 4:16: key: expected a whole number from 0 to 2 or one of Up, Down, Enter, not "0"
- press: {key: {}} => 4:16: key: expected a whole number from 0 to 2 or one of Up, Down, Enter, not a mapping
- press: 0 => 4:10: press: expected a mapping with key, not 0
- press => 4:3: press: the field "key" is missing
- press: {ley: 0} => 4:11: press has no field "ley"; it has key
- press: {key: 0, key: 0} => 4:19: "key" is given twice
- press:~  key: 0 => 5:3: "key" follows in the same step: a step begins with a dash of its own, and its fields are
- expect-led: {led: 0, is: on, within: 1s} => 4:32: expect-led has no field "within"; it has led, is
- wait-text: {text: ''} => 4:21: text: expected a text that is not empty, not ""
- wait-output: {text: "a\nb"} => 4:23: text: expected a text of one line, not "a·b"
- expect-text: {text: 20 €} => 4:23: text: the display has no characters but those of Latin-1
- expect-text: {text: äääääääääääääääääääääääää}~- press => 5:3: press: the field "key" is missing
- expect-text: {text: äääääääääääääääääääääääää.} => 4:23: text: a line has 25 characters at most
- expect-inverted: {line: 0, from: 5, to: 4} => 4:36: from: 5 is greater than to, 4
- expect-inverted: {line: 3} => 4:27: line: expected a whole number from 0 to 2, not 3
- expect-inverted: {line: 0, to: 25} => 4:34: to: expected a whole number from 0 to 24, not 25
- expect-led: {led: 0, is: yes} => 4:28: is: expected one of on, off, true, false, not yes
- wait-exit: {status: 256} => 4:23: status: expected a whole number from 0 to 255, not 256
- fail-pin: {gpio: 53} => 4:20: gpio: this board has no GPIO 53
- fail-pin: {gpio: 4, calls: 0} => 4:30: calls: expected a whole number from 1 to 1000000, not 0
- take-screenshot => 4:3: take-screenshot: save-to or compare-with is missing
- take-screenshot: {save-to: a.png} => 4:30: save-to: expected the name of a file that ends in .svg or .txt, not a.png
- take-screenshot: {save-to: no/a.svg} => 4:30: save-to: there is no folder FOLDER/no
- take-screenshot: {save-to: a.txt, compare-with: ./a.txt} => 4:51: compare-with: this is the file that save-to writes
- take-screenshot: {compare-with: ./pipe.txt} => 4:35: compare-with: cannot read FOLDER/./pipe.txt: 
- take-screenshot: {compare-with: large.txt} => 4:35: compare-with: cannot read FOLDER/large.txt: File too large
- waittext: {} => 4:3: there is no step "waittext"; the steps are delay, press, release, tap, expect-text, wait-text, 
- delay: 1s~-~- delay: 1s => 6:1: steps: expected a step such as press: {key: 0}, but nothing is there
- delay: "1s => 5:1: this is not YAML: a quoted text does not end
- delay: *x => 4:10: this is not YAML: the referenced anchor is not defined
- &a [*a, *a, *a] => 4:3: steps: expected a step such as press: {key: 0}, not a list
- delay: 1s~foo: 1 => 5:1: a scenario has no field "foo"; it has name, version, steps
- delay: 1s~---~- delay: 1s => 5:1: a second document begins here: a scenario is one, check the indentation if none
[] => 1:1: a scenario: expected a mapping with name, version, steps, not a list
name: ''~version: 1~steps: => 1:7: name: expected a text that is not empty, not ""
name: a~version: 2~steps: [] => 2:10: version: expected 1, not 2
name: a~version: 1~steps: => 3:1: steps: expected a list of one step or more, but nothing is there
name: a~version: 1~steps: [] => 3:8: steps: expected a list of one step or more, not a list
)";

/** @return the table's rows, each split at its arrow, with ends of lines for each ~ in its first part */
std::vector<std::pair<std::string, std::string>> rowsOf(const std::string& table)
{
    std::vector<std::pair<std::string, std::string>> rows;
    std::istringstream lines(std::regex_replace(table.substr(1), std::regex("\n "), " "));
    for (std::string line; std::getline(lines, line);) {
        const auto arrow = line.find(" => ");
        rows.emplace_back(std::regex_replace(line.substr(0, arrow), std::regex("~"), "\n"), line.substr(arrow + 4));
    }
    return rows;
}

} // namespace

TEST(Scenario, PlaysEveryStep)
{
    Rig rig;
    const std::string report =
        rig.play(R"(- delay: 3ms
- press: {key: 2}
- release:
    key: Enter
- tap: {key: Down, for: 0s}
- wait-text: {text: "y  t"}
- expect-text: {text: "go ", line: 0, whole: false}
- expect-text: {line: 1, text: Grüß}
- wait-text: {text: "·| ", whole: true}
- expect-text: {line: 1, text: "Grüß "}
- wait-inverted: {line: 1, to: 3}
- expect-inverted: {line: 1, from: 4, to: 24, is: FALSE}
- {expect-led: {led: Alarm, is: on}}
- wait-led: {led: 4, is: off, within: 1.5s}
- wait-backlight: {is: "off", within: 2m}
- expect-output: {text: one}
- wait-output: {text: "\e[7m"}
- expect-no-bus-faults
- fail-pin: {gpio: 4}
- fail-pin: {gpio: 4, calls: 3, with: false}
- take-screenshot: {save-to: ./menu.txt}
- take-screenshot: {save-to: menu.svg}
- wait-exit: {status: 139})",
                 [](Rig& r, int times) {
                     r.app.show(0, "Ready  to go");
                     r.app.show(1, "Gr\xFC\xDF", true);
                     r.app.show(2, "\x01|");
                     r.app.light(7);
                     r.print(times == 1 ? "o\none two\n" : times == 2 ? "\033[7m\n" : "");
                     if (r.simulation.log.linesFrom(0).lines.back().text.find("wait-exit") != std::string::npos) {
                         r.crash();
                     }
                     r.simulation.board.read(11);
                 });
    EXPECT_EQ(report, "passed");
    std::string steps;
    for (const LogLine& line : rig.simulation.log.linesFrom(0).lines) {
        steps += line.source == LogLine::Source::Simulator ? line.text.substr(line.text.find(": ") + 2) + "\n" : "";
    }
    const std::string folder = rig.folder.path("").string();
    EXPECT_EQ(steps, "delay 3 ms\npress key Enter\nrelease key Enter\ntap key Down for 0 ms\n"
                     "wait-text a line to contain \"y  t\" within 5 s\n"
                     "expect-text line 0 to contain \"go \"\nexpect-text line 1 to be \"Grüß\"\n"
                     "wait-text a line to be \"·| \" within 5 s\nexpect-text line 1 to be \"Grüß \"\n"
                     "wait-inverted line 1 to be inverted from column 0 to 3 within 5 s\n"
                     "expect-inverted line 1 not to be inverted from column 4 to 24\n"
                     "expect-led LED Alarm to be on\nwait-led LED E to be off within 1.5 s\n"
                     "wait-backlight the backlight to be off within 120 s\n"
                     "expect-output the application to write \"one\"\n"
                     "wait-output the application to write \"·[7m\" within 5 s\n"
                     "expect-no-bus-faults no faults on the LCD bus\nfail-pin GPIO 4, 1 call, by throwing\n"
                     "fail-pin GPIO 4, 3 calls, by returning false\n"
                     "take-screenshot saved to " +
                         folder + "./menu.txt\ntake-screenshot saved to " + folder +
                         "menu.svg\nwait-exit the application to end with status 139 within 5 s\n");
}

TEST(Scenario, EndsAsTheBoardAndTheApplicationDo)
{
    for (const auto& [play, expected] : rowsOf(plays)) {
        Rig rig;
        const auto colon = play.find(':');
        const std::string report = rig.play("-" + play.substr(colon + 1), behaviours.at(play.substr(0, colon)));
        EXPECT_EQ(report.substr(0, report.find('\n')), expected) << play;
    }
}

TEST(Scenario, IsRefusedInOneLineWhenItCannotBe)
{
    std::vector<std::pair<std::string, std::string>> cases = {
        {"", "1:1: a scenario: the field \"name\" is missing"},
        {"\xEF\xBB\xBF{name: ä,\r\nversion: 1, steps: [press]}\r\n...\r\n",
         "2:21: press: the field \"key\" is missing"},
        {std::string(largestScenario + 1, ' '), " a scenario is no larger than 1 MiB"},
        {"- delay: " + std::string(600, '['), "5:1: this is nested too deeply"},
        {"- delay: \xC3\xA4\xFF", "4:11: this is not UTF-8"},
        {"- delay: \x04", "4:10: a control character, code 4, cannot stand in a scenario"},
        {"- " + std::string(60, 'x'), "4:3: there is no step \"" + std::string(60, 'x') + "\"; the steps are delay"},
        {"- " + std::string(59, 'x') + "ä", "4:3: there is no step \"" + std::string(59, 'x') + "\"...; the steps"}};
    const auto more = rowsOf(refusals);
    cases.insert(cases.end(), more.begin(), more.end());
    for (const auto& [text, error] : cases) {
        Rig rig;
        ASSERT_EQ(mkfifo(rig.folder.path("pipe.txt").c_str(), 0600), 0);
        rig.folder.write("a.txt", std::string(1U << 20U, ' '));
        rig.folder.write("large.txt", std::string((1U << 20U) + 1, ' '));
        const std::string report = rig.play(text);
        EXPECT_EQ(report.substr(0, error.size() + 8), "refused " + error) << text.substr(0, 80);
        EXPECT_EQ(report.find('\n'), std::string::npos);
    }
    const TestFolder folder;
    for (const auto& [name, error] : {std::pair("none", "No such file or directory"), {"", "Is a directory"}}) {
        try {
            readScenario(folder.path(name), Board(BoardConfig()));
            ADD_FAILURE() << name;
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(e.what(), folder.path(name).string() + ": cannot read: " + error);
        }
    }
    Rig outdoor(boardOf(panelKind("outdoor")));
    EXPECT_EQ(outdoor.play("- wait-backlight: {is: on}"), "refused 4:3: wait-backlight: this panel has no display");
    BoardConfig bare;
    bare.keyCount = 0;
    EXPECT_EQ(Rig(bare).play("- press: {key: 0}"), "refused 4:16: this panel has no key");
}

TEST(Scenario, ReportsThePanelAndTheLogOfAFailure)
{
    Rig rig(FakeApplication::boardConfig());
    std::string last;
    for (int i = 0; i < 12; ++i) {
        rig.print("\033 " + std::to_string(i) + "\xFF\n");
        last += i < 2 ? "" : "\n  · " + std::to_string(i) + "\uFFFD";
    }
    const std::string panel = "\nThe panel shows:\n┌───────────────────────────┐\n│                           │\n"
                              "│                           │\n│                           │\n"
                              "└───────────────────────────┘\ndisplay on, backlight off\n";
    EXPECT_EQ(rig.play("- press: {key: 0}\n- press: {key: 1}\n- release: {key: 1}\n- expect-led: {led: 0, is: on}"),
              "failed 7:3: step 4, expect-led: expected LED 0 to be on, but LED 0 is off" + panel +
                  "LEDs ○ ○ ○ ○ ○ ○ ○ ○   keys [0]  1   2\nThe last lines of the application:" + last);
    Rig disturbed(FakeApplication::boardConfig());
    for (int i = 0; i < 6; ++i) {
        disturbed.app.disturbBus();
    }
    const std::string fault = "\n  chip select changed during a strobe at 7 ns";
    EXPECT_EQ(disturbed.play("- expect-no-bus-faults"),
              "failed 4:3: step 1, expect-no-bus-faults: expected no faults on the LCD bus, but there are 6:" + fault +
                  fault + fault + fault + fault + "\n  ..." + panel +
                  "LEDs ○ ○ ○ ○ ○ ○ ○ ○   keys  0   1   2\nThe application has written nothing.");
}

TEST(Scenario, SavesAndComparesPictures)
{
    Rig rig;
    for (const std::string extension : {".txt", ".svg"}) {
        const std::string golden = "golden" + extension;
        EXPECT_EQ(rig.play("- take-screenshot: {save-to: " + golden + "}"), "passed");
        EXPECT_EQ(rig.play("- take-screenshot: {compare-with: " + golden + "}"), "passed");
        rig.app.show(1, extension);
        const std::string report =
            rig.play("- take-screenshot: {save-to: new" + extension + ", compare-with: " + golden + "}");
        const std::string difference = extension == ".txt" ? "line 3 differs:\n  file:  │" + std::string(27, ' ') +
                                                                 "│\n  panel: │ .txt" + std::string(22, ' ') + "│"
                                                           : "the picture differs";
        EXPECT_EQ(report.substr(0, report.find("\nThe panel")),
                  "failed 4:3: step 1, take-screenshot: expected the panel to look as in FOLDER/" + golden +
                      ", saved to FOLDER/new" + extension + ", but " + difference +
                      "\nTo accept the panel as it is, copy FOLDER/new" + extension + " to FOLDER/" + golden);
    }
    EXPECT_EQ(rig.folder.read("new.svg"),
              drawPanelSvg(rig.simulation.board.getConfig(), rig.simulation.board.view(), SvgExtent::Panel));
    const std::string whole = rig.folder.read("new.txt");
    rig.app.show(1, ".txt");
    for (const auto& [content, difference] :
         {std::pair(whole + "x\n", ", but line 8 differs:\n  file:  x\n  panel: (at its end)\n"),
          {whole.substr(0, whole.size() - 1), ", but only the newline at the end differs\n"},
          {whole.substr(0, whole.find("display")), ", but line 6 differs:\n  file:  (at its end)\n  panel: display"}}) {
        rig.folder.write("golden.txt", content);
        const std::string report = rig.play("- take-screenshot: {compare-with: golden.txt}");
        EXPECT_NE(report.find(difference), std::string::npos) << report;
    }
    std::filesystem::create_directory(rig.folder.path("folder.txt"));
    EXPECT_EQ(rig.play("- take-screenshot: {save-to: folder.txt}"),
              "file error 4:3: step 1, take-screenshot: cannot write FOLDER/folder.txt: Is a directory");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(rig.folder.path("")), {}), 6) << "no leftovers";
}
