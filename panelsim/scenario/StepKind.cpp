#include "panelsim/scenario/StepKind.h"

#include "panelsim/board/LcdChip.h"
#include "panelsim/board/Text.h"
#include "panelsim/picture/PanelText.h"
#include "panelsim/scenario/Screenshot.h"

#include <algorithm>
#include <utility>

namespace panelsim {

namespace {

using namespace std::chrono_literals;
using Objection = std::optional<std::string>;
using Form = StepKind::Form;

constexpr auto readPatience = 1s; ///< in which an application should read a key that was pressed or released
constexpr std::size_t reportedFaults = 5;

std::string withoutTrailingBlanks(const std::string& text)
{
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

/** @return a line of the display in UTF-8; blank when the display is off */
std::string shownLine(const LcdView& lcd, unsigned line)
{
    std::string text;
    for (const LcdCell& cell : lcd.lines.at(line)) {
        text += lcd.displayOn ? glyph(cell.code) : " ";
    }
    return text;
}

std::chrono::steady_clock::duration played(const Stage& stage)
{
    return std::chrono::steady_clock::now() - stage.begun;
}

Objection delay(const Step& step, Stage& stage)
{
    return played(stage) < step.time ? Objection("it is not over") : std::nullopt;
}

Objection press(const Step& step, Stage& stage)
{
    stage.simulation.board.press(step.part, Stage::hand);
    return std::nullopt;
}

Objection release(const Step& step, Stage& stage)
{
    stage.simulation.board.release(step.part, Stage::hand);
    return std::nullopt;
}

/** Holds a key for its time and until the application has read it, then leaves it until that was read, too. */
Objection tap(const Step& step, Stage& stage)
{
    const Simulation& simulation = stage.simulation;
    const bool givenUp = played(stage) >= step.time + readPatience || simulation.app.hasEnded();
    const bool isRead = givenUp || simulation.board.keyReads(step.part) != stage.keyReads;
    if (stage.phase == 2) {
        return isRead ? Objection() : "the key is released";
    }
    if (stage.phase == 0 || (played(stage) >= step.time && isRead)) {
        stage.phase++ == 0 ? press(step, stage) : release(step, stage);
        stage.keyReads = simulation.board.keyReads(step.part);
    }
    return "the key is held";
}

Objection lookAtText(const Step& step, Stage& stage)
{
    const LcdView lcd = *stage.simulation.board.view().lcd;
    std::string shown;
    for (unsigned line = step.line.value_or(0); line <= step.line.value_or(LcdChip::rows - 1); ++line) {
        shown = withoutTrailingBlanks(shownLine(lcd, line));
        if (step.whole ? shown == withoutTrailingBlanks(step.text)
                       : shownLine(lcd, line).find(step.text) != std::string::npos) {
            return std::nullopt;
        }
    }
    return !lcd.displayOn ? "the display is off"
           : step.line    ? "line " + std::to_string(*step.line) + " shows " + inQuotes(shown)
                          : "no line shows it";
}

Objection lookAtInversion(const Step& step, Stage& stage)
{
    const LcdView lcd = *stage.simulation.board.view().lcd;
    for (unsigned column = step.from; column <= step.to; ++column) {
        if ((lcd.displayOn && lcd.lines.at(*step.line).at(column).inverted) != step.is) {
            return "column " + std::to_string(column) + (step.is ? " is not" : " is") + " inverted";
        }
    }
    return std::nullopt;
}

Objection lookAtLight(const std::string& name, bool lit, const Step& step)
{
    return lit == step.is ? Objection() : name + (lit ? " is on" : " is off");
}

Objection lookAtLed(const Step& step, Stage& stage)
{
    const Board& board = stage.simulation.board;
    return lookAtLight("LED " + ledName(board.getConfig(), step.part), board.view().leds.at(step.part), step);
}

Objection lookAtBacklight(const Step& step, Stage& stage)
{
    return lookAtLight("the backlight", stage.simulation.board.view().lcd->backlight, step);
}

Objection lookAtOutput(const Step& step, Stage& stage)
{
    const std::uint64_t version = stage.simulation.log.version();
    const bool isNew = std::exchange(stage.searched, version) != version;
    return isNew && stage.simulation.log.find(step.text, stage.output) ? Objection() : "it was not written";
}

Objection lookAtExit(const Step& step, Stage& stage)
{
    const AppState app = stage.simulation.app;
    stage.endAccepted = app.hasEnded();
    const bool isRight = app.hasEnded() && app.shellStatus() == static_cast<int>(step.status);
    return isRight ? Objection() : (app.hasEnded() ? "the application has " : "the application is ") + describe(app);
}

Objection lookAtBus(const Step& /*step*/, Stage& stage)
{
    const std::uint64_t count = stage.simulation.board.busFaultCount();
    const std::vector<BusFault> faults = stage.simulation.board.busFaults();
    std::string objection = std::to_string(count) + " faults on the LCD bus:";
    for (std::size_t i = 0; i < std::min(faults.size(), reportedFaults); ++i) {
        objection += "\n  " + describe(faults[i]);
    }
    return count == 0 ? Objection() : objection + (count > reportedFaults ? "\n  ..." : "");
}

Objection failPin(const Step& step, Stage& stage)
{
    stage.simulation.board.failPin(step.fault);
    return std::nullopt;
}

Objection takeScreenshot(const Step& step, Stage& stage)
{
    const BoardConfig& board = stage.simulation.board.getConfig();
    const PanelView view = stage.simulation.board.view();
    if (!step.saveTo.empty()) {
        saveScreenshot(board, view, step.saveTo);
    }
    Objection difference = step.compareWith.empty() ? std::nullopt : compareScreenshot(board, view, step.compareWith);
    if (difference) {
        *difference += "\nTo accept the panel as it is, " + (step.saveTo.empty()
                                                                 ? "write save-to in place of compare-with for one run"
                                                                 : "copy " + printable(step.saveTo.string()) + " to " +
                                                                       printable(step.compareWith.string()));
    }
    return difference;
}

} // namespace

const std::vector<StepKind> stepKinds = {
    {"delay", Form::Action, false, {""}, 1, delay},
    {"press", Form::Action, false, {"key"}, 1, press},
    {"release", Form::Action, false, {"key"}, 1, release},
    {"tap", Form::Action, false, {"key", "for"}, 1, tap},
    {"text", Form::Observation, true, {"text", "line", "whole"}, 1, lookAtText},
    {"inverted", Form::Observation, true, {"line", "from", "to", "is"}, 1, lookAtInversion},
    {"led", Form::Observation, false, {"led", "is"}, 2, lookAtLed},
    {"backlight", Form::Observation, true, {"is"}, 1, lookAtBacklight},
    {"output", Form::Observation, false, {"text"}, 1, lookAtOutput},
    {"exit", Form::Observation, false, {"status"}, 0, lookAtExit},
    {"expect-no-bus-faults", Form::Check, false, {}, 0, lookAtBus},
    {"fail-pin", Form::Action, false, {"gpio", "calls", "with"}, 1, failPin},
    {"take-screenshot", Form::Check, false, {"save-to", "compare-with"}, 0, takeScreenshot},
};

} // namespace panelsim
