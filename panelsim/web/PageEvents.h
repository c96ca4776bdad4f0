#pragma once

#include "panelsim/board/Simulation.h"

#include <string>

namespace panelsim {

/** @name What a page is sent: server-sent events, their data in JSON */
///@{
/** @param page that gets it @return what is simulated */
std::string helloEvent(Board::Hand page, const std::string& command, const BoardConfig& board);

/** @param restart whether the application can be started again @return all that a page shows but the log */
std::string stateEvent(const Simulation& simulation, bool restart);

std::string logEvent(const AppLog::Lines& lines);

/** @return an event that shows that the connection works */
std::string aliveEvent();
///@}

} // namespace panelsim
