/* The program as its users start it, with applications that do as they please. */
#include "tests/panelsim/TestFolder.h"

#include <cstdlib>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <utility>
#include <vector>

namespace {

struct Case {
    const char* command; ///< of a shell, in a folder of its own; $p is panelsim without a page, $frontpanel the tool
    int status;
    const char* output; ///< a part of it; empty for none at all
    const char* error;  ///< a part of it; empty for none at all
};

void expect(const Case& c)
{
    const std::string head = "name: n\nversion: 1\nsteps:\n";
    const TestFolder folder;
    folder.write("led.yaml", "name: \"n\\e[7m\"\nversion: 1\nsteps:\n  - wait-led: {led: 3, is: on, within: 60s}\n  - "
                             "expect-no-bus-faults:\n");
    folder.write("text.yaml", head + "  - wait-output: {text: last words, within: 60s}\n  - expect-text: {text: Hi}\n");
    folder.write("output.yaml", head + "  - wait-output: {text: never, within: 60s}\n");
    folder.write("begun.yaml", head + "  - wait-output: {text: begun, within: 60s}\n");
    folder.write("exit.yaml", head + "  - wait-exit: {status: 7, within: 60s}\n");
    folder.write("bad.yaml", head + "  - press: {key: 3}\n");
    folder.write("shot.yaml", head + "  - take-screenshot: {save-to: a.svg}\n");
    folder.write("dir.yaml", head + "  - take-screenshot: {save-to: dir.svg}\n");
    const std::string all =
        "cd '" + folder.path("").string() + "' && mkdir dir.svg && { " + c.command + "\n} >out 2>err </dev/null";
    const int status = std::system(all.c_str());
    const auto fits = [](const std::string& text, const std::string& part) {
        return part.empty() ? text.empty() : text.find(part) != std::string::npos;
    };
    EXPECT_EQ(WEXITSTATUS(status), c.status) << c.command << "\n" << folder.read("err");
    EXPECT_TRUE(fits(folder.read("out"), c.output)) << c.command << "\n" << folder.read("out");
    EXPECT_TRUE(fits(folder.read("err"), c.error)) << c.command << "\n" << folder.read("err");
}

/** All at once, since most of them wait for most of their time. */
void expectAll(const std::vector<Case>& cases)
{
    setenv("panelsim", PANELSIM_PROGRAM, 1);
    setenv("p", PANELSIM_PROGRAM " --no-http", 1);
    setenv("frontpanel", FRONTPANEL_PROGRAM, 1);
    std::vector<std::future<void>> running;
    for (const Case& c : cases) {
        running.push_back(std::async(std::launch::async, expect, std::cref(c)));
    }
}

TEST(Program, RunsApplicationsAndWaitsForNobodyWithoutEnd)
{
    expectAll({
        {"$p -- sh -c 'echo out; exit 7'", 7, "out\n", ""},
        {"$p -- sh -c 'echo err >&2'", 0, "", "err\n"},
        {"echo in >in; $p -- cat <in", 0, "in\n", ""},
        {"$p -- sh -c 'kill -SEGV $$'", 139, "",
         "panelsim: the application ended by signal 11 (Segmentation fault)\nThe panel shows:\n"},
        {"$p -- sh -c 'kill -PIPE $$'", 141, "", ""},
        {"$panelsim --http 127.0.0.1:0 -- sh -c 'kill -SEGV $$'", 139, "", "The panel shows:\n"},
        {"$panelsim -- ./missing 2>error; s=$?; wc -l <error; cat error >&2; exit $s", 2, "1\n",
         "panelsim: cannot start './missing': No such file or directory\n"},
        {"echo in >in; $panelsim --http 0 -- sh -c 'cat <&7; ls -l /proc/self/fd | grep -c socket' 7<in", 1, "in\n0\n",
         "the panel is at http://127.0.0.1:"},
        {"$panelsim -- $panelsim -- true", 0, "", "the panel is at http://127.0.0.1:"},
        {"$p -- sh -c 'yes | head -c 300000' | tail -c 2", 0, "y\n", ""},
        {"$p -- yes | head -c 2", 0, "y\n", ""},
        {"$p -- sh -c 'sleep 100 & echo started'", 0, "started\n", ""},
        {"$p -- sh -c 'yes & exit 5' >/dev/null", 5, "", ""},
        {"$p -- sh -c 'echo a; sleep 0.1; echo b; exit 5' >/dev/full", 5, "", ""},
        {"(trap '' CHLD; exec $p -- sh -c 'exit 5')", 5, "", ""},
        {"(trap '' HUP; exec $p -- sh -c 'kill -HUP $PPID; sleep 1') ", 0, "", ""},
        {"$p -- sh -c 'trap \"exit 9\" HUP; kill -HUP $PPID; sleep 100 & wait'", 9, "", ""},
        {"$p --scenario output.yaml -- sh -c 'kill -INT $PPID; exec sleep 100'", 130, "", "wait-output: stopped\n"},
        {"{ $p --timeout 300ms -- yes; echo status $? >&2; } | sleep 4", 0, "", "status 42\n"},
        {"{ $p --draw --timeout 1s -- sh -c 'yes & $frontpanel led 1 on; yes >&2'; echo $? >status; }"
         " 2>&1 | for i in $(seq 600); do [ -s status ] && cat status && break; sleep 0.1; done",
         0, "42\n", ""},
        {"$p --panel outdoor -- $frontpanel detect", 0, "outdoor\n", ""},
        {"$p --panel-id 5 -- $frontpanel detect", 0, "outdoor\n", ""},
        {"$p --silent-chip -- $frontpanel print Hello", 0, "WARNING: value ", ""},
        {"$p --chip ra8803 --draw -- $frontpanel print Hello", 0, "│ Hello  ", ""},
        {"$p --stuck 4:0 -- $frontpanel detect", 1, "unknown front panel type: 14", "ID lines"},
        {"$p --stuck 23:1 --draw -- $frontpanel led 0 on", 0, "LEDs ● ○ ○ ● ○ ○ ○ ○   keys", ""},
        {"$p --draw --keys 1 --key-names Up --leds 2 --led-names A,B --led-colours red,green -- "
         "$frontpanel led 0 on --led-count 2",
         0, "A (red)  ○ B    keys  Up\n", ""},
        {"$p --draw --inverted-leds 1,28 -- sh -c '$frontpanel led 1 off; $frontpanel print a'", 0,
         "display on, backlight off\nLEDs ○ ● ○ ○ ○ ○ ○ ○   keys  0   1   2\n", ""},
        {"$p --led-base 200 --leds 3 -- $frontpanel led 2 on --led-base 200 --led-count 3", 0, "", ""},
        {"$p -- $frontpanel led 3 on --led-base 100", 1, "", "GPIO 103: no such GPIO"},
        {"$p --fail 23:3:throw -- $frontpanel led 3 on", 1, "", "GPIO 23: made to fail\n"},
        {"$p --fail 23:3:false -- $frontpanel led 3 on", 0, "", ""},
        {"$p --fail 23:1:false -- $frontpanel led 3 on", 1, "", "GPIO 23"},
        {"$p --draw -- sh -c '$frontpanel keys --key-count 3 & sleep 1;"
         "timeout 20 $frontpanel keys --key-count 3; kill -9 $!; wait $!; $frontpanel led 2 on'",
         0, "LEDs ○ ○ ● ○ ○ ○ ○ ○   keys  0   1   2\n", "GPIO 10: in use by another process or pin object"},
        {"$p --vcd trace -- $frontpanel led 1 on; tail -n 3 trace | tr '\\n#' '  '", 0, " 13  ", ""},
        {"mkfifo trace; timeout -k 20 20 $p --vcd trace -- true", 2, "", "cannot open trace: No such"},
        {"mkfifo held; exec 3<>held; timeout -k 20 20 $p --vcd held -- sh -c '"
         "for i in 1 2 3; do $frontpanel print a; done' >/dev/null",
         2, "", "cannot write held: Connection timed out\n"},
        {"mkfifo a.svg; timeout -k 20 20 $p --scenario shot.yaml -- sleep 100; s=$?; head -c 4 a.svg; exit $s", 0,
         "<svg", "passed"},
        {"mkfifo steps; timeout -k 20 1 $p --scenario steps -- true", 124, "", ""},
        {"$p --timeout 1s -- sh -c '(trap \"touch ended; exit\" TERM; sleep 100 & wait); :';"
         "s=$?; for i in $(seq 600); do [ -e ended ] || sleep 0.1; done; ls ended; exit $s",
         42, "ended\n", "timeout after 1 s\n"},
        {"timeout -k 20 20 $panelsim --timeout 1s -- "
         "sh -c 'trap \"\" TERM; setsid sh -c \"trap : TERM; echo \\$\\$ >session; sleep 100; sleep 100\" & sleep 100';"
         "echo status $?; kill -0 $(cat session); echo $?",
         0, "status 42\n1\n", "did not end within 5 s of being asked to, and is killed\n"},
        {"$p -- sleep 5.5", 0, "", "has not used a pin for 5 s"},
        {"$p -- sh -c '$frontpanel led 1 on; sleep 5.5'", 0, "", ""},
    });
}

TEST(Program, PlaysScenarios)
{
    expectAll({
        {"$p --scenario led.yaml -- sh -c '$frontpanel led 3 on; exec sleep 100'", 0, "",
         "the scenario 'n·[7m' passed\n"},
        {"$p --scenario text.yaml -- sh -c 'echo last words; exec sleep 100'", 1, "last words",
         "text.yaml:5:5: step 2, expect-text: expected "},
        {"$p --scenario output.yaml --timeout 300ms -- sleep 100", 42, "", "timeout after 300 ms\n"},
        {"$p --scenario text.yaml --timeout 20s -- sh -c 'trap \"\" TERM; echo last words; sleep 1'", 1, "last words",
         "step 2, expect-text"},
        {"$p --scenario bad.yaml -- touch started; s=$?; ls started; exit $s", 2, "", "bad.yaml:4:18: "},
        {"$p --scenario dir.yaml -- sleep 100", 2, "", "cannot write dir.svg: Is a directory"},
        {"$panelsim --lint bad.yaml", 2, "", "bad.yaml:4:18: "},
        {"$panelsim --lint bad.yaml --keys 4", 0, "bad.yaml: 1 step, ", ""},
        {"$p --scenario output.yaml -- sh -c 'kill -SEGV $$'", 3, "", "ended by signal 11 (Segmentation fault)"},
        {"$p --scenario output.yaml -- sh -c 'exit 7'", 3, "", "ended with status 7"},
        {"$p --scenario exit.yaml -- sh -c 'exit 7'", 0, "", "passed"},
        {"$p --scenario exit.yaml -- sh -c 'exit 8'", 1, "", "step 1, wait-exit: "},
        {"$p --scenario begun.yaml -- sh -c 'trap \"exit 9\" TERM; echo begun; sleep 100 & wait'", 3, "begun",
         "the scenario passed, but the application ended with status 9\n"},
        {"$p --scenario begun.yaml -- sh -c 'trap \"echo end; exit 0\" TERM; echo begun; sleep 100 & wait'", 0,
         "begun\nend\n", "passed"},
    });
}

TEST(Program, SaysInOneLineWhatIsWrongWithItsOptions)
{
    std::vector<Case> cases;
    std::vector<std::string> commands;
    const std::pair<const char*, const char*> refusals[] = {
        {"", "a command is needed: panelsim [OPTIONS] -- COMMAND [ARGS...]\n"},
        {"--no-http --", "a command is needed"},
        {"true", "'true' comes without '--' before it"},
        {"--leads 3 -- true", "unknown option '--leads'"},
        {"--panel inside -- true", "--panel: inside not in {indoor,outdoor}\n"},
        {"--panel-id 16 -- true", "--panel-id: '16' is not a number from 0 to 15\n"},
        {"--chip ra8803 --panel outdoor -- true", "--chip: the outdoor panel has no LCD\n"},
        {"--silent-chip --panel outdoor -- true", "--silent-chip: the outdoor panel has no LCD\n"},
        {"--panel outdoor --keys 3 -- true", "--key-count: the outdoor panel has 2 keys\n"},
        {"--panel outdoor --leds 3 -- true", "--led-count: the outdoor panel has 8 LEDs\n"},
        {"--panel outdoor --inverted-leds 1 -- true", "--inverted-leds: the LEDs of the outdoor panel are all active"},
        {"--keys", "--key-count: a value is missing\n"},
        {"--keys 010 -- true", "--key-count: '010' is not a number from 0 to 256\n"},
        {"--keys 257 -- true", "--key-count: '257' is not a number from 0 to 256\n"},
        {"--inverted-leds 1,8 -- true", "8 is neither one of the 8 LEDs nor the backlight's GPIO 28\n"},
        {"--led-base 4294967288 -- true", "backlight from GPIO 4294967296 on: the highest GPIO number is 4294967295\n"},
        {"--led-base 4 -- true", "ID lines and LEDs overlap at GPIO 4\n"},
        {"--led-base 12 -- true", "keys and LEDs overlap at GPIO 12\n"},
        {"--led-base 32 -- true", "backlight and LCD lines overlap at GPIO 40\n"},
        {"--fail 20:0:throw -- true", "--fail: '20:0:throw' is not GPIO:N:throw or GPIO:N:false, with N from 1 on\n"},
        {"--fail 77:1:throw -- true", "--fail: the panel has no GPIO 77\n"},
        {"--stuck 20:high -- true", "--stuck: '20:high' is not GPIO:0 or GPIO:1\n"},
        {"--stuck 20 -- true", "--stuck: '20' has no colon\n"},
        {"--stuck 8:1 -- true", "--stuck: the panel has no GPIO 8\n"},
        {"--key-names A,B -- true", "--key-names: 2 names for 3\n"},
        {"--key-names A,B,A -- true", "--key-names: \"A\" is empty, given twice or not printable\n"},
        {"--led-colours pink -- true", "--led-colours: pink not in {green,"},
        {"--led-colours green,red -- true", "--led-colours: 2 colours for 8 LEDs\n"},
        {"--timeout 300 -- true", "--timeout: 300 has no unit"},
        {"--http 1.2.3.4: -- true", "--http: '1.2.3.4:' is no address to serve on"},
        {"--http 0 --no-http -- true", "--http and --no-http exclude each other\n"},
        {"--stay --no-http -- true", "--stay is for the page, which --no-http switches off\n"},
        {"--stay --scenario led.yaml -- true", "--stay: the end of the scenario ends the run\n"},
        {"--vcd /no/where.vcd --no-http -- true", "cannot open /no/where.vcd: No such file or directory\n"},
        {"--scenario '' -- true", "--scenario: a file name is needed\n"},
        {"--lint led.yaml -- true", "--lint checks a file and runs nothing: leave out what is for a run\n"},
        {"--lint nothing.yaml", "nothing.yaml: cannot read: No such file or directory\n"},
    };
    for (const auto& [options, error] : refusals) {
        commands.push_back("$panelsim " + std::string(options) +
                           " 2>error; s=$?; cat error >&2; [ $(wc -l <error) = 1 ] && exit $s");
        cases.push_back({"", 2, "", error});
    }
    for (std::size_t i = 0; i < cases.size(); ++i) {
        cases[i].command = commands[i].c_str();
    }
    expectAll(cases);
}

} // namespace
