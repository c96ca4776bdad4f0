#include "panelsim/app/AppProcess.h"

#include "panelsim/board/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace panelsim {

namespace {

struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;
};

Pipe openPipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot open a pipe");
    }
    return {FileDescriptor(ends[0], ""), FileDescriptor(ends[1], "")};
}

pid_t spawn(const std::vector<std::string>& command, const sigset_t& mask, bool ownGroup, int output, int error)
{
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, error, STDERR_FILENO);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes, &mask);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    const int groupFlag = ownGroup ? POSIX_SPAWN_SETPGROUP : 0;
    posix_spawnattr_setflags(&attributes,
                             static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | groupFlag));

    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    pid_t pid = -1;
    const int failure = posix_spawnp(&pid, arguments.front(), &files, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (failure != 0) {
        throw std::system_error(failure, std::generic_category(), "cannot start '" + command.front() + "'");
    }
    return pid;
}

/** @return the children of this process, which the main thread has started or got; empty on kernels that do not say */
std::vector<pid_t> children()
{
    const std::string self = std::to_string(getpid());
    std::ifstream file("/proc/self/task/" + self + "/children");
    std::vector<pid_t> found;
    for (pid_t child = 0; file >> child;) {
        found.push_back(child);
    }
    return found;
}

} // namespace

AppProcess::AppProcess(const std::vector<std::string>& command, const sigset_t& mask, AppLog& log)
    : ownGroup(isatty(STDIN_FILENO) == 0)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    Pipe output = openPipe();
    Pipe error = openPipe();
    pid = spawn(command, mask, ownGroup, output.writing.get(), error.writing.get());
    copiers.emplace_back(std::move(output.reading), STDOUT_FILENO, LogLine::Source::Output, log);
    copiers.emplace_back(std::move(error.reading), STDERR_FILENO, LogLine::Source::Error, log);
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
            for (OutputCopier& copier : copiers) {
                copier.finish();
            }
            copiers.clear();
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
