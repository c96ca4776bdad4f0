#include "panelsim/picture/VcdTrace.h"

#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace panelsim {

namespace {

constexpr std::size_t mostWaitingBytes = 64UL * 1024 * 1024;
constexpr std::chrono::milliseconds flushInterval{100};
constexpr std::chrono::seconds patienceAtEnd{2};
constexpr mode_t readableByAll = 0666;

/** @return a name of printable characters other than the blank, different for each index */
std::string identifierOf(std::size_t index)
{
    constexpr char firstCharacter = '!';
    constexpr std::size_t characters = '~' - firstCharacter + 1;
    std::string identifier;
    do {
        identifier += static_cast<char>(firstCharacter + index % characters);
        index /= characters;
    } while (index != 0);
    return identifier;
}

} // namespace

VcdTrace::VcdTrace(Board& itsBoard, std::filesystem::path itsPath)
    : board(itsBoard), path(std::move(itsPath)),
      // Without blocking: nobody may read a pipe.
      file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, readableByAll),
           ("cannot open " + path.string()).c_str()),
      waiting(header())
{
    board.observe([this](const LineChange& change) { record(change); });
}

VcdTrace::~VcdTrace()
{
    try {
        close();
    } catch (const std::system_error&) {
        // Who wants to know calls close.
    }
}

void VcdTrace::close()
{
    if (file.get() < 0) {
        return;
    }
    board.observe({});
    waiting += timeStamp(board.now());
    const auto deadline = std::chrono::steady_clock::now() + patienceAtEnd;
    for (write(); !waiting.empty() && error == 0; write()) {
        pollfd polled{file.get(), POLLOUT, 0};
        poll(&polled, 1, static_cast<int>(flushInterval.count()));
        error = std::chrono::steady_clock::now() < deadline ? 0 : ETIMEDOUT;
    }
    file.close();
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "cannot write " + path.string());
    }
}

void VcdTrace::flush()
{
    const std::lock_guard<std::mutex> lock(mutex);
    write();
}

void VcdTrace::write()
{
    written = std::chrono::steady_clock::now();
    std::size_t done = 0;
    while (error == 0 && done < waiting.size()) {
        const ssize_t size = ::write(file.get(), waiting.data() + done, waiting.size() - done);
        if (size >= 0) {
            done += static_cast<std::size_t>(size);
        } else if (errno == EAGAIN && waiting.size() <= mostWaitingBytes) {
            break;
        } else if (errno != EINTR) {
            error = errno == EAGAIN ? ENOBUFS : errno;
        }
    }
    waiting.erase(0, error == 0 ? done : std::string::npos);
}

std::string VcdTrace::header()
{
    const BoardConfig& config = board.getConfig();
    std::string text = "$version panelsim " PANELSIM_VERSION " $end\n"
                       "$timescale 1 ns $end\n"
                       "$scope module panel $end\n";
    const auto wire = [&](const std::string& name, unsigned gpio) {
        const std::string identifier = identifierOf(wires.size());
        wires[gpio].identifier = identifier;
        text += "$var wire 1 " + identifier + " " + name + " $end\n";
    };
    const struct {
        const char* scope;
        const char* wire;
        unsigned firstGpio;
        unsigned count;
    } runs[] = {{"lcd", "data", config.lcdGpioBase, config.hasLcd ? dataLineCount : 0},
                {"keys", "key", config.keyGpioBase, config.keyCount},
                {"leds", "led", config.ledGpioBase, config.ledCount},
                {"id", "id", config.idGpioBase, idLineCount}};
    for (const auto& run : runs) {
        if (run.count == 0) {
            continue;
        }
        text += std::string("$scope module ") + run.scope + " $end\n";
        for (unsigned i = 0; i < run.count; ++i) {
            wire(run.wire + std::to_string(i), run.firstGpio + i);
        }
        if (&run == std::begin(runs)) {
            unsigned gpio = config.lcdGpioBase + dataLineCount;
            for (const char* name :
                 {"register_select", "chip_select_n", "read_strobe_n", "write_strobe_n", "reset_n"}) {
                wire(name, gpio++);
            }
            wire("backlight", config.ledGpioBase + config.ledCount);
        }
        text += "$upscope $end\n";
    }
    return text + "$upscope $end\n$enddefinitions $end\n#0\n$dumpvars\n";
}

void VcdTrace::record(const LineChange& change)
{
    const std::lock_guard<std::mutex> lock(mutex);
    Wire& wire = wires.at(change.gpio);
    if (wire.level == change.level) {
        return;
    }
    // The board begins with the levels that all lines have at one time.
    if (begun == 0) {
        begin = change.time;
    }
    const bool endsDump = !wire.level && ++begun == wires.size();
    wire.level = change.level;
    const char value = change.level == LineLevel::Low ? '0' : change.level == LineLevel::High ? '1' : 'z';
    waiting += timeStamp(change.time) + value + wire.identifier + (endsDump ? "\n$end\n" : "\n");
    if (std::chrono::steady_clock::now() - written >= flushInterval) {
        write();
    }
}

/** @return the line that begins what happens at this time, empty when it has begun */
std::string VcdTrace::timeStamp(std::chrono::nanoseconds time)
{
    if (time - begin <= last) {
        return {};
    }
    last = time - begin;
    return "#" + std::to_string(last.count()) + "\n";
}

} // namespace panelsim
