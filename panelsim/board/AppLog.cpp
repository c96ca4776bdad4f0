#include "panelsim/board/AppLog.h"

#include <algorithm>

namespace panelsim {

AppLog::AppLog(ChangeSignal& signal) : changes(signal)
{
}

void AppLog::append(LogLine::Source source, std::string_view bytes)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        for (auto newline = bytes.find('\n'); newline != std::string_view::npos; newline = bytes.find('\n')) {
            put(source, bytes.substr(0, newline));
            complete(source);
            bytes.remove_prefix(newline + 1);
        }
        if (!bytes.empty()) {
            put(source, bytes);
        }
        ++appended;
    }
    changes.notify();
}

void AppLog::endLine(LogLine::Source source)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (begun.count(source) == 0) {
            return;
        }
        complete(source);
        ++appended;
    }
    changes.notify();
}

void AppLog::remark(std::string_view text)
{
    append(LogLine::Source::Simulator, std::string(text) + "\n");
}

std::uint64_t AppLog::version() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return appended;
}

AppLog::Lines AppLog::linesFrom(std::uint64_t number, std::size_t enoughBytes) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    const std::uint64_t first = std::clamp(number, firstLine, firstLine + lines.size());
    const auto begin = lines.begin() + static_cast<std::ptrdiff_t>(first - firstLine);
    auto end = begin;
    for (std::size_t bytes = 0; end != lines.end() && bytes < enoughBytes; ++end) {
        bytes += end->text.size();
    }
    return {first, {begin, end}, end == lines.end()};
}

std::vector<LogLine> AppLog::lastLines(std::size_t most) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return {lines.end() - static_cast<std::ptrdiff_t>(std::min(most, lines.size())), lines.end()};
}

std::optional<AppLog::Position> AppLog::find(std::string_view text, Position from) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (from.unfinished) {
        if (const auto found = findAt(text, *from.unfinished)) {
            return Position{from.place, found};
        }
    }
    for (Place place = from.place.line < firstLine ? Place{firstLine, 0} : from.place;
         place.line < firstLine + lines.size(); place = {place.line + 1, 0}) {
        if (const auto found = findAt(text, place)) {
            Position position{*found, {}};
            for (const auto& [source, line] : begun) {
                if (line < found->line) {
                    position.unfinished = Place{line, lines[indexOf(line)].text.size()};
                }
            }
            return position;
        }
    }
    return std::nullopt;
}

/** @return the place right after the text in that line, from that column on */
std::optional<AppLog::Place> AppLog::findAt(std::string_view text, Place from) const
{
    if (from.line < firstLine || from.line >= firstLine + lines.size()) {
        return std::nullopt;
    }
    const LogLine& line = lines[indexOf(from.line)];
    const auto found = line.text.find(text, from.column);
    if (line.source == LogLine::Source::Simulator || found == std::string::npos) {
        return std::nullopt;
    }
    return Place{from.line, found + text.size()};
}

/** Adds text without a newline to the line that the source has begun, or to new ones. */
void AppLog::put(LogLine::Source source, std::string_view bytes)
{
    do {
        const auto line = begun.find(source);
        LogLine& target = line != begun.end() ? lines[indexOf(line->second)] : beginLine(source);
        const std::size_t taken = std::min(bytes.size(), longestLine - target.text.size());
        target.text += bytes.substr(0, taken);
        bytes.remove_prefix(taken);
        if (!bytes.empty()) {
            complete(source);
        }
    } while (!bytes.empty());
}

LogLine& AppLog::beginLine(LogLine::Source source)
{
    const std::uint64_t number = firstLine + lines.size();
    for (const auto each : {LogLine::Source::Output, LogLine::Source::Error}) {
        const auto line = begun.find(each);
        if (line != begun.end() && number - line->second > mostOvertaking) {
            complete(each);
        }
    }
    if (lines.size() == keptLines) {
        lines.pop_front();
        ++firstLine;
    }
    begun[source] = number;
    return lines.emplace_back(LogLine{source});
}

void AppLog::complete(LogLine::Source source)
{
    lines[indexOf(begun.at(source))].complete = true;
    begun.erase(source);
}

} // namespace panelsim
