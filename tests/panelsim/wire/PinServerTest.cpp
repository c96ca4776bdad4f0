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
    static FileDescriptor connection()
    {
        sockaddr_un to{};
        to.sun_family = AF_UNIX;
        address.copy(to.sun_path + 1, sizeof to.sun_path - 1);
        FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET, 0), "socket");
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + address.size());
        EXPECT_EQ(connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), size), 0);
        return socket;
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

/** @return the outcomes of all that may go well or wrong with a pin */
std::string live(Board& board, const std::function<std::unique_ptr<sysfs::ISysfsGpio>()>& create)
{
    board.failPin({22, PinOperation::GetValue, 2});
    board.failPin({22, PinOperation::SetValue, 3, 1, PinFault::Kind::False});
    board.failPin({{}, PinOperation::Create, 2});
    const auto pin = create();
    const auto level = [&] { return board.lineLevel(22) == LineLevel::High; };
    const std::vector<std::function<unsigned()>> actions = {
        [&] { return create() != nullptr; },
        [&] { return pin->getGpioNumber(); },
        [&] { return pin->setValue(true); },
        [&] { return pin->exportGpio(99), 0; },
        [&] { return pin->exportGpio(22), 0; },
        [&] { return pin->exportGpio(22), 0; },
        [&] { return pin->getGpioNumber(); },
        [&] { return pin->setDirection(PinDirectionEn::Output), 0; },
        [&] { return create()->exportGpio(22), 0; },
        [&] { return pin->init(true, PinDirectionEn::Input, true); },
        [&] { return pin->setValue(true); },
        [&] { return pin->getValue(); },
        [&] { return pin->getValue(); },
        [&] { return pin->setDirection(PinDirectionEn::Output), level(); },
        [&] { return pin->getValue(); },
        [&] { return pin->setValue(false); },
        [&] { return pin->setValue(false); },
        [&] { return pin->init(false, PinDirectionEn::Output, true) && level(); },
        [&] { return pin->deinit(), 0; },
        [&] { return pin->getGpioNumber(); },
        [&] { return create()->exportGpio(22), 0; },
    };
    std::string outcomes;
    for (const auto& action : actions) {
        outcomes += outcomeOf(action) + "\n";
    }
    board.clearPinFaults();
    return outcomes;
}

TEST_F(PinServerTest, GivesPinsThatFailAsThoseOfTheBoardDo)
{
    Board local{BoardConfig()};
    const std::string expected = live(local, [&] { return BoardGpioFactory(local).create(); });
    EXPECT_NE(expected.find("system error 16: GPIO 22: in use"), std::string::npos) << expected;
    EXPECT_EQ(live(*board, [] { return sysfs::SysfsGpioFactory().create(); }), expected);
    EXPECT_EQ(board->claimedLines(), 0U);
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

TEST_F(PinServerTest, ServesThreadsWhosePinsOutliveThem)
{
    std::vector<std::unique_ptr<sysfs::ISysfsGpio>> pins(4);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < pins.size(); ++i) {
        threads.emplace_back([&pin = pins[i], i] {
            pin = pinOn(20 + i);
            pin->init(i % 2 == 0, PinDirectionEn::Output, false);
            for (unsigned n = 0; n < 200; ++n) {
                pin->setValue(n % 3 == 0);
                EXPECT_EQ(pin->getValue(), n % 3 == 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(pins[3]->setValue(true));
}

TEST_F(PinServerTest, RefusesOtherUsersAndWhoDoesNotFollowTheProtocol)
{
    if (geteuid() == 0) {
        EXPECT_EQ(inChild([] {
                      char byte = 0;
                      const bool isOther = setuid(65534) == 0;
                      const FileDescriptor silent = connection();
                      _exit(isOther && recv(silent.get(), &byte, 1, 0) == 0 ? 42 : 1);
                  }),
                  42);
    }
    const FileDescriptor confused = connection();
    char byte = 'x';
    send(confused.get(), &byte, 1, 0);
    EXPECT_EQ(recv(confused.get(), &byte, 1, 0), 0);
    const FileDescriptor deaf = connection();
    const Request create;
    while (send(deaf.get(), &create, sizeof create, MSG_NOSIGNAL) > 0) {
    }
    EXPECT_NO_THROW(pinOn(20)) << "others go on";
    Request old;
    old.version = 1;
    const FileDescriptor outdated = connection();
    send(outdated.get(), &old, sizeof old, 0);
    Reply reply;
    recv(outdated.get(), &reply, sizeof reply, 0);
    EXPECT_EQ(std::string(reply.text.data(), reply.textSize),
              "panelsim and its preloaded library are of different versions");
    const std::lock_guard<std::mutex> lock(complaintMutex);
    EXPECT_EQ(complaints, (geteuid() == 0 ? "a connection of another user was refused\n" : std::string()) +
                              "a connection was closed that does not follow the protocol\n");
}

TEST_F(PinServerTest, StampsOperationsWithTheTimeOfTheApplication)
{
    std::vector<std::chrono::nanoseconds> seen;
    board->observe([&](const LineChange& change) { seen.push_back(change.time); });
    const FileDescriptor socket = connection();
    Request request;
    Reply reply;
    const auto perform = [&](Request::Operation operation) {
        request.operation = operation;
        send(socket.get(), &request, sizeof request, 0);
        recv(socket.get(), &reply, sizeof reply, 0);
    };
    perform(Request::Operation::Create);
    request.pin = reply.value;
    request.gpio = 27;
    request.output = 1;
    perform(Request::Operation::Export);
    const auto before = Board::steadyTime();
    for (const std::chrono::nanoseconds stamp :
         {before, before - std::chrono::hours(1), before + std::chrono::hours(1)}) {
        request.time = stamp.count();
        request.level = request.level == 0 ? 1 : 0;
        perform(Request::Operation::Init);
    }
    board->observe(nullptr);
    const std::size_t count = seen.size();
    EXPECT_EQ(seen.at(count - 3), before);
    EXPECT_EQ(seen.at(count - 2), before) << "never back";
    EXPECT_GT(seen.at(count - 1), before);
    EXPECT_LE(seen.at(count - 1), Board::steadyTime()) << "never ahead";
}

} // namespace
