// Lines and pages of text, compared with a model of vectors after every operation.
#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/Choices.h"
#include "tests/support/CapturedOutput.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using frontpanelhw::drawing::DisplayBuffer;
using frontpanelhw::drawing::DisplayChar;
using frontpanelhw::drawing::DisplayLine;

constexpr unsigned longestText = 40;
constexpr unsigned mostLines = 5;

struct Cell {
    char16_t unit = u' ';
    bool inverted = false;

    bool operator==(const Cell& other) const { return unit == other.unit && inverted == other.inverted; }
};

using LineModel = std::vector<Cell>;

struct PageModel {
    unsigned width = 0;
    std::vector<LineModel> lines = {};

    bool operator==(const PageModel& other) const { return width == other.width && lines == other.lines; }
};

/** What an operation did: its result or an exception, and whether a reason was written. */
enum class Outcome { False, FalseWithReason, True, OutOfRange };

Outcome outcome(bool result)
{
    return result ? Outcome::True : Outcome::False;
}

LineModel lineOf(const std::u16string& text)
{
    LineModel line;
    for (const char16_t unit : text) {
        line.push_back({unit, false});
    }
    return line;
}

std::u16string textOf(const LineModel& line)
{
    std::u16string text;
    for (const Cell& cell : line) {
        text += cell.unit;
    }
    return text;
}

/** Columns are counted modulo 2^32: past the end, zeros may lead to column 0. */
Outcome overwrite(LineModel& line, unsigned offset, const std::u16string& text)
{
    if (text.size() > static_cast<unsigned>(line.size()) - offset) {
        return Outcome::FalseWithReason;
    }
    const auto first = text.find_first_not_of(u'\0');
    if (first != std::u16string::npos && offset + static_cast<unsigned>(first) >= line.size()) {
        return Outcome::OutOfRange;
    }
    unsigned column = offset;
    for (const char16_t unit : text) {
        if (unit != 0) {
            line.at(column).unit = unit;
        }
        ++column;
    }
    return Outcome::True;
}

bool invert(LineModel& line, unsigned from, unsigned to, bool inverted)
{
    if (from > to || to >= line.size()) {
        return false;
    }
    std::for_each(line.begin() + from, line.begin() + to + 1, [inverted](Cell& cell) { cell.inverted = inverted; });
    return true;
}

std::string logOf(const LineModel& line)
{
    std::string text;
    std::string flags;
    for (const Cell& cell : line) {
        text += static_cast<char>(cell.unit & 0xFF);
        flags += cell.inverted ? 'i' : 'n';
    }
    return "'" + text + "' - " + flags + " - cnt: " + std::to_string(line.size());
}

std::string logOf(const PageModel& page)
{
    std::string text = "\nchars: " + std::to_string(page.width) + " - lines: " + std::to_string(page.lines.size());
    for (const LineModel& line : page.lines) {
        text += "\n" + logOf(line);
    }
    return text;
}

template <typename Printed>
std::string logBy(const Printed& printed)
{
    std::ostringstream stream;
    stream << std::hex << std::setw(30) << std::setfill('*') << printed;
    return stream.str();
}

void compare(const DisplayLine& line, const LineModel& model)
{
    check(line.getCharCount() == model.size(), "the length of a line");
    check(line.getString() == textOf(model), "the text of a line");
    for (unsigned i = 0; i < model.size(); ++i) {
        check(line.getInverted(i) == model[i].inverted, "the inversion of a cell");
    }
}

void compare(const DisplayBuffer& page, const PageModel& model)
{
    check(page.getCharCount() == model.width && page.getLineCount() == model.lines.size(), "the size of a page");
    for (unsigned i = 0; i < model.lines.size(); ++i) {
        compare(page.getLine(i), model.lines[i]);
        check(page.getLineString(i) == textOf(model.lines[i]), "the text of a page's line");
    }
}

/** Some lines and pages, and an operation on them and on their models. */
class Desk {
public:
    explicit Desk(Choices& itsChoices) : choices(itsChoices) {}

    void finish() const
    {
        for (unsigned i = 0; i < 2; ++i) {
            compareChanged(i);
            check(logBy(lines.at(i)) == logOf(lineModels.at(i)), "a line in a log");
            check(logBy(pages.at(i)) == logOf(pageModels.at(i)), "a page in a log");
        }
    }

    void play()
    {
        const char operation = static_cast<char>(choices.byte());
        const unsigned slot = choices.below(2);
        check(output.take().empty(), "nothing is written without a reason");
        playOnLine(operation, slot);
        playOnPage(operation, slot);
        compareChanged(slot);
    }

private:
    template <typename Operation>
    void expect(Outcome expected, Operation operation)
    {
        Outcome got = Outcome::OutOfRange;
        try {
            got = outcome(operation());
        } catch (const std::out_of_range&) {
        }
        const std::string reason = output.take();
        check(reason.empty() || reason.rfind("! ERROR: ", 0) == 0, "a reason is an error line");
        got = got == Outcome::False && !reason.empty() ? Outcome::FalseWithReason : got;
        check(got == expected, "the result of an operation");
    }

    void playOnLine(char operation, unsigned slot)
    {
        DisplayLine& line = lines.at(slot);
        LineModel& model = lineModels.at(slot);
        switch (operation) {
        case 'n': {
            const unsigned count = choices.below(longestText);
            line = DisplayLine(count);
            model.assign(count, Cell());
            break;
        }
        case 't': {
            const std::u16string text = choices.text(longestText);
            line = text;
            model = lineOf(text);
            break;
        }
        case 's': {
            const std::u16string text = choices.text(longestText);
            line.setLine(text);
            model = lineOf(text);
            break;
        }
        case 'c': {
            const unsigned index = choices.index();
            const Cell cell = chooseCell();
            if (index < model.size()) {
                model[index] = cell;
            }
            expect(outcome(index < model.size()), [&] {
                return line.setCharacter(index, DisplayChar{cell.unit, cell.inverted});
            });
            break;
        }
        case 'g': {
            const unsigned index = choices.index();
            const DisplayChar got = line.getCharacter(index);
            const Cell expected = index < model.size() ? model[index] : Cell();
            check(Cell{got.character, got.inverted} == expected, "a cell, also past the end");
            check(line.getInverted(index) == expected.inverted, "an inversion, also past the end");
            break;
        }
        case 'a': {
            const Cell cell = chooseCell();
            line.addCharacter(DisplayChar{cell.unit, cell.inverted});
            model.push_back(cell);
            break;
        }
        case 'i': {
            const unsigned from = choices.index();
            const unsigned to = choices.index();
            const bool inverted = choices.flag();
            expect(outcome(invert(model, from, to, inverted)), [&] { return line.setInverted(from, to, inverted); });
            break;
        }
        case 'o': {
            const unsigned offset = choices.index();
            const std::u16string text = choices.text(longestText);
            expect(overwrite(model, offset, text), [&] { return line.setLine(offset, text); });
            break;
        }
        case 'k': {
            const unsigned from = choices.below(2); // the line itself, perhaps
            line = std::as_const(lines.at(from));
            model = LineModel(lineModels.at(from));
            break;
        }
        default:
            break;
        }
    }

    void playOnPage(char operation, unsigned slot)
    {
        DisplayBuffer& page = pages.at(slot);
        PageModel& model = pageModels.at(slot);
        switch (operation) {
        case 'B': {
            const unsigned width = choices.below(longestText);
            const unsigned count = choices.below(mostLines);
            page = DisplayBuffer(width, count);
            model = {width, std::vector<LineModel>(count, LineModel(width))};
            break;
        }
        case 'D': {
            const unsigned index = choices.index();
            const unsigned from = choices.below(2);
            if (index < model.lines.size()) {
                model.lines[index] = lineModels.at(from);
            }
            expect(outcome(index < model.lines.size()), [&] { return page.setDisplayLine(index, lines.at(from)); });
            break;
        }
        case 'G': {
            const unsigned index = choices.index();
            lines.at(slot) = page.getLine(index);
            lineModels.at(slot) = index < model.lines.size() ? model.lines[index] : LineModel();
            check(index < model.lines.size() || page.getLineString(index).empty(), "no text past the last line");
            break;
        }
        case 'O': {
            const unsigned index = choices.index();
            const unsigned offset = choices.index();
            const std::u16string text = choices.text(longestText);
            const bool isThere = index < model.lines.size();
            expect(isThere ? overwrite(model.lines[index], offset, text) : Outcome::False,
                   [&] { return page.setLineContent(index, offset, text); });
            break;
        }
        case 'P': {
            const unsigned index = choices.index();
            const std::u16string text = choices.text(longestText);
            const bool isThere = index < model.lines.size();
            expect(isThere ? overwrite(model.lines[index], 0, text) : Outcome::False,
                   [&] { return page.setLineContent(index, text); });
            break;
        }
        case 'I': {
            const unsigned index = choices.index();
            const unsigned from = choices.index();
            const unsigned to = choices.index();
            const bool inverted = choices.flag();
            const bool done = index < model.lines.size() && invert(model.lines[index], from, to, inverted);
            expect(outcome(done), [&] { return page.setInverted(index, inverted, from, to); });
            break;
        }
        case 'C': {
            const unsigned index = choices.index();
            page.clear(index);
            if (index < model.lines.size()) {
                model.lines[index].assign(model.width, Cell());
            }
            break;
        }
        case 'X':
            page.clear();
            std::fill(model.lines.begin(), model.lines.end(), LineModel(model.width));
            break;
        case 'K':
            pages.at(1 - slot) = page;
            pageModels.at(1 - slot) = model;
            break;
        case 'M':
            pages.at(1 - slot) = std::move(page);
            pageModels.at(1 - slot) = model;
            page = DisplayBuffer(1, 1);
            model = {1, {LineModel(1)}};
            break;
        default:
            break;
        }
    }

    Cell chooseCell()
    {
        const std::u16string one = choices.text(1);
        return {one.empty() ? u'\u2592' : one.front(), choices.flag()};
    }

    void compareChanged(unsigned slot) const
    {
        compare(lines.at(slot), lineModels.at(slot));
        compare(pages.at(slot), pageModels.at(slot));
        check((lines[0] == lines[1]) == (lineModels[0] == lineModels[1]), "the equality of lines");
        check((pages[0] == pages[1]) == (pageModels[0] == pageModels[1]), "the equality of pages");
    }

    Choices& choices;
    CapturedOutput output;
    std::array<DisplayLine, 2> lines;
    std::array<LineModel, 2> lineModels;
    std::array<DisplayBuffer, 2> pages{DisplayBuffer(25, 3), DisplayBuffer(25, 3)};
    std::array<PageModel, 2> pageModels{PageModel{25, std::vector<LineModel>(3, LineModel(25))},
                                        PageModel{25, std::vector<LineModel>(3, LineModel(25))}};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Choices choices(bytes, size);
    Desk desk(choices);
    while (choices.left()) {
        desk.play();
    }
    desk.finish();
    return 0;
}
