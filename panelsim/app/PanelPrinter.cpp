#include "panelsim/app/PanelPrinter.h"

#include "panelsim/app/Output.h"
#include "panelsim/picture/PanelText.h"

#include <cstdlib>
#include <unistd.h>

namespace panelsim {

namespace {

// A page takes some ten milliseconds to write, and nobody wants to see each of its characters come.
constexpr std::chrono::milliseconds rest{80};
constexpr std::chrono::seconds longestWait{1};

} // namespace

PanelPrinter::PanelPrinter(const Board& itsBoard) : board(itsBoard), drawn(look()), seen(drawn)
{
}

void PanelPrinter::update()
{
    const auto now = Clock::now();
    if (now < looked + rest) {
        return;
    }
    looked = now;
    const std::string text = look();
    if (seen == drawn) {
        changed = now;
    }
    if (text == seen || now > changed + longestWait) {
        draw();
    }
    seen = text;
}

void PanelPrinter::draw()
{
    const std::string text = look();
    if (text != drawn) {
        writeAll(STDOUT_FILENO, "\n" + text);
        drawn = text;
    }
}

std::string PanelPrinter::look() const
{
    const bool inColour = isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
    return drawPanel(board.getConfig(), board.view(), inColour ? TextStyle::Terminal : TextStyle::Plain);
}

} // namespace panelsim
