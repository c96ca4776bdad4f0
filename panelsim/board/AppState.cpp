#include "panelsim/board/AppState.h"

#include <cstring>

namespace panelsim {

std::string describe(const AppState& state)
{
    switch (state.phase) {
    case AppState::Phase::NotStarted:
        return "not started";
    case AppState::Phase::Running:
        return "running";
    case AppState::Phase::Exited:
        return "ended with status " + std::to_string(state.status);
    case AppState::Phase::Killed:
        break;
    }
    const char* const name = sigdescr_np(state.status);
    return "ended by signal " + std::to_string(state.status) + (name == nullptr ? "" : " (" + std::string(name) + ")");
}

} // namespace panelsim
