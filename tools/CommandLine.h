#pragma once

#include "tools/Demo.h"
#include "tools/Interrupt.h"
#include "tools/PrintedPage.h"
#include "tools/Wiring.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <string>

namespace tools {

/** Commands and options of one call. */
class CommandLine {
public:
    CommandLine();

    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /**
     * Runs the command that the arguments ask for.
     * @return false when it failed in a way that it has reported itself
     * @throws UsageError for arguments that cannot be
     * @throws std::exception whatever else the command fails with
     */
    bool run(int argc, const char* const* argv, Interrupt& interrupt);

private:
    using Command = std::function<bool(Interrupt&)>;

    void addWiring();
    void addPinCommands();
    void addPanelCommands();
    CLI::App& addCommand(const std::string& name, const std::string& description, const std::string& example,
                         const Command& run);
    void addSwitch(CLI::App& ledCommand);
    bool parse(int argc, const char* const* argv);
    void refuseExtras() const;

    CLI::App app;
    Command command;
    std::string examples;

    Wiring wiring;
    unsigned led = 0;
    bool on = false;
    PrintedPage page;
    std::chrono::seconds lampTestDuration{0};
    Demo::Times demoTimes;
};

} // namespace tools
