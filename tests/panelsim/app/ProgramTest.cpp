/* The program as its users start it, with applications that do as they please. */
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Outcome {
    int status;
    std::string output;
    std::string error;
};

/** A folder of the test's own, in which shell commands run; $panelsim and $frontpanel are the programs. */
class ProgramTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::string name = testing::TempDir() + "panelsim-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        setenv("panelsim", PANELSIM_PROGRAM, 1);
        setenv("frontpanel", FRONTPANEL_PROGRAM, 1);
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    void write(const std::string& name, const std::string& text) const { std::ofstream(folder / name) << text; }

    std::string read(const std::string& name) const
    {
        std::ifstream file(folder / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    Outcome run(const std::string& command) const
    {
        const std::string all = "cd '" + folder.string() + "' && { " + command + "\n} >out 2>err </dev/null";
        const int status = std::system(all.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read("out"), read("err")};
    }

    std::filesystem::path folder;
};

struct Case {
    const char* command;
    int status;
    const char* output; ///< a part of it; empty for none at all
    const char* error;  ///< a part of it; empty for none at all
};

void expect(const Outcome& outcome, const Case& c)
{
    const auto fits = [](const std::string& text, const std::string& part) {
        return part.empty() ? text.empty() : text.find(part) != std::string::npos;
    };
    EXPECT_EQ(outcome.status, c.status) << c.command << "\n" << outcome.error;
    EXPECT_TRUE(fits(outcome.output, c.output)) << c.command << "\n" << outcome.output;
    EXPECT_TRUE(fits(outcome.error, c.error)) << c.command << "\n" << outcome.error;
}

TEST_F(ProgramTest, PassesOnWhatTheApplicationDoesAndHowItEnds)
{
    const Case cases[] = {
        {"$panelsim --no-http -- sh -c 'echo out; exit 7'", 7, "out\n", ""},
        {"$panelsim --no-http -- sh -c 'echo err >&2'", 0, "", "err\n"},
        {"echo in >in; $panelsim --no-http -- cat <in", 0, "in\n", ""},
        {"$panelsim --no-http -- sh -c 'kill -SEGV $$'", 139, "", "The panel shows:\n"},
        {"$panelsim --http 127.0.0.1:0 -- sh -c 'kill -SEGV $$'", 139, "", "The panel shows:\n"},
        {"$panelsim -- ./missing 2>error; s=$?; wc -l <error; cat error >&2; exit $s", 2, "1\n",
         "panelsim: cannot start './missing': No such file or directory\n"},
        {"echo in >in; $panelsim --http 0 -- sh -c 'cat <&7; ls -l /proc/self/fd | grep -c socket' 7<in", 1, "in\n0\n",
         "the panel is at http://127.0.0.1:"},
        {"$panelsim --no-http -- sh -c 'yes | head -c 300000' | tail -c 2", 0, "y\n", ""},
        {"$panelsim --no-http -- yes | head -c 2", 0, "y\n", ""},
        {"$panelsim --no-http -- sh -c 'sleep 100 & echo started'", 0, "started\n", ""},
        {"$panelsim --no-http -- sh -c 'yes & sleep 0.2; exit 5' >/dev/null", 5, "", ""},
        {"$panelsim --no-http -- sh -c 'echo a; sleep 0.1; echo b; exit 5' >/dev/full", 5, "", ""},
        {"(trap '' CHLD; exec $panelsim --no-http -- sh -c 'exit 5')", 5, "", ""},
        {"{ $panelsim --no-http --timeout 300ms -- yes; echo status $? >&2; } | sleep 4", 0, "", "status 42\n"},
        {"$panelsim --no-http --panel outdoor -- $frontpanel detect", 0, "outdoor\n", ""},
        {"$panelsim --no-http --panel-id 5 -- $frontpanel detect", 0, "outdoor\n", ""},
        {"$panelsim --no-http --silent-chip -- $frontpanel print Hello", 0, "WARNING: value ", ""},
        {"$panelsim --no-http --stuck 4:0 -- $frontpanel detect", 1, "unknown front panel type: 14", "ID lines"},
        {"$panelsim --no-http --draw --keys 1 --key-names Up --leds 2 --led-names A,B --led-colours red,green -- "
         "$frontpanel led 0 on --led-count 2",
         0, "A (red)  ○ B    keys  Up\n", ""},
        {"$panelsim --no-http --led-base 200 --leds 3 -- $frontpanel led 2 on --led-base 200 --led-count 3", 0, "", ""},
        {"$panelsim --no-http -- $frontpanel led 3 on --led-base 100", 1, "", "GPIO 103: no such GPIO"},
        {"$panelsim --no-http --fail 23:3:throw -- $frontpanel led 3 on", 1, "", "GPIO 23: made to fail\n"},
        {"$panelsim --no-http --fail 23:3:false -- $frontpanel led 3 on", 0, "", ""},
        {"$panelsim --no-http --fail 23:1:false -- $frontpanel led 3 on", 1, "", "GPIO 23"},
    };
    for (const Case& c : cases) {
        expect(run(c.command), c);
    }
}

TEST_F(ProgramTest, SaysInOneLineWhatIsWrongWithItsOptions)
{
    const Case cases[] = {
        {"$panelsim", 2, "", "panelsim: a command is needed: panelsim [OPTIONS] -- COMMAND [ARGS...]\n"},
        {"$panelsim --no-http --", 2, "", "a command is needed"},
        {"$panelsim true", 2, "", "'true' comes without '--' before it"},
        {"$panelsim --leads 3 -- true", 2, "", "unknown option '--leads'"},
        {"$panelsim --panel inside -- true", 2, "", "--panel: inside not in {indoor,outdoor}\n"},
        {"$panelsim --chip ra8803 --panel outdoor -- true", 2, "", "--chip: the outdoor panel has no LCD\n"},
        {"$panelsim --panel outdoor --keys 3 -- true", 2, "", "--key-count: the outdoor panel has 2 keys\n"},
        {"$panelsim --keys", 2, "", "--key-count: a value is missing\n"},
        {"$panelsim --keys 010 -- true", 2, "", "--key-count: '010' is not a number from 0 to 256\n"},
        {"$panelsim --inverted-leds 1,8 -- true", 2, "", "neither one of the 8 LEDs nor the backlight's GPIO 28\n"},
        {"$panelsim --led-base 4294967290 -- true", 2, "", "the highest GPIO number is 4294967295\n"},
        {"$panelsim --led-base 8 -- true", 2, "", "keys and LEDs overlap at GPIO 10\n"},
        {"$panelsim --fail 20:0:throw -- true", 2, "", "--fail: '20:0:throw' is not GPIO:N:throw or GPIO:N:false"},
        {"$panelsim --stuck 20:high -- true", 2, "", "--stuck: '20:high' is not GPIO:0 or GPIO:1\n"},
        {"$panelsim --key-names A,B -- true", 2, "", "--key-names: 2 names for 3\n"},
        {"$panelsim --key-names A,B,A -- true", 2, "", "--key-names: \"A\" is empty, given twice or not printable\n"},
        {"$panelsim --led-colours pink -- true", 2, "", "--led-colours: pink not in {green,"},
        {"$panelsim --fail 77:1:throw -- true", 2, "", "--fail: the panel has no GPIO 77\n"},
        {"$panelsim --timeout 300 -- true", 2, "", "--timeout: "},
        {"$panelsim --http 1.2.3.4: -- true", 2, "", "--http: "},
        {"$panelsim --http 0 --no-http -- true", 2, "", "--http and --no-http exclude each other\n"},
        {"$panelsim --vcd /no/where.vcd --no-http -- true", 2, "", "/no/where.vcd"},
        {"$panelsim --lint nothing.yaml", 2, "", "nothing.yaml"},
    };
    for (const Case& c : cases) {
        const Outcome outcome = run(c.command);
        expect(outcome, c);
        EXPECT_EQ(outcome.error.find('\n'), outcome.error.size() - 1) << outcome.error;
    }
}

TEST_F(ProgramTest, WaitsForNobodyWithoutEnd)
{
    write("shot.yaml", "name: n\nversion: 1\nsteps:\n  - take-screenshot: {save-to: a.svg}\n");
    const Case cases[] = {
        {"{ $panelsim --no-http --draw --timeout 1s -- sh -c 'yes & $frontpanel led 1 on; yes >&2'; echo $? >status; }"
         " 2>&1 | for i in $(seq 300); do [ -s status ] && cat status && break; sleep 0.1; done",
         0, "42\n", ""},
        {"mkfifo trace; timeout -k 20 20 $panelsim --no-http --vcd trace -- true", 2, "", "cannot open trace: No such"},
        {"mkfifo held; exec 3<>held; timeout -k 20 20 $panelsim --no-http --vcd held -- sh -c '"
         "for i in 1 2 3; do $frontpanel print a; done' >/dev/null",
         2, "", "cannot write held: Connection timed out\n"},
        {"mkfifo a.svg a.svg.new; timeout -k 20 20 $panelsim --scenario shot.yaml -- sleep 100; s=$?; head -c 4 a.svg;"
         "exit $s",
         0, "<svg", "passed"},
        {"timeout -k 20 20 $panelsim --timeout 1s -- "
         "sh -c 'trap \"\" TERM; setsid sh -c \"trap : TERM; echo \\$\\$ >session; sleep 100; sleep 100\" & sleep 100';"
         "kill -0 $(cat session); echo $?",
         0, "1\n", "did not end within 5 s of being asked to, and is killed\n"},
        {"mkfifo steps; timeout -k 20 1 $panelsim --scenario steps -- true", 124, "", ""},
    };
    for (const Case& c : cases) {
        expect(run(c.command), c);
    }
}

TEST_F(ProgramTest, TellsByItsStatusHowAScenarioEnded)
{
    const std::string head = "name: n\nversion: 1\nsteps:\n";
    write("led.yaml", "name: \"n\\e[7m\"\nversion: 1\nsteps:\n  - wait-led: {led: 3, is: on, within: 10s}\n  - "
                      "expect-no-bus-faults:\n");
    write("text.yaml", head + "  - wait-text: {text: Hallo, within: 10ms}\n");
    write("output.yaml", head + "  - wait-output: {text: never, within: 20s}\n");
    write("begun.yaml", head + "  - wait-output: {text: begun, within: 20s}\n");
    write("exit.yaml", head + "  - wait-exit: {status: 7, within: 20s}\n");
    write("bad.yaml", head + "  - press: {key: 3}\n");
    const Case cases[] = {
        {"$panelsim --scenario led.yaml -- sh -c '$frontpanel led 3 on; sleep 100'", 0, "",
         "the scenario 'n·[7m' passed\n"},
        {"$panelsim --scenario text.yaml -- sh -c 'echo last words; sleep 100'", 1, "last words",
         "text.yaml:4:5: step 1, wait-text: expected "},
        {"$panelsim --scenario output.yaml --timeout 300ms -- sleep 100", 42, "", "timeout after 300 ms\n"},
        {"$panelsim --scenario output.yaml --timeout 300ms -- "
         "sh -c 'trap \"echo term\" TERM; echo begin; sleep 1 & wait; sleep 0.5 & wait; echo end'",
         42, "begin\nterm\nend\n", "output.yaml:4:5: step 1, wait-output: stopped\n"},
        {"$panelsim --scenario text.yaml --timeout 1s -- sh -c 'trap \"\" TERM; sleep 2'", 1, "", "step 1, wait-text"},
        {"$panelsim --scenario bad.yaml -- touch started; s=$?; ls; exit $s", 2, "bad.yaml", "bad.yaml:4:18: "},
        {"$panelsim --lint bad.yaml", 2, "", "bad.yaml:4:18: "},
        {"$panelsim --lint bad.yaml --keys 4", 0, "bad.yaml: 1 step, ", ""},
        {"$panelsim --scenario output.yaml -- sh -c 'kill -SEGV $$'", 3, "", "ended by signal 11 (Segmentation fault)"},
        {"$panelsim --scenario output.yaml -- sh -c 'exit 7'", 3, "", "ended with status 7"},
        {"$panelsim --scenario exit.yaml -- sh -c 'exit 7'", 0, "", "passed"},
        {"$panelsim --scenario exit.yaml -- sh -c 'exit 8'", 1, "", "step 1, wait-exit: "},
        {"$panelsim --scenario begun.yaml -- sh -c 'trap \"exit 9\" TERM; echo begun; sleep 2 & wait'", 3, "begun",
         "the scenario passed, but the application ended with status 9\n"},
        {"$panelsim --scenario begun.yaml -- sh -c 'trap \"exit 0\" TERM; echo begun; sleep 2 & wait'", 0, "begun",
         "passed"},
    };
    for (const Case& c : cases) {
        expect(run(c.command), c);
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "started")) << "although the scenario is wrong";
}

TEST_F(ProgramTest, LeavesLinesToTheNextOneAfterACrash)
{
    expect(
        run("$panelsim --no-http --draw -- sh -c '"
            "  $frontpanel keys --key-count 3 & sleep 1; timeout 20 $frontpanel keys --key-count 3;"
            "  kill -9 $!; wait $!; $frontpanel led 2 on'"),
        {"lines", 0, "LEDs ○ ○ ● ○ ○ ○ ○ ○   keys  0   1   2\n", "GPIO 10: in use by another process or pin object"});
}

TEST_F(ProgramTest, PassesSignalsOnAndKillsWhoDoesNotListen)
{
    const std::string whenBegun = " & until [ -e begun ]; do sleep 0.1; done; sleep 1; kill $!; wait $!";
    expect(run("$panelsim --no-http -- sh -c 'touch begun; exec $frontpanel keys --key-count 3'" + whenBegun),
           {"a command that ends", 0, "KeyHandler stop called", ""});
    expect(run("$panelsim --no-http --timeout 1s -- sh -c '(trap \"touch ended; exit\" TERM; sleep 100 & wait); :';"
               "s=$?; for i in $(seq 100); do [ -e ended ] || sleep 0.1; done; ls ended; exit $s"),
           {"one that a script has started", 42, "ended\n", "timeout"});
    expect(run("(trap '' HUP; exec $panelsim --no-http -- sleep 1) & sleep 0.3; kill -HUP $!; wait $!"),
           {"one that nothing is to end", 0, "", ""});
    std::filesystem::remove(folder / "begun");
    expect(run("$panelsim --no-http -- sh -c 'trap \"\" TERM; touch begun; sleep 100'" + whenBegun),
           {"one that does not", 137, "", "did not end within 5 s of being asked to, and is killed\n"});
}

TEST_F(ProgramTest, HintsAtAnApplicationThatUsesNoPinAndAtNoOther)
{
    const Outcome outcome = run("$panelsim --no-http -- sh -c '$frontpanel led 1 on; sleep 5.5' 2>other &"
                                "$panelsim --no-http -- sleep 5.5; wait");
    expect(outcome, {"no pin", 0, "", "has not used a pin for 5 s"});
    EXPECT_EQ(read("other"), "");
}

} // namespace
