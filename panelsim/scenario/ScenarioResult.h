#pragma once

#include <string>

namespace panelsim {

/** How a scenario has ended. */
struct ScenarioResult {
    enum class Outcome {
        Passed,
        Failed,            ///< something was not as a step expected it
        ApplicationFailed, ///< the application ended, not with status 0, while steps were left
        FileError,         ///< a picture could not be read or written
        Stopped            ///< from outside
    };

    Outcome outcome = Outcome::Passed;
    std::string message = {};  ///< what has gone wrong: UTF-8, one line or more without a newline at the end
    bool exitAccepted = false; ///< whether a step waited for the application's end and found it as it was to be
};

} // namespace panelsim
