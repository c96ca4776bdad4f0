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

constexpr std::chrono::seconds patience{2}; // with the reader of a pipe
constexpr int betweenTries = 100;           // milliseconds
constexpr mode_t readableByAll = 0666;

/** @return a name of printable characters other than the blank, different for each line */
std::string identifierOf(unsigned gpio)
{
    constexpr char firstCharacter = '!';
    constexpr unsigned characters = '~' - firstCharacter + 1;
    std::string identifier;
    do {
        identifier += static_cast<char>(firstCharacter + gpio % characters);
        gpio /= characters;
    } while (gpio != 0);
    return identifier;
}

std::string headerFor(const BoardConfig& config)
{
    std::string text = "$version panelsim " PANELSIM_VERSION " $end\n$timescale 1 ns $end\n$scope module panel $end\n";
    const auto addWire = [&](const std::string& name, unsigned gpio) {
        text += "$var wire 1 " + identifierOf(gpio) + " " + name + " $end\n";
    };
    const auto addScope = [&](const char* scope, const char* wire, unsigned gpio, unsigned count,
                              const std::vector<const char*>& controls = {}) {
        text += std::string("$scope module ") + scope + " $end\n";
        for (unsigned i = 0; i < count; ++i) {
            addWire(wire + std::to_string(i), gpio++);
        }
        for (const char* const name : controls) {
            addWire(name, gpio++);
        }
        if (!controls.empty()) {
            addWire("backlight", config.ledGpioBase + config.ledCount);
        }
        text += "$upscope $end\n";
    };
    if (config.hasLcd) {
        addScope("lcd", "data", config.lcdGpioBase, dataLineCount,
                 {"register_select", "chip_select_n", "read_strobe_n", "write_strobe_n", "reset_n"});
    }
    addScope("keys", "key", config.keyGpioBase, config.keyCount);
    addScope("leds", "led", config.ledGpioBase, config.ledCount);
    addScope("id", "id", config.idGpioBase, idLineCount);
    return text + "$upscope $end\n$enddefinitions $end\n#0\n";
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
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (error == 0 && !bytes.empty()) {
        const ssize_t size = write(file.get(), bytes.data(), bytes.size());
        bytes.erase(0, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        if (size < 0 && errno != EAGAIN && errno != EINTR) {
            error = errno;
        } else if (size < 0 && std::chrono::steady_clock::now() >= deadline) {
            error = ETIMEDOUT;
        } else if (size < 0) {
            pollfd polled{file.get(), POLLOUT, 0};
            poll(&polled, 1, betweenTries);
        }
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
