#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/board/BoardConfig.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace panelsim {

/** The options and arguments of the command line. */
struct Options {
    BoardConfig board;
    std::vector<std::string> command; ///< the application's, with its arguments
    std::optional<std::string> http;  ///< where the page is served, if the user said so
    bool noHttp = false;
    bool stay = false;    ///< whether the page outlives the application
    bool draw = false;    ///< whether the panel is drawn on standard output
    std::string scenario; ///< a file; empty for none
    std::string lint;     ///< a scenario file to check only; empty for none
    std::string vcd;      ///< a file; empty for none
    std::optional<std::chrono::milliseconds> timeout;
    std::vector<PinFault> faults;
};

/**
 * Reads the command line; everything after "--" is the application's.
 * @return empty after --help and --version, whose text is then on standard output
 * @throws std::exception with one line that says what is wrong
 */
std::optional<Options> parseOptions(int argc, const char* const* argv);

} // namespace panelsim
