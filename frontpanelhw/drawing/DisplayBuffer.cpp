#include "frontpanelhw/drawing/DisplayBuffer.h"

#include <utility>

namespace frontpanelhw::drawing {

DisplayBuffer::DisplayBuffer(unsigned width, unsigned lineCount)
    : lines(lineCount, DisplayLine(width)), charCount(width)
{
}

unsigned DisplayBuffer::getLineCount() const
{
    return static_cast<unsigned>(lines.size());
}

unsigned DisplayBuffer::getCharCount() const
{
    return charCount;
}

bool DisplayBuffer::setDisplayLine(unsigned index, DisplayLine line)
{
    if (index >= lines.size()) {
        return false;
    }
    lines[index] = std::move(line);
    return true;
}

bool DisplayBuffer::setLineContent(unsigned index, unsigned offset, const std::u16string& text)
{
    return index < lines.size() && lines[index].setLine(offset, text);
}

bool DisplayBuffer::setLineContent(unsigned index, const std::u16string& text)
{
    return setLineContent(index, 0, text);
}

bool DisplayBuffer::setInverted(unsigned index, bool inverted, unsigned from, unsigned to)
{
    return index < lines.size() && lines[index].setInverted(from, to, inverted);
}

DisplayLine DisplayBuffer::getLine(unsigned index) const
{
    return index < lines.size() ? lines[index] : DisplayLine();
}

std::u16string DisplayBuffer::getLineString(unsigned index) const
{
    return index < lines.size() ? lines[index].getString() : std::u16string();
}

void DisplayBuffer::clear(unsigned index)
{
    setDisplayLine(index, DisplayLine(charCount));
}

void DisplayBuffer::clear()
{
    lines.assign(lines.size(), DisplayLine(charCount));
}

bool DisplayBuffer::operator==(const DisplayBuffer& other) const
{
    return charCount == other.charCount && lines == other.lines;
}

std::ostream& operator<<(std::ostream& stream, const DisplayBuffer& buffer)
{
    stream.width(0);
    stream << std::endl
           << "chars: " << std::to_string(buffer.getCharCount())
           << " - lines: " << std::to_string(buffer.getLineCount());
    for (unsigned i = 0; i < buffer.getLineCount(); ++i) {
        stream << std::endl << buffer.getLine(i);
    }
    return stream;
}

} // namespace frontpanelhw::drawing
