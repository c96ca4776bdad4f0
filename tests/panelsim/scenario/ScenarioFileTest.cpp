#include "panelsim/scenario/ScenarioFile.h"

#include "panelsim/scenario/ScenarioError.h"
#include "panelsim/scenario/StepText.h"
#include "tests/panelsim/scenario/ScenarioFolder.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace panelsim;

std::string read(const std::filesystem::path& file, const BoardConfig& config = BoardConfig())
{
    try {
        std::string steps;
        for (const Step& step : readScenario(file, config).steps) {
            steps += std::to_string(step.place.line) + ":" + std::to_string(step.place.column) + " " + step.name + " " +
                     describe(step.action) + "\n";
        }
        return steps;
    } catch (const ScenarioError& e) {
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
  - tap: {key: 0}
  - wait-text: {text: "Ready", line: 0, within: 2s}
  - wait-text: {text: 12:30}
  - expect-text: {line: 1, text: ""}
  - expect-inverted: {line: 1}
  - expect-inverted: {line: 1, from: 1, to: 4, is: FALSE}
  - {expect-led: {led: 3, is: on}}
  - wait-led: {led: 3, is: "off", within: 0s}
  - expect-backlight: {is: true}
  - wait-output: {text: "\e[7m"}
  - wait-exit
  - expect-no-bus-faults:
  - expect-no-bus-faults
  - fail-pin: {gpio: 40}
  - fail-pin: {gpio: 4, calls: 3, with: false}
  - take-screenshot: {save-to: ./menu.txt, compare-with: golden.svg})");
    EXPECT_EQ(read(file), "5:5 delay 300 ms\n"
                          "6:5 release key 2\n"
                          "8:5 tap key 0 for 100 ms\n"
                          "9:5 wait-text line 0 to contain \"Ready\" within 2 s\n"
                          "10:5 wait-text a line to contain \"12:30\" within 5 s\n"
                          "11:5 expect-text line 1 to be \"\"\n"
                          "12:5 expect-inverted line 1 to be inverted from column 0 to 24\n"
                          "13:5 expect-inverted line 1 not to be inverted from column 1 to 4\n"
                          "14:6 expect-led LED 3 to be on\n"
                          "15:5 wait-led LED 3 to be off within 0 ms\n"
                          "16:5 expect-backlight the backlight to be on\n"
                          "17:5 wait-output the application to write \"·[7m\" within 5 s\n"
                          "18:5 wait-exit the application to end with status 0 within 5 s\n"
                          "19:5 expect-no-bus-faults no faults on the LCD bus\n"
                          "20:5 expect-no-bus-faults no faults on the LCD bus\n"
                          "21:5 fail-pin GPIO 40, 1 call, by throwing\n"
                          "22:5 fail-pin GPIO 4, 3 calls, by answering false\n"
                          "23:5 take-screenshot the panel to look as in " +
                              folder.path("golden.svg").string() + ", saved to " + folder.path("./menu.txt").string() +
                              "\n");
    EXPECT_EQ(read(folder.write("b.yaml", "\xEF\xBB\xBF{name: x,\r\nversion: 1, steps: [delay: 1s]}\r\n...\r\n")),
              "2:21 delay 1 s\n");
}

TEST(ScenarioFile, RefusesAStepThatCannotBe)
{
    const std::string steps = "; the steps are delay, press, release, tap, wait-text, expect-text, expect-inverted, "
                              "expect-led, wait-led, expect-backlight, wait-output, wait-exit, expect-no-bus-faults, "
                              "fail-pin, take-screenshot";
    const std::string noStep = " steps: expected a step such as press: {key: 0}, ";
    const std::string anchors =
        " a scenario has no anchors and aliases: write the value out, in quotes if it is a text "
        "that begins with & or *";
    struct Case {
        std::string step;
        std::string error;
    };
    const Case cases[] = {
        {"- delay", "4:3: delay: expected a duration such as 300ms, 1.5s or 2m, but nothing is there"},
        {"- delay: " + std::string(41, '9'),
         "4:10: delay: expected a duration such as 300ms, 1.5s or 2m, not \"" + std::string(41, '9') + "\""},
        {"- wait-text: {text: ä, within: [1s]}",
         "4:32: within: expected a duration such as 300ms, 1.5s or 2m, not a list"},
        {"- press: {key: 3}", "4:16: key: expected a whole number from 0 to 2, not 3"},
        {"- press: {key: -1}", "4:16: key: expected a whole number from 0 to 2, not -1"},
        {"- press: {key: 4294967296}", "4:16: key: expected a whole number from 0 to 2, not 4294967296"},
        {"- press: {key: '0'}", "4:16: key: expected a whole number from 0 to 2, not \"0\""},
        {"- press: 0", "4:10: press: expected a mapping with key, not 0"},
        {"- press", "4:3: press: the field \"key\" is missing"},
        {"- press: {ley: 0}", "4:11: press has no field \"ley\"; it has key"},
        {"- press: {key: 0, key: 0}", "4:19: \"key\" is given twice"},
        {"- press:\n  key: 0", "5:3: \"key\" follows in the same step: a step begins with a dash of its own, and its "
                               "fields are indented further"},
        {"- wait-text: {text: ''}", "4:21: text: expected a text that is not empty, not \"\""},
        {"- wait-output: {text: \"a\\nb\"}", "4:23: text: expected a text of one line, not \"a·b\""},
        {"- expect-text: {line: 0, text: ~}", "4:26: text: expected a text of one line, but nothing is there"},
        {"- expect-inverted: {line: 0, from: 5, to: 4}", "4:36: from: 5 is greater than to, 4"},
        {"- expect-inverted: {line: 0, to: 25}", "4:34: to: expected a whole number from 0 to 24, not 25"},
        {"- wait-led: {led: 8, is: on}", "4:19: led: expected a whole number from 0 to 7, not 8"},
        {"- expect-led: {led: 0, is: yes}", "4:28: is: expected one of on, off, true, false, not yes"},
        {"- wait-exit: {status: 256}", "4:23: status: expected a whole number from 0 to 255, not 256"},
        {"- expect-no-bus-faults: {a: 0}", "4:26: expect-no-bus-faults has no field \"a\"; it has none"},
        {"- fail-pin: {gpio: 53}", "4:20: gpio: this board has no GPIO 53"},
        {"- fail-pin: {gpio: 52, calls: 0}", "4:31: calls: expected a whole number from 1 to 1000000, not 0"},
        {"- take-screenshot", "4:3: take-screenshot: save-to or compare-with is missing"},
        {"- wait-text: {text: *x}", "4:21:" + anchors},
        {"- wait-text: {text: 20 €}", "4:21: text: the display has no characters but those of Latin-1"},
        {"- expect-text: {line: 0, text: äääääääääääääääääääääääää.}", "4:32: text: a line has 25 characters at most"},
        {"- take-screenshot: {save-to: a.png}",
         "4:30: save-to: expected the name of a file that ends in .svg or .txt, not a.png"},
        {"- take-screenshot: {save-to: x.txt, compare-with: ./x.txt}",
         "4:51: compare-with: this is the file that save-to writes"},
        {"- take-screenshot: {compare-with: no.txt}", "4:35: compare-with: cannot read FOLDER/no.txt: No such file or "
                                                      "directory"},
        {"- take-screenshot: {compare-with: folder.txt}",
         "4:35: compare-with: cannot read FOLDER/folder.txt: it is no file"},
        {"- waittext: {}", "4:3: there is no step \"waittext\", perhaps wait-text is meant" + steps},
        {"- '" + std::string(70, 'x') + "'", "4:3: there is no step \"" + std::string(60, 'x') + "\"..." + steps},
        {"-\n- delay: 1s", "4:1:" + noStep + "but nothing is there"},
        {"- {}", "4:3:" + noStep + "not a mapping"},
        {"- delay: \"1s", "6:1: this is not YAML: a quoted text does not end"},
        {"- press: {key: 0", "6:1: this is not YAML: end of map flow not found"},
        {"- delay: &a 1s", "4:10:" + anchors},
        {"- delay: !!str 1s", "4:10: a scenario has no tags: put a text that begins with ! in quotes"},
        {"- ? [a]\n  : b", "4:5: a word is to stand before the colon"},
        {"- delay: \xC3\xA4\xFF", "4:11: this is not UTF-8"},
        {"- delay: \x04", "4:10: a control character, code 4, cannot stand in a scenario"},
        {"- delay: 1s\nfoo: 1", "5:1: a scenario has no field \"foo\"; it has name, version, steps"},
        {"- delay: 1s\n---\n- delay: 1s", "5:1: a second document begins here: a scenario is one, check the "
                                          "indentation if none is meant"},
    };
    for (const Case& c : cases) {
        const ScenarioFolder folder;
        std::filesystem::create_directory(folder.path("folder.txt"));
        std::string error = read(folder.writeSteps(c.step + "\n"));
        const std::string parent = folder.path("").parent_path().string();
        if (const auto place = error.find(parent); place != std::string::npos) {
            error.replace(place, parent.size(), "FOLDER");
        }
        EXPECT_EQ(error, c.error) << c.step;
    }
}

TEST(ScenarioFile, RefusesAFileThatIsNoScenario)
{
    std::string deep;
    for (int i = 0; i < 100'000; ++i) {
        deep += "- ";
    }
    struct Case {
        std::string content;
        std::string error;
    };
    const std::string rest = "version: 1\nsteps: [delay: 1s]\n";
    const Case cases[] = {
        {"", "1:1: a scenario: the field \"name\" is missing"},
        {"[]", "1:1: a scenario: expected a mapping with name, version, steps, not a list"},
        {"name: ''\n" + rest, "1:7: name: expected a text that is not empty, not \"\""},
        {"name: a\n" + rest + "name: b", "4:1: \"name\" is given twice"},
        {"name: a\nsteps: []", "1:1: a scenario: the field \"version\" is missing"},
        {"name: a\nversion: 2\nsteps: []", "2:10: version: expected 1, not 2"},
        {"name: a\nversion: 1\nsteps: []", "3:8: steps: expected a list of one step or more, not a list"},
        {"name: a\nversion: 1\nsteps:", "3:1: steps: expected a list of one step or more, but nothing is there"},
        {"]", "1:1: this is not YAML: illegal flow end"},
        {",", "1:1: a second document begins here: a scenario is one, check the indentation if none is meant"},
        {deep, "1:21: this is nested too deeply"},
        {std::string(largestScenario + 1, ' '), " a scenario is no larger than 1 MiB"},
    };
    const ScenarioFolder folder;
    for (const Case& c : cases) {
        EXPECT_EQ(read(folder.write("a.yaml", c.content)), c.error) << c.content.substr(0, 80);
    }
    EXPECT_NE(read(folder.write("a.yaml", std::string(100'000, '['))).find("nested too deeply"), std::string::npos);
    EXPECT_EQ(read(folder.path("none")), " cannot read: No such file or directory");
    std::filesystem::create_directory(folder.path("folder"));
    EXPECT_EQ(read(folder.path("folder")), " cannot read: Is a directory");
}

TEST(ScenarioFile, KnowsThePanelItIsFor)
{
    const ScenarioFolder folder;
    const char* const displaySteps[] = {"wait-text: {text: a}", "expect-text: {line: 0, text: a}",
                                        "expect-inverted: {line: 0}", "expect-backlight: {is: on}"};
    for (const std::string step : displaySteps) {
        const std::string name = step.substr(0, step.find(':'));
        EXPECT_EQ(read(folder.writeSteps("- " + step), boardOf(panelKind("outdoor"))),
                  "4:3: " + name + ": this panel has no display");
    }
    EXPECT_EQ(read(folder.writeSteps("- tap: {key: 2}"), boardOf(panelKind("outdoor"))),
              "4:14: key: expected a whole number from 0 to 1, not 2");
    EXPECT_EQ(read(folder.writeSteps("- fail-pin: {gpio: 28}"), boardOf(panelKind("outdoor"))),
              "4:20: gpio: this board has no GPIO 28");
    BoardConfig bare;
    bare.keyCount = 0;
    EXPECT_EQ(read(folder.writeSteps("- press: {key: 0}"), bare), "4:11: this panel has no key");
}
