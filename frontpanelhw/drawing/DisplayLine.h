#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/drawing/DisplayChar.h"

#include <ostream>
#include <string>
#include <vector>

namespace frontpanelhw::drawing {

/** One row of cells, of any length. A value, used from one thread at a time. Indexes and offsets count cells from the
 * left, from 0. */
class FRONTPANELHW_EXPORT DisplayLine {
public:
    /** An empty line. */
    DisplayLine() = default;

    /** A line of that many spaces, none inverted. */
    explicit DisplayLine(unsigned charCount);

    /** A line of one cell for each code unit of the text, none inverted. */
    DisplayLine(const std::u16string& text); // NOLINT(google-explicit-constructor): a text is a line

    /** @return false, with the line unchanged, when there is no such cell */
    bool setCharacter(unsigned index, const DisplayChar& c);

    /** @return the cell, or a space that is not inverted past the end */
    DisplayChar getCharacter(unsigned index) const;

    /** Appends a cell; the line grows by one. */
    void addCharacter(const DisplayChar& c);

    /**
     * Sets the inversion of the cells `from` to `to`, both included.
     * @return false, with the line unchanged, when `from` is greater than `to` or `to` is past the end
     */
    bool setInverted(unsigned from, unsigned to, bool inverted);

    /** @return the cell's inversion, false past the end */
    bool getInverted(unsigned index) const;

    /** Replaces the whole line: one cell for each code unit, none inverted. */
    void setLine(const std::u16string& text);

    /**
     * Writes text over the cells from offset on; the length and every cell's inversion stay. A code unit 0 is
     * transparent: the cell below it keeps its character. Positions count modulo 2^32: text at an offset just below
     * 2^32 goes on at the beginning of the line if the code units before that are 0.
     * @return false, with the line unchanged and the reason on standard error, when the text does not fit
     * @throws std::out_of_range, with the line unchanged, when a code unit other than 0 lies past the end
     */
    bool setLine(unsigned offset, const std::u16string& text);

    /** @return the code units of all cells */
    std::u16string getString() const;

    /** @return the number of cells */
    unsigned getCharCount() const { return static_cast<unsigned>(characters.size()); }

    /** Lines are equal when their lengths, code units and inversions are. */
    bool operator==(const DisplayLine& other) const;

private:
    std::vector<DisplayChar> characters;
};

/**
 * Writes a line for a log, such as 'Hi!' - nin - cnt: 3: the low byte of each code unit, then "i" for each inverted
 * cell and "n" for each other, then the number of cells in decimal. The stream's number format, width and fill have
 * no effect.
 */
FRONTPANELHW_EXPORT std::ostream& operator<<(std::ostream& stream, const DisplayLine& line);

} // namespace frontpanelhw::drawing
