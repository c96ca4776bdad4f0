#pragma once

#include "panelsim/board/AppLog.h"
#include "panelsim/board/AppState.h"
#include "panelsim/board/Board.h"
#include "panelsim/board/ChangeSignal.h"

#include <atomic>
#include <utility>

namespace panelsim {

/** What all parts of the simulator look at: the board, the hands on its keys, and the application in front of it. */
struct Simulation {
    explicit Simulation(BoardConfig config, Board::Clock clock = Board::steadyTime)
        : board(std::move(config), std::move(clock))
    {
        board.onChange([this] { changes.notify(); });
    }

    ChangeSignal changes; ///< of all the others; of the application's state notified by who sets it
    Board board;
    AppLog log{changes};
    std::atomic<AppState> app{AppState()};
};

} // namespace panelsim
