#include "panelsim/app/PanelPrinter.h"

#include "panelsim/app/Output.h"
#include "panelsim/picture/PanelText.h"

#include <cstdlib>
#include <unistd.h>

namespace panelsim {

namespace {

// A page takes some ten milliseconds to write, and nobody wants to see each of its characters come.
constexpr std::chrono::milliseconds rest{80};
constexpr std::chrono::seconds patience{1};

} // namespace

PanelPrinter::PanelPrinter(const Board& itsBoard) : board(itsBoard), drawn(look()), seen(drawn)
{
}

void PanelPrinter::update(bool last)
{
    const auto now = Clock::now();
    if (!last && now < looked + rest) {
        return;
    }
    looked = now;
    const std::string text = look();
    if (seen == drawn) {
        changed = now;
    }
    if (text != drawn && (last || text == seen || now > changed + patience)) {
        writeAll(STDOUT_FILENO, "\n" + text);
        drawn = text;
    }
    seen = text;
}

std::string PanelPrinter::look() const
{
    const bool inColour = isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
    return drawPanel(board.getConfig(), board.view(), inColour ? TextStyle::Terminal : TextStyle::Plain);
}

} // namespace panelsim
