#include "panelsim/scenario/StepKind.h"

#include "panelsim/board/FileDescriptor.h"
#include "panelsim/board/LcdChip.h"
#include "panelsim/board/Text.h"
#include "panelsim/picture/PanelSvg.h"
#include "panelsim/picture/PanelText.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>
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
    std::string objection = std::to_string(count) + (count == 1 ? " fault" : " faults") + " on the LCD bus:";
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

/** @return the first line in which the texts differ, of both of them */
std::string firstDifference(const std::string& expected, const std::string& actual)
{
    const auto end = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end()).first;
    const std::string same(expected.begin(), end);
    const std::size_t start = same.rfind('\n') + 1; // 0 in the first line
    const auto lineOf = [start](const std::string& text) {
        const std::string line = text.substr(start, text.find('\n', start) - start);
        return start == text.size() ? "(at its end)" : printable(line);
    };
    return "line " + std::to_string(std::count(same.begin(), same.end(), '\n') + 1) + " differs" +
           (lineOf(expected) == lineOf(actual) ? " in the newline at the end"
                                               : ":\n  file:  " + lineOf(expected) + "\n  panel: " + lineOf(actual));
}

/** Writes a file that is replaced as a whole or, when that fails, stays as it was. @throws std::system_error */
void save(const std::string& picture, const std::filesystem::path& file)
{
    const std::string fresh = file.string() + ".new" + std::to_string(getpid());
    const std::string failure = "cannot write " + file.string();
    const FileDescriptor opened(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666), failure.c_str());
    const ssize_t written = write(opened.get(), picture.data(), picture.size());
    const bool isWhole = written == static_cast<ssize_t>(picture.size());
    if (!isWhole || std::rename(fresh.c_str(), file.c_str()) != 0) {
        const int error = written >= 0 && !isWhole ? ENOSPC : errno;
        std::remove(fresh.c_str());
        throw std::system_error(error, std::generic_category(), failure);
    }
}

Objection takeScreenshot(const Step& step, Stage& stage)
{
    const BoardConfig& board = stage.simulation.board.getConfig();
    const PanelView view = stage.simulation.board.view();
    const auto drawnFor = [&](const std::filesystem::path& file) {
        return file.extension() == ".txt" ? drawPanel(board, view, TextStyle::Plain)
                                          : drawPanelSvg(board, view, SvgExtent::Panel);
    };
    if (!step.saveTo.empty()) {
        save(drawnFor(step.saveTo), step.saveTo);
    }
    const std::string actual = drawnFor(step.compareWith);
    if (step.compareWith.empty() || actual == step.expected) {
        return std::nullopt;
    }
    const bool isText = step.compareWith.extension() == ".txt";
    return (isText ? firstDifference(step.expected, actual) : "the picture differs") +
           "\nTo accept the panel as it is, " +
           (step.saveTo.empty()
                ? "write save-to in place of compare-with for one run"
                : "copy " + printable(step.saveTo.string()) + " to " + printable(step.compareWith.string()));
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
