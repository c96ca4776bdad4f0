#include "panelsim/app/PanelPrinter.h"

#include "panelsim/app/Output.h"
#include "panelsim/picture/PanelText.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <unistd.h>
#include <utility>

namespace panelsim {

namespace {

// A page takes some ten milliseconds to write, and nobody wants to see each of its characters come.
constexpr std::chrono::milliseconds rest{80};
constexpr std::chrono::seconds drawingPatience{1};

std::string toText(const BoardConfig& config, const PanelView& view)
{
    const bool inColour = isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
    return drawPanel(config, view, inColour ? TextStyle::Terminal : TextStyle::Plain);
}

} // namespace

PanelPrinter::PanelPrinter(Simulation& itsSimulation)
    : simulation(itsSimulation), drawn(toText(itsSimulation.board.getConfig(), itsSimulation.board.view())),
      drawing([this] { drawChanges(); })
{
}

PanelPrinter::~PanelPrinter()
{
    ending = true;
    simulation.changes.notify();
    drawing.join();
}

void PanelPrinter::drawChanges()
{
    while (!ending) {
        const std::uint64_t seen = simulation.changes.count();
        PanelView view = simulation.board.view();
        if (toText(simulation.board.getConfig(), view) == drawn) {
            simulation.changes.wait(seen, ChangeSignal::Clock::now() + std::chrono::hours(1));
            continue;
        }
        const auto deadline = ChangeSignal::Clock::now() + drawingPatience;
        for (PanelView last; last != view && !ending && ChangeSignal::Clock::now() < deadline;) {
            last = view;
            std::this_thread::sleep_for(rest);
            view = simulation.board.view();
        }
        draw(view);
    }
    draw(simulation.board.view());
}

void PanelPrinter::draw(const PanelView& view)
{
    std::string text = toText(simulation.board.getConfig(), view);
    if (text != drawn) {
        writeAll(STDOUT_FILENO, "\n" + text);
        drawn = std::move(text);
    }
}

} // namespace panelsim
