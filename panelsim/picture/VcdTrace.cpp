#include "panelsim/picture/VcdTrace.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <poll.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace panelsim {

namespace {

constexpr int patience = 2000; // milliseconds, with the reader of a pipe
constexpr mode_t readableByAll = 0666;

std::string identifierOf(unsigned gpio)
{
    return "g" + std::to_string(gpio);
}

std::string headerFor(const BoardConfig& config)
{
    std::string text = "$version panelsim " PANELSIM_VERSION " $end\n$timescale 1 ns $end\n$scope module panel $end\n";
    const auto add = [&](const std::string& name, unsigned gpio) {
        text += "$var wire 1 " + identifierOf(gpio) + " " + name + " $end\n";
    };
    const auto begin = [&](const char* scope, const std::string& wire, unsigned gpio, unsigned count) {
        text += std::string("$scope module ") + scope + " $end\n";
        for (unsigned i = 0; i < count; ++i) {
            add(wire + std::to_string(i), gpio + i);
        }
    };
    constexpr const char* end = "$upscope $end\n";
    if (config.hasLcd) {
        begin("lcd", "data", config.lcdGpioBase, dataLineCount);
        unsigned gpio = config.lcdGpioBase + dataLineCount;
        for (const char* const name :
             {"register_select", "chip_select_n", "read_strobe_n", "write_strobe_n", "reset_n"}) {
            add(name, gpio++);
        }
        add("backlight", config.ledGpioBase + config.ledCount);
        text += end;
    }
    begin("keys", "key", config.keyGpioBase, config.keyCount);
    text += end;
    begin("leds", "led", config.ledGpioBase, config.ledCount);
    text += end;
    begin("id", "id", config.idGpioBase, idLineCount);
    return text + end + end + "$enddefinitions $end\n#0\n";
}

} // namespace

VcdTrace::VcdTrace(Board& itsBoard, std::filesystem::path itsPath)
    : board(itsBoard), path(std::move(itsPath)),
      // Without blocking: nobody may read a pipe.
      file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, readableByAll),
           ("cannot open " + path.string()).c_str()),
      waiting(headerFor(board.getConfig()))
{
    board.observe([this](const LineChange& change) { record(change); });
}

VcdTrace::~VcdTrace()
{
    board.observe({});
    flush();
}

void VcdTrace::close()
{
    board.observe({});
    addTime(board.now());
    flush();
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "cannot write " + path.string());
    }
}

void VcdTrace::flush()
{
    std::string bytes;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        bytes.swap(waiting);
    }
    pollfd polled{file.get(), POLLOUT, 0};
    while (error == 0 && !bytes.empty()) {
        errno = ETIMEDOUT;
        const ssize_t size = poll(&polled, 1, patience) == 0 ? -1 : write(file.get(), bytes.data(), bytes.size());
        error = size >= 0 || errno == EAGAIN || errno == EINTR ? 0 : errno;
        bytes.erase(0, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    }
}

void VcdTrace::record(const LineChange& change)
{
    const std::lock_guard<std::mutex> lock(mutex);
    // The board begins with the levels that all lines have at one time.
    begin = begin.value_or(change.time);
    addTime(change.time);
    waiting += "01z"[static_cast<std::size_t>(change.level)];
    waiting += identifierOf(change.gpio) + "\n";
}

/** Begins what happens at this time unless it has begun. */
void VcdTrace::addTime(std::chrono::nanoseconds time)
{
    if (time - *begin > last) {
        last = time - *begin;
        waiting += "#" + std::to_string(last.count()) + "\n";
    }
}

} // namespace panelsim
