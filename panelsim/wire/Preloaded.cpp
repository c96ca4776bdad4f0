/*
 * What panelsim loads into an application ahead of its libraries: the platform's pin factory, with pins on the board
 * in the panelsim process.
 */
#include "panelsim/wire/Protocol.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/PinDirectionEn.h"
#include "sysfs/SysfsGpioFactory.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace panelsim {

namespace {

using Operation = Request::Operation;

// Pins of static objects are used until the very end of the process, so none of this has a destructor.
std::mutex mutex;
int connection = -1;
/** Of the connection: the application may close all descriptors, as daemons do, and get the number for another file. */
ino_t inode = 0;

[[noreturn]] void throwUnreachable(const std::string& why)
{
    throw std::runtime_error("simulated front panel: " + why);
}

ino_t inodeOf(int descriptor)
{
    struct stat status {};
    return fstat(descriptor, &status) == 0 ? status.st_ino : 0;
}

/** The child leaves its parent's connection open, since it uses its parent's pins, and opens one of its own. */
void beginAsChild()
{
    connection = -1;
    mutex.unlock();
}

void connectToSimulator()
{
    static const int prepared = pthread_atfork([] { mutex.lock(); }, [] { mutex.unlock(); }, beginAsChild);
    const char* const name = std::getenv(socketVariable);
    if (prepared != 0 || name == nullptr) {
        throwUnreachable(std::string(socketVariable) + " does not name a socket; start the application by panelsim");
    }
    const auto [address, size] = socketAddress(name);
    const int socket = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (socket < 0 || connect(socket, reinterpret_cast<const sockaddr*>(&address), size) != 0) {
        const int error = errno;
        close(socket);
        throwUnreachable("panelsim cannot be reached: has it ended, or is the application in another network "
                         "namespace? (" +
                         std::generic_category().message(error) + ")");
    }
    connection = socket;
    inode = inodeOf(socket);
}

Reply exchange(Request request)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (connection < 0 || inodeOf(connection) != inode) {
        connectToSimulator();
    }
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    request.time = std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
    Reply reply;
    ssize_t size = 0;
    do {
        size = send(connection, &request, sizeof request, MSG_NOSIGNAL);
    } while (size < 0 && errno == EINTR);
    while (size > 0 && (size = recv(connection, &reply, sizeof reply, 0)) < 0 && errno == EINTR) {
        size = 1;
    }
    if (size < static_cast<ssize_t>(replySizeWithoutText)) {
        throwUnreachable("the connection to panelsim is gone: has panelsim ended, or does it serve another user? (" +
                         std::generic_category().message(size < 0 ? errno : ECONNRESET) + ")");
    }
    return reply;
}

/** Has an operation done, and returns what it returns or throws what it throws on the board. */
std::uint32_t perform(const Request& request)
{
    const Reply reply = exchange(request);
    const std::string text(reply.text.data(), reply.textSize);
    switch (reply.outcome) {
    case Reply::Outcome::Done:
        return reply.value;
    case Reply::Outcome::SystemError:
        throw std::system_error(reply.error, std::generic_category(), text);
    case Reply::Outcome::LogicError:
        throw std::logic_error(text);
    case Reply::Outcome::OtherError:
        break;
    }
    throw std::runtime_error(text);
}

/**
 * A pin of the application, on a line of the board in the panelsim process. It fails as a pin on that board does. A
 * forked process works on with the pins that there were. After the application has closed all descriptors those pins
 * are gone and new ones work.
 */
class RemoteGpio final : public sysfs::ISysfsGpio {
public:
    RemoteGpio() : pin(perform({Operation::Create})) {}
    /** The line stays as it is driven. */
    ~RemoteGpio() override
    {
        try {
            perform({Operation::Destroy, pin});
        } catch (const std::exception&) {
            // Without panelsim there is no line left to release.
        }
    }

    RemoteGpio(const RemoteGpio&) = delete;
    RemoteGpio& operator=(const RemoteGpio&) = delete;

    bool init(bool inverted, sysfs::PinDirectionEn direction, bool initialValue) override
    {
        return perform({Operation::Init, pin, 0, initialValue, isOutput(direction), inverted}) != 0;
    }
    void deinit() override
    {
        number.reset();
        perform({Operation::Deinit, pin});
    }
    void setDirection(sysfs::PinDirectionEn direction) override
    {
        perform({Operation::SetDirection, pin, 0, 0, isOutput(direction)});
    }
    bool setValue(bool value) override { return perform({Operation::SetValue, pin, 0, value}) != 0; }
    bool getValue() const override { return perform({Operation::GetValue, pin}) != 0; }
    void exportGpio(unsigned gpioNumber) override
    {
        perform({Operation::Export, pin, gpioNumber});
        number = gpioNumber;
    }
    unsigned getGpioNumber() const override
    {
        if (!number) {
            throw std::logic_error("pin used before exportGpio");
        }
        return *number;
    }

private:
    static bool isOutput(sysfs::PinDirectionEn direction) { return direction == sysfs::PinDirectionEn::Output; }

    const std::uint32_t pin;
    std::optional<unsigned> number;
};

/**
 * Standard output is a pipe to panelsim, which the application would fill with several kilobytes before any of it is
 * seen. Line by line, as at a terminal, a waiting person or scenario sees each line when it is written.
 */
__attribute__((constructor)) void writeOutputByLines()
{
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

} // namespace

} // namespace panelsim

std::unique_ptr<sysfs::ISysfsGpio> sysfs::SysfsGpioFactory::create() const
{
    return std::make_unique<panelsim::RemoteGpio>();
}
