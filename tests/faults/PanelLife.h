#pragma once

#include "frontpanelhw/FrontPanelType.h"
#include "frontpanelhw/fp/ILcdFp.h"
#include "panelsim/board/Board.h"
#include "tests/faults/FaultyPins.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/VirtualTime.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/** An application's panel on a board, and what came of it so far. */
struct PanelLife {
    PanelLife(const panelsim::BoardConfig& config, const FaultPlan& plan, bool wantTrace = false);

    /** Makes the panel that the board has and listens to its keys: each lights an LED while it is pressed. */
    void construct();
    /** Lets the keys be polled that often, if they are polled. */
    void scan(unsigned times);

    VirtualTime time;
    panelsim::Board board;
    FaultyPins pins;
    CapturedOutput output{[this](std::string_view line) {
        if (line == "INFO: KeyHandler stop called") {
            time.wake();
        }
    }};
    std::unique_ptr<frontpanelhw::fp::IFp> panel;
    frontpanelhw::fp::ILcdFp* lcd = nullptr;
    std::string keyEvents; ///< "2+" and "2-"
    bool polling = false;
};

/** Something that an application does with its panel. */
struct PanelStep {
    /** Decides which result the step may have and what it may write. */
    enum class Kind { Detect, Construct, Led, AllLeds, Start, Keys, IsRunning, Display, Reset, Stop, Destroy };

    Kind kind;
    std::function<bool(PanelLife&)> run;
};

/** @return all that an application does with a panel, from its detection to its end */
std::vector<PanelStep> wholeLife(bool withLcd);

/** @return a life of an indoor panel that lets it test its lamps */
std::vector<PanelStep> lampTestLife();

/** @return an indoor or outdoor panel as the life's application has it: LEDs 1 and backlight lit by a low line */
panelsim::BoardConfig lifeBoard(bool withLcd, panelsim::ChipVariant chip);

/** @return a page of that many columns: text from that character on, with the cells inverted for which it says so */
frontpanelhw::drawing::DisplayBuffer makePage(unsigned columns, char16_t first,
                                              const std::function<bool(unsigned column, unsigned line)>& isInverted);

/** What a step did: its result as "true", "false", "throws X" or "foreign", and its log. */
struct StepRecord {
    std::string result;
    std::string log;
    std::size_t failuresBefore; ///< among the pins' failures
    std::size_t readsBefore;    ///< among the pins' reads
    std::uint64_t callsBefore;
    std::vector<bool> leds; ///< levels of their lines
};

/** Does a step, whatever it throws. */
StepRecord runStep(const PanelStep& step, PanelLife& life);
