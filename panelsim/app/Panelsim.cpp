#include "panelsim/app/Panelsim.h"

#include "panelsim/app/ExitStatus.h"
#include "panelsim/app/Options.h"
#include "panelsim/app/Output.h"
#include "panelsim/app/Signals.h"
#include "panelsim/app/Simulator.h"
#include "panelsim/scenario/ScenarioFile.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <utility>

namespace panelsim {

namespace {

int run(int argc, const char* const* argv)
{
    const std::optional<Options> options = parseOptions(argc, argv);
    if (!options) {
        return 0;
    }
    if (!options->lint.empty()) {
        const Scenario scenario = readScenario(options->lint, options->board);
        std::cout << options->lint.string() << ": " << scenario.steps.size()
                  << (scenario.steps.size() == 1 ? " step" : " steps") << ", no fault found" << std::endl;
        return 0;
    }
    // Before signals wait to be read: the file may be a pipe, or a terminal, and Ctrl-C then ends the wait for it.
    std::optional<Scenario> scenario;
    if (!options->scenario.empty()) {
        scenario = readScenario(options->scenario, options->board);
    }
    const Signals signals;
    return Simulator(*options, std::move(scenario), signals).run();
}

/** @return the text as one line, whatever a file name or an argument contains */
std::string asOneLine(std::string text)
{
    const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
    std::replace_if(text.begin(), text.end(), isControl, '?');
    return text;
}

} // namespace

int runPanelsim(int argc, const char* const* argv)
{
    occupyStandardDescriptors();
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        say(asOneLine(error.what()));
        return exitStatus::usageFailure;
    }
}

} // namespace panelsim
