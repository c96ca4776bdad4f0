/*
 * `frontpanel demo`, the tool's own code, on a simulated indoor panel, with a person of fixed habits in front of it:
 * the panel is drawn whenever it shows what that person waits for. Exits with 0 when it showed all of it.
 */
#include "panelsim/Board.h"
#include "panelsim/InstalledBoard.h"
#include "panelsim/PanelText.h"
#include "tools/Frontpanel.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using panelsim::Board;
using panelsim::PanelView;

struct Step {
    const char* caption;
    const char* awaitedText; ///< on the display; null for the lamp test
    void (*reaction)(Board&);
};

const Step script[] = {
    {"The panel tests its lamps", nullptr, [](Board&) {}},
    {"It waits for a key", "Press a key", [](Board& board) { board.press(0); }},
    {"Key 0 goes down", "Key 0 ", [](Board&) {}},
    {"Key 0 is held", "Key 0 held (2 repeats)", [](Board& board) { board.release(0); }},
    {"Key 0 is let go", "Key 0 released", [](Board& board) { board.press(2); }},
    {"Key 2 goes down", "Key 2 ", [](Board& board) { board.release(2); }},
    {"Key 2 is let go", "Key 2 released", [](Board&) {}},
};

bool allLit(const PanelView& view)
{
    return std::find(view.leds.begin(), view.leds.end(), false) == view.leds.end() &&
           view.lcd->lines.back().back().inverted;
}

bool shows(const PanelView& view, const std::string& text)
{
    return std::any_of(view.lcd->lines.begin(), view.lcd->lines.end(), [&](const auto& line) {
        std::string characters;
        for (const panelsim::LcdCell& cell : line) {
            characters += static_cast<char>(cell.code);
        }
        return characters.find(text) != std::string::npos;
    });
}

bool fulfils(const PanelView& view, const Step& step)
{
    return step.awaitedText == nullptr ? allLit(view) : shows(view, step.awaitedText);
}

void draw(const char* caption, const PanelView& view)
{
    const bool terminal = isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
    const auto style = terminal ? panelsim::TextStyle::Terminal : panelsim::TextStyle::Plain;
    std::cout << std::string("\n== ") + caption + " ==\n" + drawPanel(view, style) << std::flush;
}

/** @return whether the panel showed the step within a generous time and before the demo was over */
bool play(Board& board, const Step& step, const std::atomic<bool>& over)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    PanelView view = board.view();
    while (!fulfils(view, step)) {
        if (over) {
            std::cerr << "board-demo: ended before: " << step.caption << "\n";
            return false;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            std::cerr << "board-demo: waited in vain for: " << step.caption << "\n";
            draw("Instead the panel shows", view);
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        view = board.view();
    }
    draw(step.caption, view);
    step.reaction(board);
    return true;
}

/** Signals that end the tool's commands reach its own wait for them only if no other thread takes them. */
void blockEndingSignals()
{
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
}

/** @return whether the panel was left as it should be: no fault on its bus, no line in use, no LED lit */
bool checkBoard(const Board& board)
{
    for (const panelsim::BusFault& fault : board.busFaults()) {
        std::cerr << "board-demo: bus fault: " << describe(fault) << "\n";
    }
    const std::vector<bool> leds = board.view().leds;
    const bool dark = std::find(leds.begin(), leds.end(), true) == leds.end();
    if (board.claimedLines() != 0 || !dark) {
        std::cerr << "board-demo: the tool left lines in use or LEDs lit\n";
        return false;
    }
    return board.busFaultCount() == 0;
}

int runDemo()
{
    blockEndingSignals();
    Board board{panelsim::BoardConfig()};
    const panelsim::InstalledBoard installed(board);
    bool shown = true;
    std::atomic<bool> over{false};
    std::thread person([&] {
        for (const Step& step : script) {
            shown = shown && play(board, step, over);
        }
        kill(getpid(), SIGTERM);
    });
    const char* const arguments[] = {"frontpanel", "demo", "--lamp-seconds", "1"};
    const int status = tools::runFrontpanel(4, arguments);
    over = true;
    person.join();
    if (status != 0) {
        return status;
    }
    draw("The demo has ended", board.view());
    return shown && checkBoard(board) ? 0 : 1;
}

} // namespace

int main()
{
    try {
        return runDemo();
    } catch (const std::exception& error) {
        std::cerr << "board-demo: " << error.what() << "\n";
        return 1;
    }
}
