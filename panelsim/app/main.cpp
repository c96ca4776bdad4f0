#include "panelsim/app/Options.h"
#include "panelsim/app/Output.h"
#include "panelsim/app/Simulator.h"
#include "panelsim/board/Utf8.h"
#include "panelsim/scenario/Scenario.h"

#include <exception>
#include <iostream>
#include <optional>

namespace {

using namespace panelsim;

int run(const Options& options)
{
    if (!options.lint.empty()) {
        const std::size_t steps = readScenario(options.lint, Board(options.board)).steps.size();
        std::cout << printable(options.lint.string()) << ": " << steps << (steps == 1 ? " step" : " steps")
                  << ", no fault found" << std::endl;
        return exitStatus::passed;
    }
    // Before signals wait to be read: the file may be a pipe, or a terminal, and Ctrl-C then ends the wait for it.
    std::optional<Scenario> scenario;
    if (!options.scenario.empty()) {
        scenario = readScenario(options.scenario, Board(options.board));
    }
    return Simulator(options, scenario).run();
}

} // namespace

int main(int argc, char** argv)
{
    occupyStandardDescriptors();
    try {
        const std::optional<Options> options = parseOptions(argc, argv);
        return options ? run(*options) : exitStatus::passed;
    } catch (const std::exception& error) {
        say(printable(error.what()));
        return exitStatus::usageFailure;
    }
}
