#include "panelsim/scenario/StepKind.h"

#include "panelsim/board/Duration.h"
#include "panelsim/board/LcdChip.h"
#include "panelsim/board/Utf8.h"
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

std::string number(const char* what, unsigned value)
{
    return what + (" " + std::to_string(value));
}

std::string keyText(const Step& step, const BoardConfig& board)
{
    return "key " + keyName(board, step.part);
}

std::string sayLight(const std::string& name, const Step& step)
{
    return name + (step.is ? " to be on" : " to be off");
}

Objection lookAtLight(const std::string& name, bool lit, const Step& step)
{
    return lit == step.is ? Objection() : name + (lit ? " is on" : " is off");
}

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

/** Holds a key for its time and until the application has read it, then leaves it until that was read, too. */
Objection playTap(const Step& step, Stage& stage)
{
    Simulation& simulation = stage.simulation;
    const bool givenUp = played(stage) >= step.time + readPatience || simulation.app.hasEnded();
    const bool isRead = stage.phase != 0 && simulation.board.keyReads(step.part) != stage.keyReads;
    if (stage.phase == 1 && (played(stage) < step.time || (!isRead && !givenUp))) {
        return "the key is held";
    }
    if (stage.phase == 2) {
        return isRead || givenUp ? Objection() : "the key is released";
    }
    if (stage.phase++ == 0) {
        simulation.board.press(step.part, Stage::hand);
    } else {
        simulation.board.release(step.part, Stage::hand);
    }
    stage.keyReads = simulation.board.keyReads(step.part);
    return "the key has just moved";
}

Objection lookAtText(const Step& step, Stage& stage)
{
    const LcdView lcd = *stage.simulation.board.view().lcd;
    const auto fits = [&](const std::string& shown) {
        return step.whole ? withoutTrailingBlanks(shown) == withoutTrailingBlanks(step.text)
                          : shown.find(step.text) != std::string::npos;
    };
    for (unsigned line = step.line.value_or(0); line <= step.line.value_or(LcdChip::rows - 1); ++line) {
        if (fits(shownLine(lcd, line))) {
            return std::nullopt;
        }
    }
    if (!lcd.displayOn) {
        return "the display is off";
    }
    return step.line
               ? number("line", *step.line) + " shows " + inQuotes(withoutTrailingBlanks(shownLine(lcd, *step.line)))
           : step.whole ? "none is"
                        : "none does";
}

Objection lookAtInversion(const Step& step, Stage& stage)
{
    const LcdView lcd = *stage.simulation.board.view().lcd;
    for (unsigned column = step.from; column <= step.to; ++column) {
        if ((lcd.displayOn && lcd.lines.at(*step.line).at(column).inverted) != step.is) {
            return number("column", column) + (step.is ? " is not" : " is");
        }
    }
    return std::nullopt;
}

Objection lookAtExit(const Step& step, Stage& stage)
{
    const AppState app = stage.simulation.app;
    stage.endAccepted = app.hasEnded();
    if (app.hasEnded() && app.shellStatus() == static_cast<int>(step.status)) {
        return std::nullopt;
    }
    return (app.hasEnded() ? "it has " : "it is ") + describe(app);
}

Objection lookAtBus(const Step& /*step*/, Stage& stage)
{
    const std::uint64_t count = stage.simulation.board.busFaultCount();
    if (count == 0) {
        return std::nullopt;
    }
    std::string objection = "there are " + std::to_string(count) + ":";
    const std::vector<BusFault> faults = stage.simulation.board.busFaults();
    for (std::size_t i = 0; i < std::min(faults.size(), reportedFaults); ++i) {
        objection += "\n  " + describe(faults[i]);
    }
    return objection + (count > reportedFaults ? "\n  ..." : "");
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

Objection lookAtOutput(const Step& step, Stage& stage)
{
    const std::uint64_t version = stage.simulation.log.version();
    const bool isNew = std::exchange(stage.searched, version) != version;
    return isNew && stage.simulation.log.find(step.text, stage.output) ? Objection() : "it has not";
}

std::string sayText(const Step& step, const BoardConfig& /*board*/)
{
    return (step.line ? number("line", *step.line) : "a line") + (step.whole ? " to be " : " to contain ") +
           inQuotes(step.text);
}

std::string sayInversion(const Step& step, const BoardConfig& /*board*/)
{
    return number("line", *step.line) + (step.is ? " to be" : " not to be") +
           number(" inverted from column", step.from) + number(" to", step.to);
}

std::string sayFault(const Step& step, const BoardConfig& /*board*/)
{
    return number("GPIO", *step.fault.gpio) + ", " + std::to_string(*step.fault.calls) +
           (step.fault.calls == 1 ? " call, " : " calls, ") +
           (step.fault.kind == PinFault::Kind::Throw ? "by throwing" : "by returning false");
}

std::string sayFiles(const Step& step, const BoardConfig& /*board*/)
{
    const std::string saved = step.saveTo.empty() ? "" : "saved to " + printable(step.saveTo.string());
    const std::string look = "the panel to look as in " + printable(step.compareWith.string());
    return step.compareWith.empty() ? saved : look + (saved.empty() ? "" : ", " + saved);
}

} // namespace

// clang-format off
const std::vector<StepKind> stepKinds = {
    {"delay", Form::Action, false, {""}, {},
     [](const Step& step, const BoardConfig&) { return describe(step.time); },
     [](const Step& step, Stage& stage) { return played(stage) < step.time ? Objection("it is not over") : std::nullopt; }},
    {"press", Form::Action, false, {"key"}, {}, keyText,
     [](const Step& step, Stage& stage) { stage.simulation.board.press(step.part, Stage::hand); return Objection(); }},
    {"release", Form::Action, false, {"key"}, {}, keyText,
     [](const Step& step, Stage& stage) { stage.simulation.board.release(step.part, Stage::hand); return Objection(); }},
    {"tap", Form::Action, false, {"key"}, {"for"},
     [](const Step& step, const BoardConfig& board) { return keyText(step, board) + " for " + describe(step.time); },
     playTap},
    {"text", Form::Observation, true, {"text"}, {"line", "whole"}, sayText, lookAtText},
    {"inverted", Form::Observation, true, {"line"}, {"from", "to", "is"}, sayInversion, lookAtInversion},
    {"led", Form::Observation, false, {"led", "is"}, {},
     [](const Step& step, const BoardConfig& board) { return sayLight("LED " + ledName(board, step.part), step); },
     [](const Step& step, Stage& stage) {
         const Board& board = stage.simulation.board;
         return lookAtLight("LED " + ledName(board.getConfig(), step.part), board.view().leds.at(step.part), step); }},
    {"backlight", Form::Observation, true, {"is"}, {},
     [](const Step& step, const BoardConfig&) { return sayLight("the backlight", step); },
     [](const Step& step, Stage& stage) { return lookAtLight("it", stage.simulation.board.view().lcd->backlight, step); }},
    {"output", Form::Observation, false, {"text"}, {},
     [](const Step& step, const BoardConfig&) { return "the application to write " + inQuotes(step.text); },
     lookAtOutput},
    {"exit", Form::Observation, false, {}, {"status"},
     [](const Step& step, const BoardConfig&) { return number("the application to end with status", step.status); },
     lookAtExit},
    {"expect-no-bus-faults", Form::Check, false, {}, {},
     [](const Step&, const BoardConfig&) { return std::string("no faults on the LCD bus"); }, lookAtBus},
    {"fail-pin", Form::Action, false, {"gpio"}, {"calls", "with"}, sayFault,
     [](const Step& step, Stage& stage) { stage.simulation.board.failPin(step.fault); return Objection(); }},
    {"take-screenshot", Form::Check, false, {}, {"save-to", "compare-with"}, sayFiles, takeScreenshot},
};
// clang-format on

} // namespace panelsim
