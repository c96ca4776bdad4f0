#include "panelsim/wire/PinServer.h"

#include "panelsim/board/BoardGpioFactory.h"
#include "sysfs/SysfsGpioFactory.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using namespace panelsim;
using sysfs::PinDirectionEn;

/** A board and a server for all tests of the process, as an application has them: the connection lasts. */
class PinServerTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        static Board servedBoard{BoardConfig()};
        static const PinServer server(servedBoard, [](const std::string& text) {
            const std::lock_guard<std::mutex> lock(complaintMutex);
            complaints += text + "\n";
        });
        board = &servedBoard;
        address = server.address();
        setenv(socketVariable, address.c_str(), 1);
    }

    /** @return how a child process ended that did this, 0 for well */
    static int inChild(const std::function<void()>& work)
    {
        const pid_t pid = fork();
        if (pid == 0) {
            try {
                work();
                _exit(0);
            } catch (const std::system_error& error) {
                _exit(error.code().value());
            } catch (...) {
                _exit(255);
            }
        }
        int status = 0;
        waitpid(pid, &status, 0);
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }

    /** @return a connection that is not a pin's */
    static FileDescriptor connection(const std::string& server = address)
    {
        sockaddr_un to{};
        to.sun_family = AF_UNIX;
        server.copy(to.sun_path + 1, sizeof to.sun_path - 1);
        FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET, 0), "socket");
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + server.size());
        const timeval patience{20, 0};
        setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        EXPECT_EQ(connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), size), 0);
        return socket;
    }

    static Reply ask(const FileDescriptor& socket, const Request& request)
    {
        Reply reply;
        reply.value = 999;
        send(socket.get(), &request, sizeof request, MSG_NOSIGNAL);
        recv(socket.get(), &reply, sizeof reply, 0);
        return reply;
    }
    static bool isClosed(const FileDescriptor& socket)
    {
        char byte = 0;
        return recv(socket.get(), &byte, 1, 0) == 0;
    }

    inline static Board* board;
    inline static std::string address;
    inline static std::mutex complaintMutex;
    inline static std::string complaints;
};

std::unique_ptr<sysfs::ISysfsGpio> pinOn(unsigned gpio)
{
    auto pin = sysfs::SysfsGpioFactory().create();
    pin->exportGpio(gpio);
    return pin;
}

std::string outcomeOf(const std::function<unsigned()>& action)
{
    try {
        return std::to_string(action());
    } catch (const std::system_error& error) {
        return "system error " + std::to_string(error.code().value()) + ": " + error.what();
    } catch (const std::logic_error& error) {
        return std::string("logic error: ") + error.what();
    } catch (const std::runtime_error& error) {
        return std::string("runtime error: ") + error.what();
    }
}

TEST_F(PinServerTest, HasPinsThatFailAsThoseOfTheKernelDo)
{
    Board local{BoardConfig()};
    for (Board* const tested : {&local, board}) {
        const auto create = [&]() -> std::unique_ptr<sysfs::ISysfsGpio> {
            if (tested == &local) {
                return BoardGpioFactory(local).create();
            }
            return sysfs::SysfsGpioFactory().create();
        };
        tested->failPin({22, PinOperation::GetValue, 2, 2});
        tested->failPin({22, PinOperation::SetValue, 4, 1, PinFault::Kind::False});
        tested->failPin({{}, PinOperation::Create, 2});
        tested->failPin({23, {}, 1, {}, PinFault::Kind::False});
        const auto pin = create();
        const auto other = [&](unsigned gpio) {
            auto made = create();
            made->exportGpio(gpio);
            return made;
        };
        const auto level = [&](unsigned gpio) { return static_cast<unsigned>(tested->lineLevel(gpio)); };
        using Direction = PinDirectionEn;
        const std::pair<std::function<unsigned()>, std::string> cases[] = {
            {[&] { return create() != nullptr; }, "runtime error: pin factory: made to fail"},
            {[&] { return create() != nullptr; }, "1"},
            {[&] { return pin->getGpioNumber(); }, "logic error: pin used before exportGpio"},
            {[&] { return pin->setValue(true); }, "logic error: pin used before exportGpio"},
            {[&] { return pin->exportGpio(99), 0; },
             "system error 22: GPIO 99: no such GPIO on this board: Invalid argument"},
            {[&] { return pin->exportGpio(22), 0; }, "0"},
            {[&] { return pin->exportGpio(22), 0; }, "logic error: GPIO 22: this pin is already exported"},
            {[&] { return pin->getGpioNumber(); }, "22"},
            {[&] { return pin->setDirection(Direction::Output), 0; }, "logic error: GPIO 22: setDirection before init"},
            {[&] { return other(22) != nullptr; },
             "system error 16: GPIO 22: in use by another process or pin object: Device or resource busy"},
            {[&] { return pin->init(true, Direction::Input, false); }, "1"},
            {[&] { return pin->setValue(true); },
             "system error 1: GPIO 22: the line is an input: Operation not permitted"},
            {[&] { return level(22); }, "2"},
            {[&] { return pin->getValue(); }, "1"},
            {[&] { return pin->getValue(); }, "runtime error: GPIO 22: made to fail"},
            {[&] { return pin->getValue(); }, "runtime error: GPIO 22: made to fail"},
            {[&] { return pin->setDirection(Direction::Output), level(22); }, "1"},
            {[&] { return pin->getValue(); }, "0"},
            {[&] { return pin->setValue(true) && level(22) == 0; }, "1"},
            {[&] { return pin->setDirection(Direction::Input), level(22); }, "2"},
            {[&] { return pin->setDirection(Direction::Output), level(22); }, "0"},
            {[&] { return pin->setValue(false); }, "1"},
            {[&] { return pin->setValue(true); }, "0"},
            {[&] { return level(22); }, "1"},
            {[&] { return pin->setValue(true) && level(22) == 0; }, "1"},
            {[&] { return pin->init(false, Direction::Output, true) && level(22) == 1; }, "1"},
            {[&] { return pin->deinit(), level(22); }, "1"},
            {[&] { return pin->getGpioNumber(); }, "logic error: pin used before exportGpio"},
            {[&] { return other(22) != nullptr; }, "1"},
            {[&] { return other(23)->init(false, Direction::Output, true) || level(23) != 2; }, "0"},
            {[&] { return other(23)->init(false, Direction::Output, true); }, "0"},
            {[&] { return pin->exportGpio(22), pin->setDirection(Direction::Output), 0; },
             "logic error: GPIO 22: setDirection before init"},
            {[&] { return other(23)->init(false, Direction::Output, true); }, "1"},
        };
        for (const auto& [action, outcome] : cases) {
            EXPECT_EQ(outcomeOf(action), outcome) << "case " << &outcome - &cases[0].second;
        }
        EXPECT_EQ(tested->claimedLines(), 1U);
    }
    EXPECT_EQ(local.pinOperations(), board->pinOperations());
}

TEST_F(PinServerTest, FreesTheLinesOfAProcessThatIsKilledAndOfNoOther)
{
    const auto mine = pinOn(20);
    EXPECT_EQ(inChild([] { pinOn(20); }), EBUSY);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(inChild([] {
                      const auto pin = pinOn(21);
                      pin->init(false, PinDirectionEn::Output, true);
                      raise(SIGKILL);
                  }),
                  -SIGKILL);
        EXPECT_NO_THROW(pinOn(21)) << "right after the end";
    }
    EXPECT_TRUE(board->view().leds[1]) << "stays as it was driven";
    EXPECT_EQ(board->claimedLines(), 1U);
}

TEST_F(PinServerTest, LetsAForkedProcessGoOnWithThePins)
{
    const auto pin = pinOn(20);
    auto lost = pinOn(21);
    EXPECT_EQ(inChild([&] {
                  pin->init(false, PinDirectionEn::Output, true);
                  lost.reset();
                  _exit(inChild([] { pinOn(22); })); // a grandchild
              }),
              0);
    EXPECT_TRUE(pin->getValue());
    EXPECT_EQ(outcomeOf([&] { return lost->getValue(); }), "system error 19: this pin is gone: No such device");
}

TEST_F(PinServerTest, SurvivesAnApplicationThatClosesAllDescriptors)
{
    EXPECT_EQ(inChild([] {
                  pinOn(20);
                  for (int descriptor = 3; descriptor < 1000; ++descriptor) {
                      close(descriptor);
                  }
                  int pair[2];
                  while (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, pair) == 0 && pair[1] < 20) {
                  }
                  pinOn(20)->init(false, PinDirectionEn::Output, true);
                  char byte = 0;
                  for (int socket = 3; socket <= pair[1]; ++socket) {
                      if (recv(socket, &byte, 1, 0) >= 0 || errno != EAGAIN) {
                          _exit(1); // something came there that was meant for panelsim, or it was closed
                      }
                  }
              }),
              0);
}

TEST_F(PinServerTest, RefusesOtherUsersAndWhoDoesNotFollowTheProtocol)
{
    const bool isRoot = geteuid() == 0;
    if (isRoot) {
        EXPECT_EQ(inChild([] { _exit(setuid(65534) == 0 && isClosed(connection()) ? 42 : 1); }), 42);
        EXPECT_EQ(inChild([] { // root may use the pins of others
                      Board others{BoardConfig()};
                      const bool isOther = seteuid(65534) == 0;
                      const PinServer server(others, [](const std::string&) {});
                      const auto isServed = [&] { return ask(connection(server.address()), Request()).value != 999; };
                      const bool servesRoot = inChild([&] { _exit(seteuid(0) == 0 && isServed() ? 42 : 1); }) == 42;
                      _exit(isOther && servesRoot && isServed() ? 42 : 1);
                  }),
                  42);
    }
    const FileDescriptor confused = connection();
    send(confused.get(), "x", 1, 0);
    EXPECT_TRUE(isClosed(confused));
    const FileDescriptor deaf = connection();
    const Request create;
    while (send(deaf.get(), &create, sizeof create, MSG_NOSIGNAL) > 0) {
    }
    EXPECT_NO_THROW(pinOn(20)) << "others go on";
    Request old;
    old.version = 1;
    const Reply reply = ask(connection(), old);
    EXPECT_EQ(std::string(reply.text.data(), reply.textSize),
              "panelsim and its preloaded library are of different versions");
    EXPECT_EQ(reply.outcome, Reply::Outcome::OtherError);
    const std::lock_guard<std::mutex> lock(complaintMutex);
    EXPECT_EQ(complaints, (isRoot ? "a connection of another user was refused\n" : std::string()) +
                              "a connection was closed that does not follow the protocol\n");
}

TEST_F(PinServerTest, StampsOperationsWithTheTimeOfTheApplication)
{
    std::vector<std::chrono::nanoseconds> seen;
    board->observe([&](const LineChange& change) { seen.push_back(change.time); });
    const FileDescriptor socket = connection();
    Request request;
    request.pin = ask(socket, request).value;
    request.operation = Request::Operation::Export;
    request.gpio = 27;
    request.output = 1;
    ask(socket, request);
    request.operation = Request::Operation::Init;
    const auto before = Board::steadyTime();
    for (const std::chrono::nanoseconds stamp :
         {before, before - std::chrono::hours(1), before + std::chrono::hours(1)}) {
        request.time = stamp.count();
        request.level ^= 1U;
        ask(socket, request);
    }
    board->observe(nullptr);
    const std::size_t count = seen.size();
    EXPECT_EQ(seen.at(count - 3), before);
    EXPECT_EQ(seen.at(count - 2), before) << "never back";
    EXPECT_GT(seen.at(count - 1), before);
    EXPECT_LE(seen.at(count - 1), Board::steadyTime()) << "never ahead";
}

} // namespace
