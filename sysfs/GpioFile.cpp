#include "sysfs/GpioFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

namespace sysfs {

namespace {

constexpr std::chrono::milliseconds retryInterval{5};

struct KnownCause {
    std::string_view action;
    std::string_view file;
    int errnoValue;
    std::string_view hint;
};

// An empty file name stands for every file. The first entry that fits counts.
constexpr KnownCause knownCauses[] = {
    {"open", "export", ENOENT, "this kernel lacks the sysfs GPIO interface, CONFIG_GPIO_SYSFS"},
    {"write", "export", EINVAL, "no such GPIO; /sys/class/gpio/gpiochip*/base and ngpio show which exist"},
    {"write", "export", EBUSY, "the kernel or a driver holds the line, see /sys/kernel/debug/gpio"},
    {"write", "unexport", EINVAL, "something else has unexported the line"},
    {"open", "direction", ENOENT, "the line has gone, or its direction is fixed"},
    {"open", "", EACCES, "run as root or in the group that owns the file"},
    {"open", "", EPERM, "run as root or in the group that owns the file"},
    {"lock", "", EBUSY, "in use by another process or pin object"},
    {"write", "value", EPERM, "the line is an input"},
    {"write", "value", ENODEV, "something else has unexported the line"},
    {"read", "value", ENODEV, "something else has unexported the line"},
    {"write", "direction", ENODEV, "something else has unexported the line"},
    {"request", "", EINVAL, "the kernel is older than Linux 5.10, or the driver refuses the line"},
    {"request", "", EEXIST, "exported in /sys/class/gpio"},
    {"set", "", EPERM, "the line is an input"},
    {"configure", "", ENODEV, "the chip has gone"},
    {"set", "", ENODEV, "the chip has gone"},
    {"get", "", ENODEV, "the chip has gone"},
};

std::string_view knownHint(std::string_view action, std::string_view path, int errnoValue)
{
    const std::string_view file = path.substr(path.rfind('/') + 1);
    for (const KnownCause& cause : knownCauses) {
        if (cause.action == action && (cause.file.empty() || cause.file == file) && cause.errnoValue == errnoValue) {
            return cause.hint;
        }
    }
    return {};
}

// The kernel makes the files of a line, and udev hands them to a group a moment later.
bool mayComeLater(int errnoValue)
{
    return errnoValue == EACCES || errnoValue == EPERM || errnoValue == ENOENT;
}

int openWithin(ISystemCalls& calls, const std::string& path, int flags, std::chrono::milliseconds patience)
{
    const auto deadline = calls.now() + patience;
    for (;;) {
        const bool isLast = calls.now() >= deadline;
        const int descriptor = uninterrupted([&] { return calls.open(path.c_str(), flags | O_CLOEXEC); });
        if (descriptor >= 0 || isLast || !mayComeLater(errno)) {
            return descriptor;
        }
        calls.sleepFor(retryInterval);
    }
}

} // namespace

std::system_error gpioError(unsigned gpioNumber, std::string_view action, const std::string& object, int errnoValue,
                            std::string_view hint)
{
    if (hint.empty()) {
        hint = knownHint(action, object, errnoValue);
    }
    std::string text = "GPIO " + std::to_string(gpioNumber) + ": cannot " + std::string(action) + ' ' + object;
    if (!hint.empty()) {
        text.append(" (").append(hint).append(")");
    }
    return {errnoValue, std::generic_category(), text};
}

GpioFile::GpioFile(ISystemCalls& systemCalls, unsigned number, std::string filePath, int flags,
                   std::chrono::milliseconds patience)
    : calls(systemCalls), gpioNumber(number), path(std::move(filePath)),
      descriptor(openWithin(calls, path, flags, patience))
{
    if (descriptor < 0) {
        throw error("open", errno);
    }
}

GpioFile::GpioFile(ISystemCalls& systemCalls, unsigned number, std::string name, Opened opened)
    : calls(systemCalls), gpioNumber(number), path(std::move(name)), descriptor(opened.descriptor)
{
}

GpioFile::~GpioFile()
{
    calls.close(descriptor);
}

bool GpioFile::exists(ISystemCalls& calls, const std::string& path)
{
    return uninterrupted([&] { return calls.access(path.c_str(), F_OK); }) == 0;
}

bool GpioFile::tryControl(unsigned long request, void* argument) const
{
    return uninterrupted([&] { return calls.ioctl(descriptor, request, argument); }) >= 0;
}

void GpioFile::fail(const char* action) const
{
    throw error(action, errno);
}

void GpioFile::write(std::string_view text) const
{
    const ssize_t written = uninterrupted([&] { return calls.pwrite(descriptor, text.data(), text.size(), 0); });
    if (written != static_cast<ssize_t>(text.size())) {
        errno = written < 0 ? errno : EIO;
        fail("write");
    }
}

bool GpioFile::readLevel() const
{
    char level = '\0'; // stays so when nothing is read
    const ssize_t size = uninterrupted([&] { return calls.pread(descriptor, &level, sizeof level, 0); });
    if (level != '0' && level != '1') {
        failToRead(size);
    }
    return level == '1';
}

void GpioFile::failToRead(ssize_t size) const
{
    if (size < 0) {
        fail("read");
    }
    throw error("read", EIO, "neither 0 nor 1");
}

bool GpioFile::tryLock() const
{
    return uninterrupted([&] { return calls.flock(descriptor, LOCK_EX | LOCK_NB); }) == 0 || errno != EWOULDBLOCK;
}

std::system_error GpioFile::error(std::string_view action, int errnoValue, std::string_view hint) const
{
    return gpioError(gpioNumber, action, path, errnoValue, hint);
}

} // namespace sysfs
