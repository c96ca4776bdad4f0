#include "panelsim/app/AppProcess.h"

#include "panelsim/app/Output.h"
#include "panelsim/wire/Protocol.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace panelsim {

namespace {

std::string findLibrary()
{
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::filesystem::path built = program / "libpanelsim-gpio.so";
    std::string library = std::filesystem::weakly_canonical(
        std::filesystem::exists(built) ? built : program / PANELSIM_PRELOAD_DIRECTORY / built.filename());
    if (!std::filesystem::exists(library)) {
        throw std::runtime_error(library + " is missing: build or install all of panelsim");
    }
    if (library.find_first_of(" \t\n:") != std::string::npos) {
        throw std::runtime_error(library +
                                 " cannot be preloaded, since its path has a blank or a colon: move it elsewhere");
    }
    return library;
}

/** Puts the text before the variable's value, with a separator if it has one. */
void prepend(const char* variable, const std::string& text)
{
    const char* const value = std::getenv(variable);
    const bool isEmpty = value == nullptr || *value == '\0';
    setenv(variable, (isEmpty ? text : text + ":" + value).c_str(), 1);
}

/** @return the children of this process, which the main thread has started or got; empty on kernels that do not say */
std::vector<pid_t> children()
{
    std::ifstream file("/proc/self/task/" + std::to_string(getpid()) + "/children");
    std::vector<pid_t> found;
    for (pid_t child = 0; file >> child;) {
        found.push_back(child);
    }
    return found;
}

} // namespace

void preparePreloading(const std::string& pinAddress)
{
    prepend("LD_PRELOAD", findLibrary());
    // The address sanitizer wants to be the first library of an application built with it, which it cannot be now.
    prepend("ASAN_OPTIONS", "verify_asan_link_order=0");
    setenv(socketVariable, pinAddress.c_str(), 1);
}

AppProcess::AppProcess(const std::vector<std::string>& command, AppLog& itsLog)
    : log(itsLog), ownGroup(isatty(STDIN_FILENO) == 0)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    std::vector<FileDescriptor> writingEnds;
    for (Stream& stream : streams) {
        int ends[2] = {-1, -1};
        stream.from = FileDescriptor(pipe2(ends, O_CLOEXEC) == 0 ? ends[0] : -1, "cannot open a pipe");
        writingEnds.emplace_back(ends[1], "");
        posix_spawn_file_actions_adddup2(&files, ends[1], stream.to);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    const int flags = POSIX_SPAWN_SETSIGMASK | (ownGroup ? POSIX_SPAWN_SETPGROUP : 0);
    posix_spawnattr_setflags(&attributes, static_cast<short>(flags));

    std::vector<char*> arguments(command.size() + 1); // the last one is null
    std::transform(command.begin(), command.end(), arguments.begin(),
                   [](const std::string& argument) { return const_cast<char*>(argument.c_str()); });
    const int failure = posix_spawnp(&pid, arguments.front(), &files, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (failure != 0) {
        throw std::system_error(failure, std::generic_category(), "cannot start '" + command.front() + "'");
    }
}

void AppProcess::copyOutput(int otherDescriptor, int milliseconds)
{
    std::array<pollfd, 3> polled{{{otherDescriptor, POLLIN, 0}}};
    std::transform(streams.begin(), streams.end(), polled.begin() + 1, [](const Stream& stream) {
        return stream.unwritten.empty() ? pollfd{stream.from.get(), POLLIN, 0} : pollfd{stream.to, POLLOUT, 0};
    });
    poll(polled.data(), polled.size(), milliseconds);
    for (std::size_t i = 0; i < streams.size(); ++i) {
        Stream& stream = streams[i];
        if (polled[i + 1].revents == 0) {
            continue;
        }
        if (stream.unwritten.empty()) {
            readWhatIsThere(stream);
        }
        const int error = writeSome(stream.to, stream.unwritten, 0);
        if (error == EPIPE) {
            stream.from.close(); // the application meets the same as if it had written there itself
        }
        stream.discarding |= error != 0; // a full disk, say: the application may go on, and the log does
    }
}

void AppProcess::readWhatIsThere(Stream& stream)
{
    int available = 0;
    ioctl(stream.from.get(), FIONREAD, &available);
    std::string bytes(static_cast<std::size_t>(available), '\0');
    if (read(stream.from.get(), bytes.data(), bytes.size()) <= 0) {
        stream.from.close();
        return;
    }
    log.append(stream.source, bytes);
    stream.unwritten += stream.discarding ? "" : bytes;
}

std::optional<AppState> AppProcess::takeEnd()
{
    std::optional<AppState> state;
    int status = 0;
    for (pid_t reaped = 0; (reaped = waitpid(-1, &status, WNOHANG)) > 0;) {
        if (reaped == pid && !ended) {
            ended = true;
            state = WIFSIGNALED(status) ? AppState{AppState::Phase::Killed, WTERMSIG(status)}
                                        : AppState{AppState::Phase::Exited, WEXITSTATUS(status)};
        }
    }
    for (Stream& stream : streams) {
        if (state) {
            readWhatIsThere(stream); // and no more, even if another process has it open
            stream.from.close();
            writeAll(stream.to, std::exchange(stream.unwritten, ""));
            log.endLine(stream.source);
        }
    }
    return state;
}

bool AppProcess::hasLeftOthers() const
{
    return ended && !children().empty();
}

void AppProcess::sendSignal(int number) const
{
    const auto isInGroup = [this](pid_t process) { return !ended && ownGroup && getpgid(process) == pid; };
    if (!ended) {
        kill(isInGroup(pid) ? -pid : pid, number);
    }
    for (const pid_t child : children()) {
        if (child != pid && !isInGroup(child)) {
            kill(child, number);
        }
    }
}

bool AppProcess::sharesProcessGroup() const
{
    return !ended && getpgid(pid) == getpgrp();
}

} // namespace panelsim
