#pragma once

#include "panelsim/board/Board.h"

#include <chrono>
#include <string>

namespace panelsim {

/** Draws a panel that has changed as text on standard output, in colour at a terminal. */
class PanelPrinter {
public:
    /** @param board must outlive this object */
    explicit PanelPrinter(const Board& board);

    /** Draws a panel at rest that is not drawn yet, or one that has been changing for a second or for the last time. */
    void update(bool last);

private:
    using Clock = std::chrono::steady_clock;

    std::string look() const;

    const Board& board;
    std::string drawn;
    std::string seen;               ///< at the last look
    Clock::time_point looked = {};  ///< when that was
    Clock::time_point changed = {}; ///< first look after the last drawing that saw something else
};

} // namespace panelsim
