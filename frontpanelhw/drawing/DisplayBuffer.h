#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/drawing/DisplayLine.h"

#include <ostream>
#include <string>
#include <vector>

namespace frontpanelhw::drawing {

/**
 * One page of text: a fixed number of lines. A value, used from one thread at a time. Line indexes count from the top,
 * from 0; an index past the last line is refused without a message.
 */
class FRONTPANELHW_EXPORT DisplayBuffer {
public:
    /** A page of spaces, none inverted. */
    DisplayBuffer(unsigned charCount, unsigned lineCount);

    /** @return the number of lines */
    unsigned getLineCount() const;

    /** @return the width given at construction, even if lines have other lengths now */
    unsigned getCharCount() const;

    /** Replaces a line by one of any length. @return false when there is no such line */
    bool setDisplayLine(unsigned index, DisplayLine line);

    /** Writes text over a line from column offset on, as DisplayLine::setLine does, with its result and exception. */
    bool setLineContent(unsigned index, unsigned offset, const std::u16string& text);

    /** Writes text over a line from column 0 on; the rest of the line stays. */
    bool setLineContent(unsigned index, const std::u16string& text);

    /** Sets the inversion of a line's columns `from` to `to`, both included, as DisplayLine::setInverted does. */
    bool setInverted(unsigned index, bool inverted, unsigned from, unsigned to);

    /** @return a copy of the line, empty past the last one */
    DisplayLine getLine(unsigned index) const;

    /** @return the line's code units, empty past the last line */
    std::u16string getLineString(unsigned index) const;

    /** Makes a line spaces of the page's width, none inverted. */
    void clear(unsigned index);

    /** Clears every line. */
    void clear();

    /** Pages are equal when their widths, line counts and lines are. */
    bool operator==(const DisplayBuffer& other) const;

private:
    std::vector<DisplayLine> lines;
    unsigned charCount;
};

/** Writes a page for a log: a line end, width and line count, then each line behind a line end of its own. */
FRONTPANELHW_EXPORT std::ostream& operator<<(std::ostream& stream, const DisplayBuffer& buffer);

} // namespace frontpanelhw::drawing
