/* The program as its users start it, with applications that do as they please. */
#include "tests/panelsim/TestFolder.h"

#include <algorithm>
#include <cstdlib>
#include <future>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

/**
 * A line for each: STATUS COMMAND => OUTPUT => ERROR, where a line that begins with a blank goes on. The command is a
 * shell's, in a folder of its own with the scenarios below; $p is panelsim without a page. Of output and error a part
 * is given, with ~ for the end of a line; where none is, there is to be nothing at all.
 */
const char* const commands = R"(
7 $p -- sh -c 'echo out; echo err >&2; exit 7' => out~ => err~
0 echo in | $panelsim -- $panelsim -- cat => in~ => the panel is at http://127.0.0.1:
139 $panelsim --http 127.0.0.1:0 -- sh -c 'kill -SEGV $$'
    => => panelsim: the application ended by signal 11 (Segmentation fault)~The panel shows:~
2 $panelsim -- ./missing 2>error; s=$?; wc -l <error; cat error >&2; exit $s
    => 1~ => panelsim: cannot start './missing': No such file or directory~
1 echo in >in; $panelsim --http 0 -- sh -c 'cat <&7; ls -l /proc/self/fd | grep -c socket' 7<in
    => in~0~ => the panel is at http://127.0.0.1:
0 $p -- yes | head -c 2 => y~ =>
5 (trap '' CHLD; exec $p -- sh -c 'echo a; sleep 0.1; echo b; exit 5' >/dev/full) => =>
0 (trap '' HUP; exec $p -- sh -c 'kill -HUP $PPID; sleep 1') => =>
0 { $p --timeout 300ms -- yes; echo status $? >&2; } | sleep 4 => => status 42~
1 $p --panel-id 15 --stuck 4:0 -- $frontpanel detect => WARNING: detected unknown front panel type: 14~ => ID lines
0 $p --panel-id 10 --fail 4:6:throw -- $frontpanel detect
    => INFO: detected outdoor front panel type~ => ERROR: unable to read led gpio for HW ID check: 4~
0 $p --silent-chip -- $frontpanel print Hello => WARNING: value  =>
0 $p --draw --keys 1 --key-names Up --leds 2 --led-names A,B --led-colours red,green -- $frontpanel led 0 on --led-count 2
    => A (red)  ○ B    keys  Up~ =>
0 $p --draw --inverted-leds 1,28 -- sh -c '$frontpanel led 1 off; $frontpanel print a'
    => display on, backlight off~LEDs ○ ● ○ ○ ○ ○ ○ ○   keys  0   1   2~ =>
1 $p --fail 23:1:false -- $frontpanel led 3 on => => LED 3 on GPIO 23 did not take its level~
0 $p --vcd trace -- $frontpanel led 1 on; tail -n 3 trace | grep -A 1 ^1g21 | tr -d 0-9g => ~#~ =>
2 mkfifo held; exec 3<>held; timeout -k 20 20 $p --vcd held -- sh -c 'for i in 1 2 3; do $frontpanel print a; done' >log
    => => cannot write held: Connection timed out~
0 mkfifo a.svg; timeout -k 20 20 $p --scenario shot.yaml -- sleep 100; s=$?; head -c 4 a.svg; exit $s => <svg => passed
42 $p --timeout 1s -- sh -c '(trap "touch ended; exit" TERM; sleep 100 & wait); :'; s=$?;
    for i in $(seq 600); do [ -e ended ] || sleep 0.1; done; ls ended; exit $s => ended~ => timeout after 1 s~
0 timeout -k 20 20 $panelsim --timeout 1s -- sh -c 'trap "" TERM;
    setsid sh -c "trap : TERM; echo \$\$ >session; sleep 100; sleep 100" & sleep 100'; echo $?; kill -0 $(cat session)
    || echo ended => 42~ended~ => did not end within 5 s of being asked to, and is killed~
0 $p -- sleep 5.5 => => has not used a pin for 5 s
1 $p --scenario text.yaml --timeout 20s -- sh -c 'trap "" TERM; echo words; sleep 1'
    => words => text.yaml:5:5: step 2, expect-text: {text: Hi}: the display is off~The panel shows:~
42 $p --scenario never.yaml --timeout 300ms -- sleep 100 => => {text: never, within: 60s}: stopped~
130 $p --scenario never.yaml -- sh -c 'kill -INT $PPID; exec sleep 100' => => {text: never, within: 60s}: stopped~
2 $p --scenario bad.yaml -- touch started; s=$?; ls started; exit $s => => bad.yaml:4:18: 
0 $panelsim --lint bad.yaml --keys 4 => bad.yaml: 1 step,  =>
3 $p --scenario begun.yaml -- sh -c 'trap "echo end; exit 9" TERM; echo begun; sleep 100 & wait'
    => begun~end~ => the scenario passed, but the application ended with status 9~
2 $panelsim --no-http -- => => a command is needed: panelsim [OPTIONS] -- COMMAND [ARGS...]~
2 $panelsim --http 8080x -- true => => '8080x' is no address to serve on
2 $panelsim --panel-id 16 -- true => => --panel-id: '16' is not a number from 0 to 15~
2 $panelsim --panel outdoor --silent-chip -- true => => the outdoor panel has no LCD
2 $panelsim --panel outdoor --inverted-leds 1 -- true => => the outdoor panel has 2 keys and 8 LEDs
2 $panelsim --inverted-leds 1,8 -- true => => 8 is neither one of the 8 LEDs nor the backlight's GPIO 28~
2 $panelsim --key-names A,B -- true => => --key-names: 2 for 3 keys~
2 $panelsim --key-names A,B,A -- true => => --key-names: a name is given twice~
2 $panelsim --lint shot.yaml -- true => => --lint runs no command~
2 $panelsim --lint shot.yaml >/dev/full => => cannot write to standard output~
)";

const std::pair<const char*, const char*> scenarioSteps[] = {
    {"text", "  - wait-output: {text: words, within: 60s}\n  - expect-text: {text: Hi}\n"},
    {"never", "  - wait-output: {text: never, within: 60s}\n"},
    {"begun", "  - wait-output: {text: begun, within: 60s}\n"},
    {"bad", "  - press: {key: 3}\n"},
    {"shot", "  - take-screenshot: {save-to: a.svg}\n"}};

static void expect(const std::vector<std::string>& row)
{
    const TestFolder folder;
    for (const auto& [name, steps] : scenarioSteps) {
        folder.write(name + std::string(".yaml"), "name: \"n\\e[7m\"\nversion: 1\nsteps:\n" + std::string(steps));
    }
    const std::string& command = row.at(2);
    const int status =
        std::system(("cd '" + folder.path("").string() + "' && { " + command + "\n} >out 2>err </dev/null").c_str());
    EXPECT_EQ(std::to_string(WEXITSTATUS(status)), row.at(1)) << command << "\n" << folder.read("err");
    for (const auto& [file, part] : {std::pair("out", row.at(3)), {"err", row.at(4)}}) {
        std::string text = folder.read(file);
        const std::size_t hint = text.find("panelsim: the application has not used a pin");
        if (hint != std::string::npos && command.find("sleep 5.5") == std::string::npos) {
            text.erase(hint, text.find('\n', hint) + 1 - hint); // on a busy machine
        }
        EXPECT_TRUE(command.find("-- true") == std::string::npos || text.find('\n') + 1 == text.size()) << text;
        std::replace(text.begin(), text.end(), '\n', '~');
        EXPECT_TRUE(part.empty() ? text.empty() : text.find(part) != std::string::npos) << command << "\n" << text;
    }
}

TEST(Program, DoesWhatItsCommandLineSays)
{
    setenv("panelsim", PANELSIM_PROGRAM, 1);
    setenv("p", PANELSIM_PROGRAM " --no-http", 1);
    setenv("frontpanel", FRONTPANEL_PROGRAM, 1);
    std::vector<std::future<void>> running; // all at once, since the slow ones wait for most of their time
    std::istringstream lines(std::regex_replace(commands, std::regex("\n +"), " "));
    for (std::string line; std::getline(lines, line);) {
        std::smatch parts;
        if (std::regex_match(line, parts, std::regex("([0-9]+) (.*) => ?(.*) => ?(.*)"))) {
            running.push_back(
                std::async(std::launch::async, expect, std::vector<std::string>(parts.begin(), parts.end())));
        } else {
            EXPECT_EQ(line, "");
        }
    }
}
