#include "panelsim/board/AppLog.h"

#include <algorithm>
#include <utility>

namespace panelsim {

void AppLog::append(LogLine::Source source, std::string_view bytes)
{
    const Lock lock(mutex);
    const auto index = static_cast<std::size_t>(source);
    LogLine& line = begun.at(index);
    while (!bytes.empty()) {
        if (line.text.empty()) {
            line = {source, std::chrono::system_clock::now(), written};
        }
        const std::string_view fitting = bytes.substr(0, longestLine - line.text.size());
        const std::string_view taken = fitting.substr(0, fitting.find('\n'));
        line.text += taken;
        written.at(index) += taken.size();
        bytes.remove_prefix(taken.size());
        if (!bytes.empty()) { // the line ends here, or it is full
            complete(line);
            bytes.remove_prefix(bytes.front() == '\n' ? 1 : 0);
        }
    }
    ++appended;
}

void AppLog::endLine(LogLine::Source source)
{
    const Lock lock(mutex);
    LogLine& line = begun.at(static_cast<std::size_t>(source));
    if (!line.text.empty()) {
        complete(line);
    }
    ++appended;
}

void AppLog::complete(LogLine& line)
{
    line.complete = true;
    completed.push_back(std::exchange(line, {}));
    if (completed.size() > keptLines) {
        completed.pop_front();
        ++firstLine;
    }
}

AppLog::Lines AppLog::linesFrom(std::uint64_t number, std::size_t enoughBytes) const
{
    const Lock lock(mutex);
    Lines found;
    found.first = std::clamp(number, firstLine, firstLine + completed.size());
    std::size_t bytes = 0;
    const auto add = [&](const LogLine& line) {
        found.last = bytes < enoughBytes;
        if (found.last) {
            found.lines.push_back(line);
            bytes += line.text.size();
        }
    };
    std::for_each(completed.begin() + static_cast<std::ptrdiff_t>(found.first - firstLine), completed.end(), add);
    for (const LogLine& line : begun) {
        if (!line.text.empty()) {
            add(line);
        }
    }
    return found;
}

bool AppLog::find(std::string_view text, Position& position) const
{
    for (const LogLine& line : linesFrom(0).lines) {
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

} // namespace panelsim
