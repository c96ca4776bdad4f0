#include "panelsim/scenario/StepKind.h"

#include "panelsim/board/Duration.h"
#include "panelsim/board/LcdChip.h"
#include "panelsim/board/Utf8.h"
#include "panelsim/picture/PanelText.h"
#include "panelsim/scenario/Screenshot.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <system_error>
#include <utility>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/node/impl.h>
#include <yaml-cpp/node/iterator.h>

namespace panelsim {

namespace {

using namespace std::chrono_literals;
using Objection = std::optional<std::string>;
using Form = StepKind::Form;

constexpr auto usualWait = 5s;
constexpr auto usualTap = 100ms;
constexpr auto readPatience = 1s; ///< in which an application should read a key that was pressed or released
constexpr unsigned highestStatus = 255;
constexpr unsigned mostFailingCalls = 1'000'000;
constexpr std::size_t reportedFaults = 5;

std::string number(const char* what, unsigned value)
{
    return what + (" " + std::to_string(value));
}

std::string keyText(const Step& step, const BoardConfig& board)
{
    return "key " + keyName(board, step.part);
}

std::string ledText(const Step& step, const BoardConfig& board)
{
    return "LED " + ledName(board, step.part);
}

Objection lightObjection(const std::string& name, bool lit, bool expected)
{
    return lit == expected ? Objection() : name + (lit ? " is on" : " is off");
}

std::string toBe(bool is)
{
    return is ? " to be on" : " to be off";
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

/** Refuses what can never be on the display: its codes are Latin-1. */
std::string shownText(const FieldValue& value)
{
    std::string text = value.text();
    const auto isFirstByte = [](unsigned char byte) { return (byte & 0xC0U) != 0x80U; };
    const auto isBeyondLatin1 = [](unsigned char byte) { return byte > 0xC3; };
    if (std::any_of(text.begin(), text.end(), isBeyondLatin1)) {
        throw YAML::Exception(value.place, "text: the display has no characters but those of Latin-1");
    }
    if (static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isFirstByte)) > LcdChip::columns) {
        throw YAML::Exception(value.place, number("text: a line has", LcdChip::columns) + " characters at most");
    }
    return text;
}

unsigned gpioOf(const FieldValue& value, const Board& board)
{
    const unsigned gpio = value.number(0, std::numeric_limits<unsigned>::max());
    try {
        board.lineLevel(gpio);
    } catch (const std::system_error&) {
        throw YAML::Exception(value.place, number("gpio: this board has no GPIO", gpio));
    }
    return gpio;
}

std::filesystem::path pictureOf(const FieldValue& value, const std::filesystem::path& folder)
{
    const std::filesystem::path file = value.filledText();
    if (file.extension() != ".svg" && file.extension() != ".txt") {
        value.refuse("the name of a file that ends in .svg or .txt");
    }
    std::error_code ignored;
    const std::filesystem::path itsFolder = (folder / file).parent_path();
    if (!itsFolder.empty() && !std::filesystem::is_directory(itsFolder, ignored)) {
        throw YAML::Exception(value.place, value.name + ": there is no folder " + printable(itsFolder.string()));
    }
    return folder / file;
}

std::filesystem::path goldenOf(const FieldValue& value, const std::filesystem::path& folder)
try {
    std::filesystem::path file = pictureOf(value, folder);
    readPictureFile(file);
    return file;
} catch (const std::system_error& e) {
    throw YAML::Exception(value.place, "compare-with: " + printable(e.what()));
}

/** Reads a field, which means the same in each step that has it. */
void readField(const FieldValue& value, const Board& board, const std::filesystem::path& folder, Step& step)
{
    const BoardConfig& config = board.getConfig();
    const std::string& name = value.name;
    if (name == "key") {
        step.part = value.part(config.keyCount, config.keyNames);
    } else if (name == "led") {
        step.part = value.part(config.ledCount, config.ledNames);
    } else if (name == "line") {
        step.line = value.part(LcdChip::rows);
    } else if (name == "from") {
        step.from = value.part(LcdChip::columns);
    } else if (name == "to") {
        step.to = value.part(LcdChip::columns);
    } else if (name == "text") {
        step.text = step.kind->needsDisplay ? shownText(value) : value.filledText();
    } else if (name == "whole") {
        step.whole = value.choice({{"true", true}, {"false", false}});
    } else if (name == "is") {
        step.is = value.choice({{"on", true}, {"off", false}, {"true", true}, {"false", false}});
    } else if (name == "status") {
        step.status = value.number(0, highestStatus);
    } else if (name == "gpio") {
        step.fault.gpio = gpioOf(value, board);
    } else if (name == "calls") {
        step.fault.calls = value.number(1, mostFailingCalls);
    } else if (name == "with") {
        const bool throws = value.choice({{"throw", true}, {"false", false}});
        step.fault.kind = throws ? PinFault::Kind::Throw : PinFault::Kind::False;
    } else if (name == "save-to") {
        step.saveTo = pictureOf(value, folder);
    } else if (name == "compare-with") {
        step.compareWith = goldenOf(value, folder);
    } else { // for, within and the value of delay
        step.time = value.duration();
    }
}

/** Refuses fields that do not go together. */
void checkFields(const FieldValue::Fields& fields, const Step& step, const YAML::Mark& place)
{
    if (step.text.empty() && !step.whole && fields.count("text") != 0) {
        fields.at("text").refuse("a text that is not empty");
    }
    if (step.from > step.to) {
        const YAML::Mark& from = fields.at(fields.count("from") != 0 ? "from" : "to").place;
        throw YAML::Exception(from, number("from:", step.from) + number(" is greater than to,", step.to));
    }
    if (step.name == "take-screenshot" && fields.empty()) {
        throw YAML::Exception(place, "take-screenshot: save-to or compare-with is missing");
    }
    if (step.saveTo && step.compareWith && step.saveTo->lexically_normal() == step.compareWith->lexically_normal()) {
        throw YAML::Exception(fields.at("compare-with").place, "compare-with: this is the file that save-to writes");
    }
}

std::chrono::steady_clock::duration played(const Stage& stage)
{
    return std::chrono::steady_clock::now() - stage.begun;
}

/** Holds a key for its time and until the application has read it, then leaves it until that was read, too. */
Objection playTap(const Step& step, Stage& stage)
{
    Simulation& simulation = stage.simulation;
    const bool givenUp = played(stage) >= step.time + readPatience || simulation.app.get().hasEnded();
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
    return playTap(step, stage);
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
    const AppState app = stage.simulation.app.get();
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
    if (step.saveTo) {
        saveScreenshot(board, view, *step.saveTo);
    }
    Objection difference = step.compareWith ? compareScreenshot(board, view, *step.compareWith) : std::nullopt;
    if (difference) {
        *difference +=
            "\nTo accept the panel as it is, " +
            (step.saveTo ? "copy " + printable(step.saveTo->string()) + " to " + printable(step.compareWith->string())
                         : "write save-to in place of compare-with for one run");
    }
    return difference;
}

Objection pressKey(const Step& step, Stage& stage)
{
    stage.simulation.board.press(step.part, Stage::hand);
    return std::nullopt;
}

Objection releaseKey(const Step& step, Stage& stage)
{
    stage.simulation.board.release(step.part, Stage::hand);
    return std::nullopt;
}

Objection failPin(const Step& step, Stage& stage)
{
    stage.simulation.board.failPin(step.fault);
    return std::nullopt;
}

Objection passTime(const Step& step, Stage& stage)
{
    return played(stage) < step.time ? Objection("the time is not over") : std::nullopt;
}

Objection lookAtLed(const Step& step, Stage& stage)
{
    const bool lit = stage.simulation.board.view().leds.at(step.part);
    return lightObjection(ledText(step, stage.simulation.board.getConfig()), lit, step.is);
}

Objection lookAtBacklight(const Step& step, Stage& stage)
{
    return lightObjection("it", stage.simulation.board.view().lcd->backlight, step.is);
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
    return (step.compareWith ? "the panel to look as in " + printable(step.compareWith->string()) : std::string()) +
           (step.saveTo && step.compareWith ? ", " : "") +
           (step.saveTo ? "saved to " + printable(step.saveTo->string()) : std::string());
}

// clang-format off
const std::vector<StepKind> stepKinds = {
    {"delay", Form::Action, false, {""}, {},
     [](const Step& step, const BoardConfig&) { return describe(step.time); }, passTime},
    {"press", Form::Action, false, {"key"}, {}, keyText, pressKey},
    {"release", Form::Action, false, {"key"}, {}, keyText, releaseKey},
    {"tap", Form::Action, false, {"key"}, {"for"},
     [](const Step& step, const BoardConfig& board) { return keyText(step, board) + " for " + describe(step.time); },
     playTap},
    {"text", Form::Observation, true, {"text"}, {"line", "whole"}, sayText, lookAtText},
    {"inverted", Form::Observation, true, {"line"}, {"from", "to", "is"}, sayInversion, lookAtInversion},
    {"led", Form::Observation, false, {"led", "is"}, {},
     [](const Step& step, const BoardConfig& board) { return ledText(step, board) + toBe(step.is); }, lookAtLed},
    {"backlight", Form::Observation, true, {"is"}, {},
     [](const Step& step, const BoardConfig&) { return "the backlight" + toBe(step.is); }, lookAtBacklight},
    {"output", Form::Observation, false, {"text"}, {},
     [](const Step& step, const BoardConfig&) { return "the application to write " + inQuotes(step.text); },
     lookAtOutput},
    {"exit", Form::Observation, false, {}, {"status"},
     [](const Step& step, const BoardConfig&) { return number("the application to end with status", step.status); },
     lookAtExit},
    {"expect-no-bus-faults", Form::Check, false, {}, {},
     [](const Step&, const BoardConfig&) { return std::string("no faults on the LCD bus"); }, lookAtBus},
    {"fail-pin", Form::Action, false, {"gpio"}, {"calls", "with"}, sayFault, failPin},
    {"take-screenshot", Form::Check, false, {}, {"save-to", "compare-with"}, sayFiles, takeScreenshot},
};
// clang-format on

/** @return the step of that name, with what its fields are when they are not given */
Step stepOf(const std::string& name, const YAML::Mark& place)
{
    std::string names;
    for (const StepKind& kind : stepKinds) {
        const bool observes = kind.form == Form::Observation;
        for (const bool waits : observes ? std::vector<bool>{false, true} : std::vector<bool>{false}) {
            const std::string full = (observes ? waits ? "wait-" : "expect-" : "") + std::string(kind.name);
            if (full == name) {
                Step step;
                step.kind = &kind;
                step.name = name;
                step.waits = waits;
                step.time = waits ? usualWait : usualTap;
                step.whole = !waits;
                step.to = LcdChip::columns - 1;
                return step;
            }
            names += (names.empty() ? "" : ", ") + full;
        }
    }
    throw YAML::Exception(place, "there is no step " + excerpt(name) + "; the steps are " + names);
}

Step readNamed(const FieldValue& value, const Board& board, const std::filesystem::path& folder)
{
    Step step = stepOf(value.name, value.place);
    const StepKind& kind = *step.kind;
    if (kind.needsDisplay && !board.getConfig().hasLcd) {
        throw YAML::Exception(value.place, value.name + ": this panel has no display");
    }
    FieldValue content = value;
    content.place = value.node.IsMap() || value.node.IsNull() ? value.place : value.node.Mark();
    if (!kind.required.empty() && kind.required.front().empty()) {
        readField(content, board, folder, step);
        return step;
    }
    std::vector<std::string_view> known = kind.required;
    known.insert(known.end(), kind.optional.begin(), kind.optional.end());
    if (step.waits) {
        known.push_back("within");
    }
    const auto fields = content.fields(known);
    for (const std::string_view name : kind.required) {
        if (fields.count(name) == 0) {
            throw YAML::Exception(value.place, value.name + ": the field " + inQuotes(name) + " is missing");
        }
    }
    for (const std::string_view name : known) {
        if (const auto field = fields.find(name); field != fields.end()) {
            readField(field->second, board, folder, step);
        }
    }
    checkFields(fields, step, value.place);
    return step;
}

} // namespace

Step readStep(const YAML::Node& node, const Board& board, const std::filesystem::path& folder, YAML::Mark& place)
{
    place = node.Mark();
    if (node.IsScalar()) {
        return readNamed({node.Scalar(), YAML::Node(), place}, board, folder);
    }
    if (!node.IsMap() || node.size() == 0) {
        FieldValue{"steps", node, place}.refuse("a step such as press: {key: 0}");
    }
    const YAML::Node name = node.begin()->first;
    if (node.size() > 1) {
        const YAML::Node second = (++node.begin())->first;
        throw YAML::Exception(second.Mark(), excerpt(second.IsScalar() ? second.Scalar() : "") +
                                                 " follows in the same step: a step begins with a dash of its own, "
                                                 "and its fields are indented further");
    }
    place = name.Mark();
    return readNamed({name.IsScalar() ? name.Scalar() : "", node.begin()->second, place}, board, folder);
}

} // namespace panelsim
