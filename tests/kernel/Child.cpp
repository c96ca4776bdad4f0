#include "tests/kernel/Child.h"

#include <csignal>
#include <fstream>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

std::string contentOf(const panelsim::FileDescriptor& file)
{
    std::string content;
    char buffer[4096];
    ssize_t size = 0;
    while ((size = pread(file.get(), buffer, sizeof buffer, static_cast<off_t>(content.size()))) > 0) {
        content.append(buffer, static_cast<std::size_t>(size));
    }
    return content;
}

} // namespace

Child::Child(std::vector<std::string> command)
    : outputFile(memfd_create("output", MFD_CLOEXEC), "cannot make a file"),
      errorFile(memfd_create("error", MFD_CLOEXEC), "cannot make a file")
{
    std::vector<char*> arguments;
    for (std::string& word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, outputFile.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, errorFile.get(), STDERR_FILENO);
    const int failure = posix_spawnp(&pid, arguments[0], &files, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (failure != 0) {
        throw std::system_error(failure, std::generic_category(), "cannot start " + command[0]);
    }
}

Child::~Child()
{
    if (pid >= 0) {
        sendSignal(SIGKILL);
        wait();
    }
}

std::string Child::output() const
{
    return contentOf(outputFile);
}

bool Child::isInKernel() const
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string word;
    file >> word >> word >> word; // number, name, state
    return word == "D";
}

void Child::sendSignal(int number) const
{
    if (pid > 0) {
        kill(pid, number);
    }
}

Child::End Child::wait()
{
    int status = 0;
    waitpid(std::exchange(pid, -1), &status, 0);
    return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), output(), contentOf(errorFile)};
}
