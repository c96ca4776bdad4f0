// Lines and pages of text: each operation is done on them and on a model of plain values, which have to agree after it.
#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/Choices.h"
#include "tests/support/CapturedOutput.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using frontpanelhw::drawing::DisplayBuffer;
using frontpanelhw::drawing::DisplayChar;
using frontpanelhw::drawing::DisplayLine;

constexpr unsigned longestText = 40;
constexpr unsigned mostLines = 5;

/** @return the low bytes */
std::string bytesOf(const std::u16string& text)
{
    return {text.begin(), text.end()};
}

/** A line's values with its operations. */
struct LineModel {
    std::u16string text;
    std::string flags; ///< 'i' for a cell that is inverted, 'n' for another

    explicit LineModel(std::u16string itsText = {}) : text(std::move(itsText)), flags(text.size(), 'n') {}
    explicit LineModel(unsigned count) : LineModel(std::u16string(count, u' ')) {}
    bool operator==(const LineModel& other) const { return text == other.text && flags == other.flags; }
    const std::u16string& getString() const { return text; }
    bool getInverted(unsigned index) const { return index < text.size() && flags[index] == 'i'; }
    DisplayChar getCharacter(unsigned index) const
    {
        return {index < text.size() ? text[index] : u' ', getInverted(index)};
    }
    bool setCharacter(unsigned index, const DisplayChar& cell)
    {
        if (index < text.size()) {
            text[index] = cell.character;
        }
        return setInverted(index, index, cell.inverted);
    }
    void addCharacter(const DisplayChar& cell)
    {
        text += cell.character;
        flags += cell.inverted ? 'i' : 'n';
    }
    bool setInverted(unsigned from, unsigned to, bool value)
    {
        if (from > to || to >= text.size()) {
            return false;
        }
        std::fill(flags.begin() + from, flags.begin() + to + 1, value ? 'i' : 'n');
        return true;
    }
    void setLine(const std::u16string& other) { *this = LineModel(other); }

    /** Columns are counted modulo 2^32: past the end, zeros may lead to column 0. */
    bool setLine(unsigned offset, const std::u16string& other)
    {
        if (other.size() > static_cast<unsigned>(text.size()) - offset) {
            std::cerr << "ERROR: text '" << bytesOf(other) << "' is too long to write in line!\n";
            return false;
        }
        for (const char16_t unit : other) {
            if (unit != 0) {
                text.at(offset) = unit;
            }
            ++offset;
        }
        return true;
    }
};

/** A page's values with its operations. */
struct PageModel {
    unsigned width;
    std::vector<LineModel> lines;

    PageModel(unsigned itsWidth, unsigned count) : width(itsWidth), lines(count, LineModel(width)) {}
    bool operator==(const PageModel& other) const { return width == other.width && lines == other.lines; }
    unsigned getLineCount() const { return static_cast<unsigned>(lines.size()); }
    LineModel getLine(unsigned index) const { return index < lines.size() ? lines[index] : LineModel(); }
    std::u16string getLineString(unsigned index) const { return getLine(index).text; }
    bool setDisplayLine(unsigned index, const LineModel& line)
    {
        if (index < lines.size()) {
            lines[index] = line;
        }
        return index < lines.size();
    }
    bool setLineContent(unsigned index, unsigned offset, const std::u16string& text)
    {
        return index < lines.size() && lines[index].setLine(offset, text);
    }
    bool setLineContent(unsigned index, const std::u16string& text) { return setLineContent(index, 0, text); }
    bool setInverted(unsigned index, bool value, unsigned from, unsigned to)
    {
        return index < lines.size() && lines[index].setInverted(from, to, value);
    }
    void clear(unsigned index) { setDisplayLine(index, LineModel(width)); }
    void clear() { *this = PageModel(width, getLineCount()); }
};

template <typename Printed>
std::string logOf(const Printed& printed)
{
    std::ostringstream stream;
    stream << std::hex << std::setw(30) << std::setfill('*') << printed;
    return stream.str();
}

std::string logOf(const LineModel& line)
{
    return "'" + bytesOf(line.text) + "' - " + line.flags + " - cnt: " + std::to_string(line.text.size());
}

std::string logOf(const PageModel& page)
{
    std::string log = "\nchars: " + std::to_string(page.width) + " - lines: " + std::to_string(page.lines.size());
    for (const LineModel& line : page.lines) {
        log += "\n" + logOf(line);
    }
    return log;
}

/** What an operation takes from an input: numbers in their order and at most one text. */
struct Arguments {
    std::vector<unsigned> n = {};
    std::u16string text = {};

    bool flag() const { return n.back() == 1; }
    DisplayChar cell() const { return {text.empty() ? u'\u2592' : text.front(), flag()}; }
};

/** @param kinds 'i' an index, '2' one of two, 'w' a width, 'l' a number of lines, 'c' a character, 't' a text */
Arguments choose(Choices& choices, std::string_view kinds)
{
    static const std::map<char, unsigned> limits = {{'2', 2}, {'w', longestText}, {'l', mostLines}};
    Arguments chosen;
    for (const char kind : kinds) {
        if (kind == 'c' || kind == 't') {
            chosen.text = choices.text(kind == 'c' ? 1 : longestText);
        } else {
            chosen.n.push_back(kind == 'i' ? choices.index() : choices.below(limits.at(kind)));
        }
    }
    return chosen;
}

/** Two lines and two pages, real ones or those of the model. */
template <typename Line, typename Page>
struct Desk {
    using Taken = const Arguments&;
    struct Operation {
        char letter;
        const char* takes;
        void (*perform)(Desk&, Taken);
    };
    static inline const std::vector<Operation> operations = {
        {'n', "w", [](Desk& on, Taken of) { on.line() = Line(of.n[0]); }},
        {'t', "t", [](Desk& on, Taken of) { on.line() = Line(of.text); }},
        {'s', "t", [](Desk& on, Taken of) { on.line().setLine(of.text); }},
        {'c', "ic2", [](Desk& on, Taken of) { on.result = on.line().setCharacter(of.n[0], of.cell()); }},
        {'g', "i", [](Desk& on, Taken of) { on.got = on.line().getCharacter(of.n[0]); }},
        {'a', "c2", [](Desk& on, Taken of) { on.line().addCharacter(of.cell()); }},
        {'i', "ii2", [](Desk& on, Taken of) { on.result = on.line().setInverted(of.n[0], of.n[1], of.flag()); }},
        {'o', "it", [](Desk& on, Taken of) { on.result = on.line().setLine(of.n[0], of.text); }},
        {'k', "2", [](Desk& on, Taken of) { on.line() = std::as_const(on.lines.at(of.n[0])); }},
        {'B', "wl", [](Desk& on, Taken of) { on.page() = Page(of.n[0], of.n[1]); }},
        {'D', "i2", [](Desk& on, Taken of) { on.result = on.page().setDisplayLine(of.n[0], on.lines.at(of.n[1])); }},
        {'G', "i", [](Desk& on, Taken of) { on.line() = on.page().getLine(of.n[0]); }},
        {'O', "iit", [](Desk& on, Taken of) { on.result = on.page().setLineContent(of.n[0], of.n[1], of.text); }},
        {'P', "it", [](Desk& on, Taken of) { on.result = on.page().setLineContent(of.n[0], of.text); }},
        {'I', "iii2",
         [](Desk& on, Taken of) { on.result = on.page().setInverted(of.n[0], of.flag(), of.n[1], of.n[2]); }},
        {'C', "i", [](Desk& on, Taken of) { on.page().clear(of.n[0]); }},
        {'X', "", [](Desk& on, Taken) { on.page().clear(); }},
        {'K', "", [](Desk& on, Taken) { on.pages.at(1 - on.slot) = on.page(); }},
        {'M', "", [](Desk& on, Taken) { on.pages.at(1 - on.slot) = std::exchange(on.page(), Page(1, 1)); }},
    };

    Line& line() { return lines.at(slot); }
    Page& page() { return pages.at(slot); }

    /** Does the next operation. @return what came of it: its result, what it wrote and all that is there afterwards */
    auto play(Choices& choices, CapturedOutput& output)
    {
        const char letter = static_cast<char>(choices.byte());
        slot = choices.below(2);
        for (const Operation& operation : operations) {
            try {
                if (operation.letter == letter) {
                    operation.perform(*this, choose(choices, operation.takes));
                }
            } catch (const std::out_of_range&) {
                std::cerr << "out of range\n";
            }
        }
        std::string log = output.take();
        std::u16string texts;
        for (unsigned i = 0; i < 2; ++i) {
            log += logOf(lines.at(i)) + logOf(pages.at(i));
            texts += lines.at(i).getString();
            for (unsigned row = 0; row <= pages.at(i).getLineCount(); ++row) {
                texts += pages.at(i).getLineString(row);
            }
        }
        return std::tuple(result, got.character, got.inverted, lines[0] == lines[1], pages[0] == pages[1], log, texts);
    }

    std::array<Line, 2> lines;
    std::array<Page, 2> pages{Page(25, 3), Page(25, 3)};
    unsigned slot = 0;          ///< of the line and the page that are operated on
    std::optional<bool> result; ///< of an operation that has one
    DisplayChar got;            ///< by an operation that gets a character
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Choices choices(bytes, size);
    CapturedOutput output;
    Desk<DisplayLine, DisplayBuffer> desk;
    Desk<LineModel, PageModel> model;
    while (choices.left()) {
        Choices again = choices;
        check(desk.play(choices, output) == model.play(again, output), "lines and pages are as in the model");
    }
    return 0;
}
