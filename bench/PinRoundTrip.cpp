/*
 * What a pin operation through panelsim costs, against the least that it could: one byte to another process and back
 * over a Unix socket pair. Both are measured in turns in one run, since machines change their speed; the ratio counts.
 * Where the scheduler puts the two processes makes a multiple of the time, so each placement is measured on its own.
 * Prints a line for each row, with tabs between the row's name, its time and that of the byte, both in nanoseconds.
 */
#include "bench/Timing.h"
#include "panelsim/board/Board.h"
#include "panelsim/board/BoardConfig.h"
#include "panelsim/wire/PinServer.h"
#include "panelsim/wire/Protocol.h"
#include "sysfs/PinDirectionEn.h"
#include "sysfs/SysfsGpioFactory.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <iterator>
#include <sched.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int rounds = 200;
constexpr int operationsInRound = 500;
constexpr unsigned led = 20;
constexpr unsigned chipSelect = 49;

using Work = std::function<void(int i)>;

void check(bool ok, const char* what)
{
    if (!ok) {
        std::perror(what);
        std::exit(1);
    }
}

void stayOn(int processor)
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(static_cast<unsigned>(processor), &processors);
    check(sched_setaffinity(0, sizeof processors, &processors) == 0, "cannot choose a processor");
}

/** A process of its own, for as long as the object lives. */
class Peer {
public:
    Peer(int processor, const std::function<void()>& work) : pid(fork())
    {
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // also when this process leaves at once
            stayOn(processor);
            work();
            _exit(0);
        }
    }
    ~Peer()
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

private:
    pid_t pid;
};

void echoBytes(int socket)
{
    char byte = 0;
    while (read(socket, &byte, 1) == 1 && write(socket, &byte, 1) == 1) {
    }
}

void serveBoard(int addressTo)
{
    panelsim::Board board{panelsim::BoardConfig()};
    const panelsim::PinServer server(board, [](const std::string& text) { std::cerr << text << "\n"; });
    check(write(addressTo, server.address().c_str(), server.address().size()) > 0, "cannot pass the address on");
    while (true) {
        pause();
    }
}

/** @return the processors that this process may run on */
std::vector<int> processors()
{
    cpu_set_t allowed;
    check(sched_getaffinity(0, sizeof allowed, &allowed) == 0, "cannot see the processors");
    std::vector<int> found;
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
        if (CPU_ISSET(static_cast<unsigned>(processor), &allowed)) {
            found.push_back(processor);
        }
    }
    return found;
}

void compare(int ownProcessor, int peerProcessor)
{
    stayOn(ownProcessor);
    std::array<int, 2> pair{};
    std::array<int, 2> addressPipe{};
    check(socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()) == 0 && pipe(addressPipe.data()) == 0, "cannot connect");
    const Peer echo(peerProcessor, [&] { echoBytes(pair[1]); });
    const Peer simulator(peerProcessor, [&] { serveBoard(addressPipe[1]); });
    std::array<char, 100> address{};
    check(read(addressPipe[0], address.data(), address.size() - 1) > 0, "the board did not come up");
    setenv(panelsim::socketVariable, address.data(), 1);

    const auto ledPin = sysfs::SysfsGpioFactory().create();
    ledPin->exportGpio(led);
    ledPin->init(false, sysfs::PinDirectionEn::Output, false);
    const auto lcdPin = sysfs::SysfsGpioFactory().create();
    lcdPin->exportGpio(chipSelect);
    lcdPin->init(true, sysfs::PinDirectionEn::Output, false);

    struct Row {
        const char* what;
        Work work;
        std::vector<double> times = {};
    };
    Row rows[] = {
        {"one byte over a socket pair and back",
         [&](int) {
             char byte = 0;
             check(write(pair[0], &byte, 1) == 1 && read(pair[0], &byte, 1) == 1, "the echo failed");
         }},
        {"LED switched through panelsim", [&](int i) { ledPin->setValue(i % 2 == 0); }},
        {"LCD chip select switched through panelsim", [&](int i) { lcdPin->setValue(i % 2 == 0); }},
        {"LED read through panelsim", [&](int) { ledPin->getValue(); }},
    };
    for (int round = 0; round < rounds; ++round) {
        for (Row& row : rows) {
            row.times.push_back(bench::nanosecondsEach(operationsInRound, row.work));
        }
    }
    const double floor = bench::median(rows[0].times);
    for (std::size_t i = 1; i < std::size(rows); ++i) {
        std::printf("%s, both processes on %s\t%.1f\t%.1f\n", rows[i].what,
                    peerProcessor == ownProcessor ? "one processor" : "a processor each", bench::median(rows[i].times),
                    floor);
    }
}

} // namespace

int main()
{
    // A process for each placement: the connection to panelsim is the process's.
    const std::vector<int> available = processors();
    for (std::size_t peer = 0; peer < std::min<std::size_t>(available.size(), 2); ++peer) {
        const pid_t pid = fork();
        if (pid == 0) {
            try {
                compare(available[0], available[peer]);
                return 0;
            } catch (const std::exception& error) {
                std::cerr << "pin-round-trip: " << error.what() << "\n";
                return 1;
            }
        }
        int status = 0;
        if (waitpid(pid, &status, 0) != pid || status != 0) {
            return 1;
        }
    }
    return 0;
}
