#include "panelsim/board/AppLog.h"

#include <algorithm>

namespace panelsim {

void AppLog::append(LogLine::Source source, std::string_view bytes)
{
    const Lock lock(mutex);
    while (!bytes.empty()) {
        LogLine& line = openLine(source);
        const std::string_view fitting = bytes.substr(0, longestLine - line.text.size());
        const std::string_view taken = fitting.substr(0, fitting.find('\n'));
        line.text += taken;
        bytes.remove_prefix(taken.size());
        if (!bytes.empty()) { // the line ends here, or it is full
            complete(source);
            bytes.remove_prefix(bytes.front() == '\n' ? 1 : 0);
        }
    }
    ++appended;
}

void AppLog::endLine(LogLine::Source source)
{
    const Lock lock(mutex);
    complete(source);
    ++appended;
}

void AppLog::remark(std::string_view text)
{
    append(LogLine::Source::Simulator, std::string(text) + "\n");
}

std::uint64_t AppLog::version() const
{
    const Lock lock(mutex);
    return appended;
}

AppLog::Lines AppLog::linesFrom(std::uint64_t number, std::size_t enoughBytes) const
{
    const Lock lock(mutex);
    const std::uint64_t first = std::clamp(number, firstLine, firstLine + lines.size());
    const auto begin = lines.begin() + static_cast<std::ptrdiff_t>(first - firstLine);
    auto end = begin;
    for (std::size_t bytes = 0; end != lines.end() && bytes < enoughBytes; ++end) {
        bytes += end->text.size();
    }
    return {first, {begin, end}, end == lines.end()};
}

bool AppLog::find(std::string_view text, Position& position) const
{
    const Lock lock(mutex);
    std::uint64_t number = firstLine;
    for (auto line = lines.begin(); line != lines.end(); ++line, ++number) {
        const auto source = static_cast<std::size_t>(line->source);
        if (line->source == LogLine::Source::Simulator || number < position.at(source).line) {
            continue;
        }
        const std::size_t column = number == position.at(source).line ? position.at(source).column : 0;
        const auto found = line->text.find(text, column);
        if (found == std::string::npos) {
            continue;
        }
        position.at(source) = {number, found + text.size()};
        // What the other stream wrote before is searched as well, of the line that it has not ended, too.
        const std::size_t other = 1 - source;
        if (const auto& open = begun.at(other); open && *open < number) {
            position.at(other) = {*open, lines[static_cast<std::size_t>(*open - firstLine)].text.size()};
        } else if (position.at(other).line < number) {
            position.at(other) = {number, 0};
        }
        return true;
    }
    return false;
}

/** @return the line that the source has begun, or a new one */
LogLine& AppLog::openLine(LogLine::Source source)
{
    if (begunBy(source)) {
        return lineAt(*begunBy(source));
    }
    const std::uint64_t number = firstLine + lines.size();
    for (const auto each : {LogLine::Source::Output, LogLine::Source::Error}) {
        if (begunBy(each) && number - *begunBy(each) > mostOvertaking) {
            complete(each);
        }
    }
    if (lines.size() == keptLines) {
        lines.pop_front();
        ++firstLine;
    }
    begunBy(source) = number;
    return lines.emplace_back(LogLine{source, std::chrono::system_clock::now()});
}

void AppLog::complete(LogLine::Source source)
{
    if (begunBy(source)) {
        lineAt(*begunBy(source)).complete = true;
        begunBy(source).reset();
    }
}

} // namespace panelsim
