#pragma once

#include "panelsim/board/AppLog.h"
#include "panelsim/board/BoardConfig.h"
#include "panelsim/board/Simulation.h"
#include "panelsim/web/PageInfo.h"

#include <string>

namespace panelsim {

/** @return JSON text that says who a page is and what is simulated */
std::string helloJson(Board::Hand page, const PageInfo& info, const BoardConfig& board);

/**
 * @param restart whether the application can be started again
 * @return JSON text with all that a page shows but the log
 */
std::string stateJson(const Simulation& simulation, bool restart);

/** @return JSON text with lines of the log; what is not UTF-8 in them is replaced */
std::string logJson(const AppLog::Lines& lines);

} // namespace panelsim
