#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/board/BoardConfig.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace panelsim {

/** What the user asked for on the command line. */
struct Options {
    BoardConfig board;
    std::vector<std::string> command; ///< the application's, with its arguments
    std::optional<std::string> http;  ///< where the page is served, if the user said so
    bool noHttp = false;
    bool stay = false;              ///< whether the page outlives the application
    bool draw = false;              ///< whether the panel is drawn on standard output
    std::filesystem::path scenario; ///< empty for none
    std::filesystem::path lint;     ///< a scenario file to check only; empty for none
    std::filesystem::path vcd;      ///< empty for none
    std::optional<std::chrono::milliseconds> timeout;
    std::vector<PinFault> faults;
};

/**
 * Reads the command line; everything after "--" is the application's.
 * @return empty when it only asked for help or the version, which is then on standard output
 * @throws std::invalid_argument with one line that names the option
 */
std::optional<Options> parseOptions(int argc, const char* const* argv);

} // namespace panelsim
