#include "tests/sysfs/FakeKernel.h"

#include <cerrno>
#include <fcntl.h>

namespace {

std::string belowRoot(const std::string& path)
{
    return path.substr(std::string("/sys/class/gpio/").size());
}

} // namespace

int FakeKernel::run(const std::string& call, std::size_t size, const std::function<int()>& effect)
{
    log += call + "; ";
    const int injected = fault(call);
    const int partial = size > 0 ? static_cast<int>(size) - 1 : -EIO;
    const int result = injected == 0 ? effect() : injected == partly ? partial : -injected;
    errno = result < 0 ? -result : errno;
    return result < 0 ? -1 : result;
}

FakeKernel::Line* FakeKernel::exportedLine(const std::string& name)
{
    const bool ofLine = name.rfind("gpio", 0) == 0;
    const auto found = ofLine ? lines.find(static_cast<unsigned>(std::stoul(name.substr(4)))) : lines.end();
    return found != lines.end() && found->second.exported ? &found->second : nullptr;
}

int FakeKernel::open(const char* path, int flags)
{
    static const std::map<int, std::string> knownFlags{{O_WRONLY | O_CLOEXEC, " w+e"}, {O_RDWR | O_CLOEXEC, " rw+e"}};
    const std::string name = belowRoot(path);
    const auto known = knownFlags.find(flags);
    return run("open " + name + (known != knownFlags.end() ? known->second : std::to_string(flags)), 0, [&] {
        Line* const line = exportedLine(name);
        if (!line && name != "export" && name != "unexport") {
            return -ENOENT;
        }
        if (line && now_ < line->granted) {
            return -EACCES;
        }
        files_[++lastDescriptor_] = {name, name.substr(name.find('/') + 1), line};
        return lastDescriptor_;
    });
}

int FakeKernel::close(int descriptor)
{
    const File file = files_.at(descriptor);
    if (file.line && file.line->lockedBy == descriptor) {
        file.line->lockedBy = 0;
    }
    files_.erase(descriptor);
    return run("close " + file.name, 0, [] { return 0; });
}

ssize_t FakeKernel::pread(int descriptor, void* buffer, std::size_t size, off_t offset)
{
    const File& file = files_.at(descriptor);
    return run("pread " + file.name, size, [&] {
        const std::string shown = file.line->high != file.line->activeLow ? "1\n" : "0\n";
        const std::size_t copied = shown.copy(static_cast<char*>(buffer), size, static_cast<std::size_t>(offset));
        return file.line->exported ? static_cast<int>(copied) : -ENODEV;
    });
}

ssize_t FakeKernel::pwrite(int descriptor, const void* data, std::size_t size, off_t offset)
{
    const File& file = files_.at(descriptor);
    const std::string text(static_cast<const char*>(data), size);
    const std::string call = "pwrite " + file.name + ' ' + text + (offset == 0 ? "" : " at an offset");
    return run(call, size, [&] {
        const int error = write(file, text);
        return error == 0 ? static_cast<int>(size) : -error;
    });
}

int FakeKernel::write(const File& file, const std::string& text)
{
    static const std::map<std::string, char> directions{{"in", 'i'}, {"out", 'L'}, {"low", 'L'}, {"high", 'H'}};
    if (!file.line) {
        return setExported(static_cast<unsigned>(std::stoul(text)), file.name == "export");
    }
    Line& line = *file.line;
    const bool isValue = file.attribute == "value";
    if (!line.exported || (isValue && !line.output)) {
        return line.exported ? EPERM : ENODEV;
    }
    if (file.attribute == "active_low") {
        line.activeLow = text == "1";
        return 0;
    }
    line.history += !isValue ? directions.at(text) : (text == "1") != line.activeLow ? 'H' : 'L';
    line.output = line.history.back() != 'i';
    line.high = line.history.back() == 'H';
    return 0;
}

int FakeKernel::setExported(unsigned number, bool exported)
{
    const auto found = lines.find(number);
    if (found == lines.end() || (!exported && !found->second.exported)) {
        return EINVAL;
    }
    Line& line = found->second;
    if (exported && (line.exported || line.heldByDriver)) {
        return EBUSY;
    }
    line.exported = exported;
    line.activeLow = false;
    line.lockedBy = 0;
    line.granted = now_ + udevDelay;
    return 0;
}

int FakeKernel::flock(int descriptor, int operation)
{
    const File& file = files_.at(descriptor);
    return run("flock " + file.name + ' ' + std::to_string(operation), 0, [&] {
        const bool free = file.line->lockedBy == 0;
        file.line->lockedBy = free ? descriptor : file.line->lockedBy;
        return free ? 0 : -EWOULDBLOCK;
    });
}

int FakeKernel::access(const char* path, int /*mode*/)
{
    return run("access " + belowRoot(path), 0, [&] { return exportedLine(belowRoot(path)) ? 0 : -ENOENT; });
}
