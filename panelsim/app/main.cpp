#include "panelsim/app/Options.h"
#include "panelsim/app/Output.h"
#include "panelsim/app/Simulator.h"
#include "panelsim/board/Text.h"
#include "panelsim/scenario/Scenario.h"

#include <exception>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <unistd.h>

namespace {

using namespace panelsim;

/**
 * Opens descriptors 0 to 2, where one is closed, so that it can neither be read nor written as intended. Otherwise the
 * next file that is opened would get the number, and the application's text would end up there.
 */
void occupyStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) == -1) {
            // The lowest free number is this one, as the ones below are taken.
            static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

int run(const Options& options)
{
    // Before signals wait to be read: the file may be a pipe, or a terminal, and Ctrl-C then ends the wait for it.
    std::optional<Scenario> scenario;
    if (const std::string file = options.lint + options.scenario; !file.empty()) {
        scenario = readScenario(file, Board(options.board));
    }
    if (options.lint.empty()) {
        return simulate(options, scenario);
    }
    const std::size_t steps = scenario->steps.size();
    std::cout << scenario->file << ": " << steps << (steps == 1 ? " step" : " steps") << ", no fault found"
              << std::endl;
    return exitStatus::passed;
}

} // namespace

int main(int argc, char** argv)
{
    occupyStandardDescriptors();
    try {
        const std::optional<Options> options = parseOptions(argc, argv);
        return options ? run(*options) : exitStatus::passed;
    } catch (const std::exception& error) {
        say(error.what());
        return exitStatus::usageFailure;
    }
}
