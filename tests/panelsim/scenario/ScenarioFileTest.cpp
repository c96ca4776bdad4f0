#include "panelsim/scenario/Scenario.h"

#include "panelsim/scenario/StepKind.h"
#include "tests/panelsim/scenario/ScenarioFolder.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <sys/stat.h>

namespace {

using namespace panelsim;

std::string read(const std::filesystem::path& file, const BoardConfig& config = BoardConfig())
{
    try {
        std::string steps;
        for (const Step& step : readScenario(file, Board(config)).steps) {
            steps += std::to_string(step.fileLine) + ":" + std::to_string(step.fileColumn) + " " + step.name + " " +
                     step.kind->say(step, config) + "\n";
        }
        return steps;
    } catch (const std::runtime_error& e) {
        const std::string message = e.what();
        const std::string name = file.string() + ":";
        EXPECT_EQ(message.substr(0, name.size()), name);
        EXPECT_EQ(message.find('\n'), std::string::npos);
        return message.substr(name.size());
    }
}

} // namespace

TEST(ScenarioFile, ReadsEveryStep)
{
    const ScenarioFolder folder;
    folder.write("golden.svg", "");
    const auto file = folder.writeSteps(R"(
  - delay: 300ms
  - release:
      key: 2
  - tap: {key: Down}
  - wait-text: {text: "Ready", line: 0, within: 2s}
  - expect-text: {text: 12:30}
  - expect-text: {line: 1, text: "", whole: true}
  - wait-inverted: {line: 1}
  - expect-inverted: {line: 1, from: 1, to: 4, is: FALSE}
  - {expect-led: {led: 7, is: on}}
  - wait-backlight: {is: "off", within: 0s}
  - wait-output: {text: "\e[7m"}
  - wait-exit
  - expect-no-bus-faults:
  - fail-pin: {gpio: 4, calls: 3, with: false}
  - take-screenshot: {save-to: ./menu.txt, compare-with: golden.svg})");
    BoardConfig named;
    named.keyNames = {"Up", "Down", "Enter"};
    named.ledNames = {"A", "B", "C", "D", "E", "F", "G", "Alarm"};
    EXPECT_EQ(read(file, named), "5:5 delay 300 ms\n"
                                 "6:5 release key Enter\n"
                                 "8:5 tap key Down for 100 ms\n"
                                 "9:5 wait-text line 0 to contain \"Ready\"\n"
                                 "10:5 expect-text a line to be \"12:30\"\n"
                                 "11:5 expect-text line 1 to be \"\"\n"
                                 "12:5 wait-inverted line 1 to be inverted from column 0 to 24\n"
                                 "13:5 expect-inverted line 1 not to be inverted from column 1 to 4\n"
                                 "14:6 expect-led LED Alarm to be on\n"
                                 "15:5 wait-backlight the backlight to be off\n"
                                 "16:5 wait-output the application to write \"·[7m\"\n"
                                 "17:5 wait-exit the application to end with status 0\n"
                                 "18:5 expect-no-bus-faults no faults on the LCD bus\n"
                                 "19:5 fail-pin GPIO 4, 3 calls, by returning false\n"
                                 "20:5 take-screenshot the panel to look as in " +
                                     folder.path("golden.svg").string() + ", saved to " +
                                     folder.path("./menu.txt").string() + "\n");
    EXPECT_EQ(read(folder.writeSteps("- press: {key: Left}"), named),
              "4:16: key: expected a whole number from 0 to 2 or one of Up, Down, Enter, not Left");
    EXPECT_EQ(read(folder.write("b.yaml", "\xEF\xBB\xBF{name: x,\r\nversion: 1, steps: [delay: 1s]}\r\n...\r\n")),
              "2:21 delay 1 s\n");
}

TEST(ScenarioFile, RefusesAStepThatCannotBe)
{
    struct Case {
        std::string step;
        std::string error;
    };
    const std::string nested(600, '[');
    const Case cases[] = {
        {"- delay", "4:3: delay: expected a duration such as 300ms, 1.5s or 2m, but nothing is there"},
        {"- wait-text: {text: ä, within: [1s]}",
         "4:32: within: expected a duration such as 300ms, 1.5s or 2m, not a list"},
        {"- press: {key: 3}", "4:16: key: expected a whole number from 0 to 2, not 3"},
        {"- press: {key: 4294967296}", "4:16: key: expected a whole number from 0 to 2, not 4294967296"},
        {"- press: {key: '0'}", "4:16: key: expected a whole number from 0 to 2, not \"0\""},
        {"- press: 0", "4:10: press: expected a mapping with key, not 0"},
        {"- press", "4:3: press: the field \"key\" is missing"},
        {"- press: {ley: 0}", "4:11: press has no field \"ley\"; it has key"},
        {"- press: {key: 0, key: 0}", "4:19: \"key\" is given twice"},
        {"- press:\n  key: 0", "5:3: \"key\" follows in the same step: a step begins with a dash of its own, and its "
                               "fields are indented further"},
        {"- expect-led: {led: 0, is: on, within: 1s}", "4:32: expect-led has no field \"within\"; it has led, is"},
        {"- wait-text: {text: ''}", "4:21: text: expected a text that is not empty, not \"\""},
        {"- wait-output: {text: \"a\\nb\"}", "4:23: text: expected a text of one line, not \"a·b\""},
        {"- expect-text: {text: 20 €}", "4:23: text: the display has no characters but those of Latin-1"},
        {"- expect-text: {text: äääääääääääääääääääääääää.}", "4:23: text: a line has 25 characters at most"},
        {"- expect-inverted: {line: 0, from: 5, to: 4}", "4:36: from: 5 is greater than to, 4"},
        {"- expect-led: {led: 0, is: yes}", "4:28: is: expected one of on, off, true, false, not yes"},
        {"- fail-pin: {gpio: 53}", "4:20: gpio: this board has no GPIO 53"},
        {"- take-screenshot", "4:3: take-screenshot: save-to or compare-with is missing"},
        {"- take-screenshot: {save-to: a.png}",
         "4:30: save-to: expected the name of a file that ends in .svg or .txt, not a.png"},
        {"- take-screenshot: {save-to: no/a.svg}", "4:30: save-to: there is no folder FOLDER/no"},
        {"- take-screenshot: {save-to: pipe.txt, compare-with: ./pipe.txt}",
         "4:54: compare-with: cannot read FOLDER/./pipe.txt: Operation not supported"},
        {"- waittext: {}",
         "4:3: there is no step \"waittext\"; the steps are delay, press, release, tap, expect-text, wait-text, "
         "expect-inverted, wait-inverted, expect-led, wait-led, expect-backlight, wait-backlight, expect-output, "
         "wait-output, expect-exit, wait-exit, expect-no-bus-faults, fail-pin, take-screenshot"},
        {"-\n- delay: 1s", "5:1: steps: expected a step such as press: {key: 0}, but nothing is there"},
        {"- delay: \"1s", "6:1: this is not YAML: a quoted text does not end"},
        {"- delay: *x", "4:10: this is not YAML: the referenced anchor is not defined"},
        {"- &a [*a, *a, *a]", "4:3: steps: expected a step such as press: {key: 0}, not a list"},
        {"- delay: " + nested, "6:1: this is nested too deeply"},
        {"- delay: \xC3\xA4\xFF", "4:11: this is not UTF-8"},
        {"- delay: \x04", "4:10: a control character, code 4, cannot stand in a scenario"},
        {"- delay: 1s\nfoo: 1", "5:1: a scenario has no field \"foo\"; it has name, version, steps"},
        {"- delay: 1s\n---\n- delay: 1s", "5:1: a second document begins here: a scenario is one, check the "
                                          "indentation if none is meant"},
    };
    for (const Case& c : cases) {
        const ScenarioFolder folder;
        ASSERT_EQ(mkfifo(folder.path("pipe.txt").c_str(), 0600), 0);
        std::string error = read(folder.writeSteps(c.step + "\n"));
        const std::string parent = folder.path("").parent_path().string();
        if (const auto place = error.find(parent); place != std::string::npos) {
            error.replace(place, parent.size(), "FOLDER");
        }
        EXPECT_EQ(error, c.error) << c.step.substr(0, 80);
    }
}

TEST(ScenarioFile, RefusesAFileThatIsNoScenario)
{
    struct Case {
        std::string content;
        std::string error;
    };
    const Case cases[] = {
        {"", "1:1: a scenario: the field \"name\" is missing"},
        {"[]", "1:1: a scenario: expected a mapping with name, version, steps, not a list"},
        {"name: a\nversion: 2\nsteps: []", "2:10: version: expected 1, not 2"},
        {"name: a\nversion: 1\nsteps:", "3:1: steps: expected a list of one step or more, but nothing is there"},
        {",", "1:1: a second document begins here: a scenario is one, check the indentation if none is meant"},
        {std::string(largestScenario + 1, ' '), " a scenario is no larger than 1 MiB"},
    };
    const ScenarioFolder folder;
    for (const Case& c : cases) {
        EXPECT_EQ(read(folder.write("a.yaml", c.content)), c.error) << c.content.substr(0, 80);
    }
    EXPECT_EQ(read(folder.path("none")), " cannot read: No such file or directory");
    EXPECT_EQ(read(folder.path("")), " cannot read: Is a directory");
}

TEST(ScenarioFile, KnowsThePanelItIsFor)
{
    const ScenarioFolder folder;
    const BoardConfig outdoor = boardOf(panelKind("outdoor"));
    EXPECT_EQ(read(folder.writeSteps("- wait-backlight: {is: on}"), outdoor),
              "4:3: wait-backlight: this panel has no display");
    EXPECT_EQ(read(folder.writeSteps("- fail-pin: {gpio: 28}"), outdoor), "4:20: gpio: this board has no GPIO 28");
    BoardConfig bare;
    bare.keyCount = 0;
    EXPECT_EQ(read(folder.writeSteps("- press: {key: 0}"), bare), "4:16: this panel has no key");
}
