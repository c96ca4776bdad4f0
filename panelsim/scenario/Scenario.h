#pragma once

#include "panelsim/board/PinFault.h"
#include "panelsim/scenario/TextPlace.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace panelsim {

/** What a scenario does and looks at. Keys, LEDs, lines and columns count from 0; texts are UTF-8. */
namespace steps {

/** Lets time pass. */
struct Delay {
    std::chrono::milliseconds duration;
};

/** Presses a key and keeps it pressed. */
struct Press {
    unsigned key;
};

struct Release {
    unsigned key;
};

/** Presses a key for some time. */
struct Tap {
    unsigned key;
    std::chrono::milliseconds duration;
};

/** Waits until the display contains a text. */
struct WaitText {
    std::string text;
    std::optional<unsigned> line; ///< any line when empty
    std::chrono::milliseconds within;
};

/** A line of the display is this text, blanks at its end not counted. */
struct ExpectText {
    unsigned line;
    std::string text;
};

/** Cells of the display are inverted, or none of them is. */
struct ExpectInverted {
    unsigned line;
    unsigned from; ///< first column
    unsigned to;   ///< last column
    bool inverted;
};

struct ExpectLed {
    unsigned led;
    bool lit;
};

struct WaitLed {
    unsigned led;
    bool lit;
    std::chrono::milliseconds within;
};

struct ExpectBacklight {
    bool lit;
};

/** Waits until the application has written a text within one line, after what an earlier such step has found. */
struct WaitOutput {
    std::string text;
    std::chrono::milliseconds within;
};

/** Waits until the application ends, with this status and no other. */
struct WaitExit {
    int status; ///< as a shell has it
    std::chrono::milliseconds within;
};

struct ExpectNoBusFaults {};

struct FailPin {
    PinFault fault;
};

/** Draws the panel into a file, compares it with one, or both. Each ends in .svg or .txt. */
struct TakeScreenshot {
    std::optional<std::filesystem::path> saveTo;
    std::optional<std::filesystem::path> compareWith;
};

} // namespace steps

using StepAction =
    std::variant<steps::Delay, steps::Press, steps::Release, steps::Tap, steps::WaitText, steps::ExpectText,
                 steps::ExpectInverted, steps::ExpectLed, steps::WaitLed, steps::ExpectBacklight, steps::WaitOutput,
                 steps::WaitExit, steps::ExpectNoBusFaults, steps::FailPin, steps::TakeScreenshot>;

/** A step of a scenario. */
struct Step {
    TextPlace place;  ///< where the file has it
    std::string name; ///< as the file calls it
    StepAction action;
};

/** What a person in front of the panel does, in turn, and what the panel is to show meanwhile. */
struct Scenario {
    std::string file; ///< for messages
    std::string name;
    std::vector<Step> steps;
};

} // namespace panelsim
