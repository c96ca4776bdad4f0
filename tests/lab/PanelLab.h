#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/** Which operation of the pin factory and of the pins fails, how, and for how long. */
struct PinFailure {
    enum class Kind {
        Before, ///< a std::runtime_error, without effect
        After,  ///< a std::runtime_error, after the operation has had its effect
        False,  ///< the result false, without effect; init and setValue only
        Foreign ///< an exception derived from nothing, without effect; never on a polling thread, where it ends the
                ///< process
    };
    std::uint64_t operation = 0; ///< counted from 1; 0 for none
    Kind kind = Kind::Before;
    bool lasting = false; ///< whether all after it fail as well
};

/** A life, spelled in characters. */
struct PanelScript {
    std::string name;
    std::string text;
};

/** @return the lives of tests/lab/corpus */
std::vector<PanelScript> panelScripts();

/** What came of a life. */
struct LivedPanel {
    std::uint64_t constructed; ///< operations of factory and pins until the panel was constructed
    std::uint64_t operations;  ///< of factory and pins, until the panel was destroyed
    bool failed;               ///< whether one of them was made to fail
};

/**
 * Lives a panel on the simulated board by a list of operations and compares each with a model of what results,
 * exceptions, error lines, LEDs, key events and page must be. After a failed operation a
 * restart of the display, or a new panel where none was constructed, has to show a page at the end. No pin and no
 * thread may be left.
 *
 * @param script panel and operations, in characters; PanelLab.cpp says what each means
 * @throws std::logic_error that names the operation and the rule that it broke
 */
LivedPanel livePanel(std::string_view script, const PinFailure& failure = {});
