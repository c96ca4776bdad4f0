#include "panelsim/wire/PinServer.h"

#include "panelsim/board/BoardGpioFactory.h"
#include "panelsim/board/FileDescriptor.h"
#include "panelsim/wire/Protocol.h"
#include "panelsim/wire/RemoteGpio.h"
#include "panelsim/wire/StampedClock.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
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
        static Board servedBoard{BoardConfig(), [] { return clock.now(); }};
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

    static std::string takeComplaints()
    {
        const std::lock_guard<std::mutex> lock(complaintMutex);
        return std::exchange(complaints, {});
    }

    inline static StampedClock clock;
    inline static Board* board;
    inline static std::string address;
    inline static std::mutex complaintMutex;
    inline static std::string complaints;
};

std::unique_ptr<RemoteGpio> pinOn(unsigned gpio)
{
    auto pin = std::make_unique<RemoteGpio>();
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
    const auto nothing = [](const std::function<void()>& action) {
        return [action] {
            action();
            return 0U;
        };
    };
    const std::vector<std::function<unsigned()>> actions = {
        nothing([&] { create(); }),
        [&] { return pin->getGpioNumber(); },
        nothing([&] { pin->setValue(true); }),
        nothing([&] { pin->exportGpio(99); }),
        nothing([&] { pin->exportGpio(22); }),
        nothing([&] { pin->exportGpio(22); }),
        [&] { return pin->getGpioNumber(); },
        nothing([&] { pin->setDirection(PinDirectionEn::Output); }),
        nothing([&] { create()->exportGpio(22); }),
        [&] { return pin->init(true, PinDirectionEn::Input, true); },
        nothing([&] { pin->setValue(true); }),
        [&] { return pin->getValue(); },
        nothing([&] { pin->getValue(); }),
        nothing([&] { pin->setDirection(PinDirectionEn::Output); }),
        [&] { return pin->getValue() * 2U + (board.lineLevel(22) == LineLevel::Low); },
        [&] { return pin->setValue(false) * 1U; },
        [&] { return pin->setValue(false) * 1U; },
        [&] { return pin->init(false, PinDirectionEn::Output, true); },
        [&] { return pin->getValue() * 2U + (board.lineLevel(22) == LineLevel::High); },
        nothing([&] { pin->deinit(); }),
        nothing([&] { pin->deinit(); }),
        [&] { return pin->getGpioNumber(); },
        nothing([&] { create()->exportGpio(22); }),
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
    EXPECT_EQ(live(*board, [] { return std::make_unique<RemoteGpio>(); }), expected);
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
    EXPECT_EQ(inChild([&] { pin->init(false, PinDirectionEn::Output, true); }), 0);
    EXPECT_TRUE(pin->getValue());
    EXPECT_EQ(inChild([] { pinOn(20); }), EBUSY);

    auto lost = pinOn(21);
    EXPECT_EQ(inChild([&] { lost.reset(); }), 0);
    EXPECT_EQ(outcomeOf([&] { return lost->getValue(); }), "system error 19: this pin is gone: No such device");
    EXPECT_TRUE(pin->getValue()) << "others are not";
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
                  pinOn(21);
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

TEST_F(PinServerTest, ServesThreadsAtOnceWhosePinsOutliveThem)
{
    std::vector<std::unique_ptr<RemoteGpio>> pins(4);
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
    EXPECT_EQ(inChild([] { pinOn(20); }), EBUSY);
    for (const auto& pin : pins) {
        EXPECT_TRUE(pin->setValue(true));
    }
}

TEST_F(PinServerTest, StampsOperationsWithTheTimeOfTheApplication)
{
    std::chrono::nanoseconds seen{0};
    board->observe([&](const LineChange& change) { seen = change.time; });
    const auto pin = pinOn(20);
    const auto before = Board::steadyTime();
    pin->init(false, PinDirectionEn::Output, true);
    EXPECT_GE(seen, before);
    EXPECT_LE(seen, Board::steadyTime());
    board->observe(nullptr);

    const auto now = clock.now();
    {
        const StampedClock::Operation early{now - std::chrono::seconds(1)};
        EXPECT_EQ(clock.now(), now) << "never back";
    }
    const StampedClock::Operation late{now + std::chrono::hours(1)};
    EXPECT_LT(clock.now(), now + std::chrono::hours(1)) << "never ahead";
}

FileDescriptor connectTo(const std::string& name)
{
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    std::memcpy(to.sun_path + 1, name.data(), name.size());
    FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET, 0), "socket");
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    EXPECT_EQ(connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), size), 0);
    return socket;
}

TEST_F(PinServerTest, WaitsForNobodyWhoDoesNotReadItsReplies)
{
    const FileDescriptor socket = connectTo(address);
    const Greeting greeting;
    send(socket.get(), &greeting, sizeof greeting, 0);
    const Request create;
    while (send(socket.get(), &create, sizeof create, MSG_NOSIGNAL) > 0) {
    }
    shutdown(socket.get(), SHUT_WR);
    EXPECT_NO_THROW(pinOn(20));
    EXPECT_NE(takeComplaints().find("it does not read the replies\n"), std::string::npos);
}

TEST_F(PinServerTest, SendsAwayWhoDoesNotFollowTheProtocol)
{
    struct Case {
        const char* what;
        std::vector<std::string> packets;
        const char* complaint;
    };
    const auto bytes = [](const auto& message) {
        return std::string(reinterpret_cast<const char*>(&message), sizeof message);
    };
    const std::string hello = bytes(Greeting());
    Request unknownOperation;
    unknownOperation.operation = static_cast<Request::Operation>(99);
    const Case cases[] = {
        {"half a greeting", {hello.substr(1)}, "a packet of 23 bytes"},
        {"another greeting", {std::string(24, 'x')}, "an unknown greeting"},
        {"another version", {bytes(Greeting{greetingMagic, 2, 0, 0})}, "version 2"},
        {"half a request", {hello, "x"}, "a packet of 1 bytes"},
        {"a long request", {hello, std::string(100000, 'x')}, "a packet of 100000 bytes"},
        {"an unknown operation", {hello, bytes(unknownOperation)}, "there is no pin operation 99"},
    };
    for (const Case& c : cases) {
        const FileDescriptor socket = connectTo(address);
        for (const std::string& packet : c.packets) {
            EXPECT_EQ(send(socket.get(), packet.data(), packet.size(), 0), static_cast<ssize_t>(packet.size()));
        }
        char answer[sizeof(Reply) + longestErrorText];
        while (recv(socket.get(), answer, sizeof answer, 0) > 0) {
        }
        const std::string said = takeComplaints();
        EXPECT_EQ(said, "a connection that does not follow the protocol was closed: " + std::string(c.complaint) + "\n")
            << c.what;
    }
    EXPECT_NO_THROW(pinOn(20)) << "others go on";
}

TEST_F(PinServerTest, ComplainsOfTheFirstOfAFloodOnly)
{
    for (int i = 0; i < 100; ++i) {
        const FileDescriptor socket = connectTo(address);
        char byte = 'x';
        send(socket.get(), &byte, 1, 0);
        recv(socket.get(), &byte, 1, 0);
    }
    const std::string said = takeComplaints();
    EXPECT_LT(std::count(said.begin(), said.end(), '\n'), 50);
    EXPECT_NE(said.find("more of these are not reported\n"), std::string::npos);
}

} // namespace
