#include "tools/Frontpanel.h"

#include "tools/CommandLine.h"
#include "tools/Interrupt.h"
#include "tools/Output.h"
#include "tools/UsageError.h"

#include <cstdio>
#include <exception>

namespace tools {

namespace {

constexpr int failure = 1;
constexpr int usageFailure = 2;

int runCommand(int argc, const char* const* argv, Interrupt& interrupt)
{
    try {
        return CommandLine().run(argc, argv, interrupt) ? 0 : failure;
    } catch (const UsageError& error) {
        complain(error.what());
        return usageFailure;
    }
}

} // namespace

int runFrontpanel(int argc, const char* const* argv)
{
    occupyStandardDescriptors();
    std::clearerr(stdout);
    try {
        Interrupt interrupt;
        const int status = runCommand(argc, argv, interrupt);
        if (outputFailed() && status == 0) {
            complain("cannot write to standard output");
            return failure;
        }
        return status;
    } catch (const std::exception& error) {
        complain(error.what());
        return failure;
    }
}

} // namespace tools
