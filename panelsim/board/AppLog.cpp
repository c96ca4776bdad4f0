#include "panelsim/board/AppLog.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace panelsim {

void AppLog::append(LogLine::Source source, std::string_view bytes)
{
    const Lock lock(mutex);
    while (!bytes.empty()) {
        auto line = begunBy(source);
        if (line == lines.end()) {
            line = lines.insert(line, LogLine{source, std::chrono::system_clock::now(), written});
        }
        const std::string_view fitting = bytes.substr(0, longestLine - line->text.size());
        const std::string_view taken = fitting.substr(0, fitting.find('\n'));
        line->text += taken;
        written.at(static_cast<std::size_t>(source)) += taken.size();
        bytes.remove_prefix(taken.size());
        if (!bytes.empty()) { // the line ends here, or it is full
            complete(source);
            bytes.remove_prefix(bytes.front() == '\n' ? 1 : 0);
        }
    }
    for (; lines.size() > keptLines; ++firstLine) {
        lines.pop_front();
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
    for (const LogLine& line : lines) {
        const auto source = static_cast<std::size_t>(line.source);
        const std::size_t begin = line.before.at(source);
        const auto found = line.text.find(text, std::max(position.at(source), begin) - begin);
        if (found != std::string::npos && line.source != LogLine::Source::Simulator) {
            // What the other stream wrote before the line counts as searched.
            std::transform(line.before.begin(), line.before.end(), position.begin(), position.begin(),
                           [](std::size_t before, std::size_t searched) { return std::max(before, searched); });
            position.at(source) = begin + found + text.size();
            return true;
        }
    }
    return false;
}

/** @return the line that the source has begun; the end if there is none */
std::deque<LogLine>::iterator AppLog::begunBy(LogLine::Source source)
{
    for (auto line = lines.end(); line != lines.begin() && !std::prev(line)->complete;) {
        if ((--line)->source == source) {
            return line;
        }
    }
    return lines.end();
}

void AppLog::complete(LogLine::Source source)
{
    auto line = begunBy(source);
    if (line == lines.end()) {
        return;
    }
    for (; line != lines.begin() && !std::prev(line)->complete; --line) {
        std::swap(*line, *std::prev(line)); // those that go on come last
    }
    line->complete = true;
}

} // namespace panelsim
