#pragma once

#include <cstdint>
#include <limits>
#include <string>

/** Which operation of the pin factory and of the pins fails, how, and for how long. */
struct PinFailure {
    enum Kind {
        Before, ///< a std::runtime_error, without effect
        After,  ///< a std::runtime_error, after the operation has had its effect
        False,  ///< the result false, without effect; init and setValue only
        Foreign ///< an exception derived from nothing, without effect; never on a polling thread, where it ends the
                ///< process
    };
    std::uint64_t operation = std::numeric_limits<std::uint64_t>::max(); ///< counted from 1
    Kind kind = Before;
    bool lasting = false; ///< whether all after it fail as well
};

/** What came of a life. */
struct LivedPanel {
    std::uint64_t operations; ///< of factory and pins, until the panel was destroyed
    bool failed;              ///< whether one of them was made to fail
};

/**
 * Lives a panel on the simulated board by a list of operations and compares each with a model of what results,
 * exceptions, error lines, LEDs, key events and page must be. After a failed operation, a restart of the display, or
 * construction if that failed, brings all back to the model's state at the end. No pin and no thread may be left.
 *
 * @param script panel and operations, any bytes; Laboratory::operate says what each means, others do nothing
 * @throws std::logic_error that names the rule that was broken
 */
LivedPanel livePanel(const std::string& script, const PinFailure& failure = {});
