#pragma once

#include "panelsim/board/AppLog.h"
#include "panelsim/board/AppState.h"
#include "panelsim/board/Board.h"

#include <utility>

namespace panelsim {

/** What all parts of the simulator look at: the board, the hands on its keys, and the application in front of it. */
struct Simulation {
    explicit Simulation(BoardConfig config, Board::Clock clock = Board::steadyTime)
        : board(std::move(config), std::move(clock))
    {
    }

    Board board;
    AppLog log;
    AppState app;
};

} // namespace panelsim
