#include "panelsim/picture/TraceFile.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace panelsim {

namespace {

constexpr std::chrono::milliseconds gatheringTime{100};
constexpr std::size_t gatheredBytes = 64UL * 1024;
constexpr std::size_t mostWaitingBytes = 64UL * 1024 * 1024;
constexpr std::chrono::milliseconds patienceAtEnd{2000};

[[noreturn]] void throwError(int error, const char* what, const std::filesystem::path& path)
{
    throw std::system_error(error, std::generic_category(), "cannot " + std::string(what) + " " + path.string());
}

int openEmpty(const std::filesystem::path& path)
{
    constexpr mode_t readableByAll = 0666;
    // Not to wait for the reader of a pipe, neither here nor when writing: the run would not end without it.
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, readableByAll);
    if (descriptor < 0) {
        throwError(errno, "open", path);
    }
    return descriptor;
}

} // namespace

TraceFile::TraceFile(std::filesystem::path itsPath) : path(std::move(itsPath)), descriptor(openEmpty(path))
{
    try {
        startWriter();
    } catch (...) {
        ::close(descriptor);
        throw;
    }
}

TraceFile::~TraceFile()
{
    try {
        close();
    } catch (const std::system_error&) {
        // Who wants to know calls close.
    }
}

void TraceFile::startWriter()
{
    // A signal, even one for a broken pipe or a file too large, is not to end in this thread.
    sigset_t all{};
    sigset_t previous{};
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    try {
        writer = std::thread([this] { writeUntilClosed(); });
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

void TraceFile::append(std::string_view lines)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (error == 0 && waiting.size() + lines.size() > mostWaitingBytes) {
        error = ENOBUFS;
    }
    if (error != 0) {
        return;
    }
    const std::size_t before = waiting.size();
    waiting += lines;
    if (before == 0 || (before < gatheredBytes && waiting.size() >= gatheredBytes)) {
        changed.notify_one();
    }
}

void TraceFile::close()
{
    if (!writer.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        closing = true;
    }
    changed.notify_one();
    writer.join();
    if (::close(descriptor) != 0 && error == 0) {
        error = errno;
    }
    if (error != 0) {
        throwError(error, "write", path);
    }
}

void TraceFile::writeUntilClosed()
{
    std::string taken;
    std::unique_lock<std::mutex> lock(mutex);
    while (!closing || !waiting.empty()) {
        changed.wait(lock, [this] { return closing || !waiting.empty(); });
        taken.clear();
        std::swap(taken, waiting);
        lock.unlock();
        const int failure = write(taken);
        lock.lock();
        if (failure != 0) {
            error = failure;
            waiting.clear();
            return;
        }
        changed.wait_for(lock, gatheringTime, [this] { return closing || waiting.size() >= gatheredBytes; });
    }
}

/** @return 0, or the errno of the failure; the file then ends with the last line that went in whole */
int TraceFile::write(std::string_view lines) const
{
    std::size_t written = 0;
    while (written < lines.size()) {
        const ssize_t count = ::write(descriptor, lines.data() + written, lines.size() - written);
        if (count < 0) {
            const int failure = errno == EAGAIN ? waitUntilTaken() : errno;
            if (failure == 0) {
                continue;
            }
            const std::size_t whole = lines.substr(0, written).rfind('\n') + 1; // 0 when there is none
            const off_t end = lseek(descriptor, 0, SEEK_CUR);
            // Fails on what is no regular file, where there is nothing to mend.
            [[maybe_unused]] const int result = ftruncate(descriptor, end - static_cast<off_t>(written - whole));
            return failure;
        }
        written += static_cast<std::size_t>(count);
    }
    return 0;
}

/** @return 0 when a pipe takes bytes again, or an errno value when it did not at the end */
int TraceFile::waitUntilTaken() const
{
    for (auto waited = gatheringTime;; waited += gatheringTime) {
        waited = closing ? waited : std::chrono::milliseconds{0};
        pollfd polled{descriptor, POLLOUT, 0};
        if (poll(&polled, 1, static_cast<int>(gatheringTime.count())) > 0) {
            return 0;
        }
        if (waited >= patienceAtEnd) {
            return ETIMEDOUT;
        }
    }
}

} // namespace panelsim
