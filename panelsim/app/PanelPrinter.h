#pragma once

#include "panelsim/board/Simulation.h"

#include <atomic>
#include <string>
#include <thread>

namespace panelsim {

/** Draws the panel as text on standard output, in colour at a terminal, each time that it has changed and is at rest.
 */
class PanelPrinter {
public:
    /** @param simulation must outlive this object */
    explicit PanelPrinter(Simulation& simulation);
    /** Draws what has not been drawn yet. */
    ~PanelPrinter();

    PanelPrinter(const PanelPrinter&) = delete;
    PanelPrinter& operator=(const PanelPrinter&) = delete;

private:
    void drawChanges();
    void draw(const PanelView& view);

    Simulation& simulation;
    std::string drawn; ///< the text
    std::atomic<bool> ending{false};
    std::thread drawing;
};

} // namespace panelsim
