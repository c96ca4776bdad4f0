#include "panelsim/app/AppProcess.h"

#include "panelsim/board/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
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

/** @return pointers to the texts, with a null one behind them, as the exec functions have it */
std::vector<char*> pointersTo(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

pid_t spawn(const AppProcess::Start& start, bool ownGroup, int output, int error)
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
    posix_spawnattr_setsigmask(&attributes, &start.signalMask);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    const int groupFlag = ownGroup ? POSIX_SPAWN_SETPGROUP : 0;
    posix_spawnattr_setflags(&attributes,
                             static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | groupFlag));

    pid_t pid = -1;
    const int failure = posix_spawnp(&pid, start.command.front().c_str(), &files, &attributes,
                                     pointersTo(start.command).data(), pointersTo(start.environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (failure != 0) {
        throw std::system_error(failure, std::generic_category(), "cannot start '" + start.command.front() + "'");
    }
    return pid;
}

} // namespace

AppProcess::AppProcess(const Start& start, AppLog& log) : ownGroup(isatty(STDIN_FILENO) == 0)
{
    Pipe outputPipe = openPipe();
    Pipe errorPipe = openPipe();
    pid = spawn(start, ownGroup, outputPipe.writing.get(), errorPipe.writing.get());
    output = std::make_unique<OutputCopier>(std::move(outputPipe.reading), STDOUT_FILENO, LogLine::Source::Output, log);
    error = std::make_unique<OutputCopier>(std::move(errorPipe.reading), STDERR_FILENO, LogLine::Source::Error, log);
}

AppProcess::~AppProcess() = default;

std::optional<AppState> AppProcess::takeEnd()
{
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, WNOHANG) == 0) {
        return std::nullopt;
    }
    pid = -1;
    output.reset();
    error.reset();
    if (WIFSIGNALED(status)) {
        return AppState{AppState::Phase::Killed, WTERMSIG(status)};
    }
    return AppState{AppState::Phase::Exited, WEXITSTATUS(status)};
}

void AppProcess::sendSignal(int number) const
{
    if (pid >= 0) {
        kill(ownGroup ? -pid : pid, number);
    }
}

bool AppProcess::sharesProcessGroup() const
{
    return pid >= 0 && getpgid(pid) == getpgrp();
}

} // namespace panelsim
