#pragma once

#include "panelsim/board/AppLog.h"
#include "panelsim/board/Board.h"

#include <cstring>
#include <string>
#include <utility>

namespace panelsim {

/** How an application is doing. */
struct AppState {
    enum class Phase { NotStarted, Running, Exited, Killed };

    Phase phase = Phase::NotStarted;
    int status = 0; ///< exit status of an application that exited, signal number of one that was killed

    bool hasEnded() const { return phase == Phase::Exited || phase == Phase::Killed; }

    /** @return whether it ended by itself with status 0 */
    bool succeeded() const { return phase == Phase::Exited && status == 0; }

    /** @return as a shell has it: the exit status, or 128 more than the signal's number */
    int shellStatus() const { return phase == Phase::Killed ? 128 + status : status; }
};

/** @return "not started", "running", "ended with status 1" or "ended by signal 11 (Segmentation fault)" */
inline std::string describe(const AppState& state)
{
    if (!state.hasEnded()) {
        return state.phase == AppState::Phase::Running ? "running" : "not started";
    }
    const std::string number = std::to_string(state.status);
    const char* const name = state.phase == AppState::Phase::Killed ? sigdescr_np(state.status) : nullptr;
    return state.phase == AppState::Phase::Exited
               ? "ended with status " + number
               : "ended by signal " + number + (name == nullptr ? "" : " (" + std::string(name) + ")");
}

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
