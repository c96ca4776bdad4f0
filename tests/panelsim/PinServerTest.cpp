#include "panelsim/wire/PinServer.h"

#include "panelsim/board/BoardGpioFactory.h"
#include "sysfs/SysfsGpioFactory.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
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
        const auto [to, size] = socketAddress(server);
        FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET, 0), "socket");
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
        return std::to_string(error.code().value()) + ": " + error.what();
    } catch (const std::logic_error& error) {
        return std::string("logic: ") + error.what();
    } catch (const std::runtime_error& error) {
        return std::string("runtime: ") + error.what();
    }
}

TEST_F(PinServerTest, HasPinsThatFailAsThoseOfTheKernelDo)
{
    using Direction = PinDirectionEn;
    Board local{BoardConfig()};
    const BoardGpioFactory localFactory(local);
    const sysfs::SysfsGpioFactory remoteFactory;
    for (const auto& [tested, factory] :
         {std::pair<Board*, const sysfs::ISysfsGpioFactory&>(&local, localFactory), {board, remoteFactory}}) {
        Board& panel = *tested;
        const auto& pins = factory;
        panel.failPin({22, PinOperation::GetValue, 2, 2});
        panel.failPin({22, PinOperation::SetValue, 4, 1, PinFault::Kind::False});
        panel.failPin({{}, PinOperation::Create, 2});
        panel.failPin({23, {}, 1, {}, PinFault::Kind::False});
        const auto pin = pins.create();
        const auto on = [&](unsigned gpio) {
            auto made = pins.create();
            made->exportGpio(gpio);
            return made;
        };
        const auto level = [&] { return static_cast<unsigned>(panel.lineLevel(22)); };
        const std::pair<std::function<unsigned()>, std::string> cases[] = {
            {[&] { return pins.create() != nullptr; }, "runtime: pin factory: made to fail"},
            {[&] { return pin->getGpioNumber(); }, "logic: pin used before exportGpio"},
            {[&] { return pin->setValue(true); }, "logic: pin used before exportGpio"},
            {[&] { return on(99) != nullptr; }, "22: GPIO 99: no such GPIO on this board: Invalid argument"},
            {[&] { return pin->exportGpio(22), pin->getGpioNumber(); }, "22"},
            {[&] { return pin->exportGpio(22), 0; }, "logic: GPIO 22: this pin is already exported"},
            {[&] { return pin->setDirection(Direction::Output), 0; }, "logic: GPIO 22: setDirection before init"},
            {[&] { return on(22) != nullptr; },
             "16: GPIO 22: in use by another process or pin object: Device or resource busy"},
            {[&] { return pin->init(true, Direction::Input, false); }, "1"},
            {[&] { return pin->setValue(true); }, "1: GPIO 22: the line is an input: Operation not permitted"},
            {[&] { return level() + pin->getValue(); }, "3"}, // a floating line reads low
            {[&] { return pin->getValue(); }, "runtime: GPIO 22: made to fail"},
            {[&] { return pin->getValue(); }, "runtime: GPIO 22: made to fail"},
            {[&] { return pin->setDirection(Direction::Output), level() + pin->getValue(); }, "1"},
            {[&] { return pin->setValue(true) && level() == 0; }, "1"},
            {[&] { return pin->setDirection(Direction::Input), level(); }, "2"},
            {[&] { return pin->setDirection(Direction::Output), level(); }, "0"},
            {[&] { return pin->setValue(false); }, "1"},
            {[&] { return pin->setValue(true); }, "0"},
            {[&] { return pin->setDirection(Direction::Output), level(); }, "1"},
            {[&] { return pin->setValue(true) && level() == 0; }, "1"},
            {[&] { return pin->init(false, Direction::Output, true) && level() == 1; }, "1"},
            {[&] { return pin->deinit(), level(); }, "1"},
            {[&] { return pin->getGpioNumber(); }, "logic: pin used before exportGpio"},
            {[&] { return on(22) != nullptr; }, "1"},
            {[&] { return on(23)->init(false, Direction::Output, true); }, "0"},
            {[&] { return on(23)->init(false, Direction::Output, true); }, "0"},
            {[&] { return pin->exportGpio(22), pin->setDirection(Direction::Output), 0; },
             "logic: GPIO 22: setDirection before init"},
        };
        for (const auto& [action, outcome] : cases) {
            EXPECT_EQ(outcomeOf(action), outcome) << "case " << &outcome - &cases[0].second;
        }
        EXPECT_EQ(panel.claimedLines(), 1U);
    }
    EXPECT_EQ(local.pinOperations(), board->pinOperations());
}

TEST_F(PinServerTest, FreesTheLinesOfAProcessThatIsKilledAndOfNoOther)
{
    const auto mine = pinOn(20);
    EXPECT_EQ(inChild([] { pinOn(20); }), EBUSY);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(inChild([] {
                      pinOn(21)->init(false, PinDirectionEn::Output, true);
                      const auto held = pinOn(22);
                      raise(SIGKILL);
                  }),
                  -SIGKILL);
        EXPECT_NO_THROW(pinOn(22)) << "right after the end";
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
    EXPECT_EQ(outcomeOf([&] { return lost->getValue(); }), "19: this pin is gone: No such device");
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
    Request request;
    while (send(deaf.get(), &request, sizeof request, MSG_NOSIGNAL) > 0) {
    }
    request.version = 1;
    const Reply reply = ask(connection(), request);
    EXPECT_EQ(reply.text.data(), std::string("panelsim and its preloaded library are of different versions"));
    EXPECT_EQ(reply.outcome, Reply::Outcome::OtherError);
    const std::lock_guard<std::mutex> lock(complaintMutex);
    EXPECT_EQ(complaints, (isRoot ? "a connection of another user was refused\n" : std::string()) +
                              "a connection was closed that does not follow the protocol\n");
}

TEST_F(PinServerTest, StampsOperationsWithTheTimeOfTheApplication)
{
    std::vector<std::chrono::nanoseconds> seen;
    const FileDescriptor socket = connection();
    Request request;
    request.pin = ask(socket, request).value;
    request.operation = Request::Operation::Export;
    request.gpio = 27;
    request.output = 1;
    ask(socket, request);
    request.operation = Request::Operation::Init;
    board->observe([&](const LineChange& change) { seen.push_back(change.time); });
    seen.clear();
    const auto now = Board::steadyTime();
    for (const auto stamp : {now, now - std::chrono::hours(1), now + std::chrono::hours(1)}) {
        request.time = stamp.count();
        request.level ^= 1U;
        ask(socket, request);
    }
    board->observe(nullptr);
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_EQ(seen[0], now);
    EXPECT_EQ(seen[1], seen[0]) << "never back";
    EXPECT_GT(seen[2], seen[1]);
    EXPECT_LE(seen[2], Board::steadyTime()) << "never ahead";
}

} // namespace
