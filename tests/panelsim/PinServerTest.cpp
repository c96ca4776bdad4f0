#include "panelsim/wire/PinServer.h"

#include "sysfs/PinDirectionEn.h"
#include "sysfs/SysfsGpioFactory.h"

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <tuple>
#include <unistd.h>
#include <utility>

using namespace panelsim;
using sysfs::PinDirectionEn;
using testing::ExitedWithCode;
using Action = std::function<unsigned()>;

// Google Test warns of forks in a process with threads. Just these are tested.

/** A board and a server for all tests of the process, as an application has them: the connection lasts. */
struct PinService {
    PinService() { setenv(socketVariable, server.address().c_str(), 1); }

    Board board{BoardConfig()};
    std::string complaints; ///< complete when the server has replied to a later request
    const PinServer server{board, [this](const std::string& text) { complaints += text + "\n"; }};
};

static PinService& service()
{
    static PinService all;
    return all;
}

static std::unique_ptr<sysfs::ISysfsGpio> pinOn(unsigned gpio)
{
    auto pin = sysfs::SysfsGpioFactory().create();
    pin->exportGpio(gpio);
    return pin;
}

static std::string outcomeOf(const Action& action)
{
    try {
        return std::to_string(action());
    } catch (const std::logic_error& error) {
        return std::string("logic: ") + error.what();
    } catch (const std::runtime_error& error) { // of the system, with its own text for the errno value, or another
        return error.what();
    }
}

/** @return a connection that is not a pin's */
static FileDescriptor connection()
{
    const auto [to, size] = socketAddress(service().server.address());
    FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET, 0), "socket");
    connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), size);
    return socket;
}

/** @return the reply, without a value when the connection is closed */
static Reply ask(const FileDescriptor& socket, const Request& request)
{
    Reply reply;
    send(socket.get(), &request, sizeof request, MSG_NOSIGNAL);
    recv(socket.get(), &reply, sizeof reply, 0);
    return reply;
}

TEST(PinServerTest, HasPinsThatFailAsThoseOfTheKernelDo)
{
    Board& board = service().board;
    board.failPin({22, PinOperation::SetValue, 3, 1, PinFault::Kind::False});
    board.failPin({{}, PinOperation::Create, 2});
    const auto pin = sysfs::SysfsGpioFactory().create();
    const auto level = [&] { return static_cast<unsigned>(board.lineLevel(22)); };
    const auto turn = [&](PinDirectionEn direction) { return pin->setDirection(direction), level(); };
    const auto set = [&](bool value) { return pin->setValue(value) ? 10 + level() : 0; };
    const auto move = [&](unsigned gpio) { return pin->exportGpio(gpio), pin->getGpioNumber(); };
    const auto out = PinDirectionEn::Output;
    const auto in = PinDirectionEn::Input;
    const std::pair<Action, std::string> cases[] = {
        {[] { return pinOn(20) != nullptr; }, "pin factory: made to fail"},
        {[&] { return move(99); }, "GPIO 99: no such GPIO on this board: Invalid argument"},
        {[&] { return move(22); }, "22"},
        {[&] { return move(22); }, "logic: GPIO 22: this pin is already exported"},
        {[&] { return turn(out); }, "logic: GPIO 22: setDirection before init"},
        {[&] { return pin->init(true, in, false) + level(); }, "3"},
        {[&] { return set(true); }, "GPIO 22: the line is an input: Operation not permitted"},
        {[&] { return turn(out) + pin->getValue(); }, "1"},
        {[&] { return set(true) + pin->getValue(); }, "11"},
        {[&] { return turn(in); }, "2"},
        {[&] { return turn(out); }, "0"},
        {[&] { return set(false); }, "0"},
        {[&] { return pin->init(false, out, true) + level(); }, "2"},
        {[&] { return pin->deinit(), pin->getGpioNumber(); }, "logic: pin used before exportGpio"},
        {[&] { return move(22) + turn(out); }, "logic: GPIO 22: setDirection before init"}};
    for (const auto& [action, outcome] : cases) {
        EXPECT_EQ(outcomeOf(action), outcome) << "case " << &outcome - &cases[0].second;
    }
}

TEST(PinServerTest, OutlivesForkedAndKilledProcessesAndThoseThatCloseAllDescriptors)
{
    const Board& board = service().board;
    const auto mine = pinOn(20);
    auto lost = pinOn(23);
    const auto inUse = [] { return outcomeOf([] { return pinOn(20) != nullptr; }).find("busy") != std::string::npos; };
    const auto useThoseOfTheParent = [&] { return lost.reset(), mine->init(false, PinDirectionEn::Output, true); };
    EXPECT_EXIT(_exit(inUse() && useThoseOfTheParent() ? 7 : 0), ExitedWithCode(7), "");
    EXPECT_TRUE(mine->getValue());
    EXPECT_EQ(outcomeOf([&] { return lost->getValue(); }), "this pin is gone: No such device");
    const auto drive = [](unsigned gpio) { return pinOn(gpio)->init(false, PinDirectionEn::Output, true); };
    for (int i = 0; i < 20; ++i) {
        EXPECT_EXIT(const auto held = pinOn(22);
                    _exit(drive(21) && raise(SIGKILL)), testing::KilledBySignal(SIGKILL), "");
        EXPECT_NO_THROW(pinOn(22)) << "right after the end";
    }
    EXPECT_TRUE(board.view().leds[1]) << "stays as it was driven";
    EXPECT_EQ(board.claimedLines(), 1U);
    const auto workOnAsDaemon = [&] {
        drive(22); // so that this process has a connection of its own
        for (int descriptor = 3; descriptor < 1000; ++descriptor) {
            close(descriptor);
        }
        while (open("/dev/null", O_RDONLY | O_CLOEXEC) < 20) { // one takes the number of the connection
        }
        return drive(22);
    };
    EXPECT_EXIT(_exit(workOnAsDaemon()), ExitedWithCode(1), "");
}

TEST(PinServerTest, RefusesOtherUsersAndWhoDoesNotFollowTheProtocol)
{
    std::string expected = "a connection was closed that does not follow the protocol\n";
    service();
    if (geteuid() == 0) { // root may use the pins of others
        expected = "a connection of another user was refused\n" + expected;
        for (const auto& [own, peer, served] : {std::tuple(0U, 65534U, 0), {65534U, 0U, 1}, {65534U, 65534U, 1}}) {
            EXPECT_EQ(seteuid(own), 0);
            EXPECT_EXIT(_exit(seteuid(peer) == 0 && ask(connection(), {}).value != 0), ExitedWithCode(served), "");
            EXPECT_EQ(seteuid(0), 0);
        }
    }
    const FileDescriptor confused = connection();
    send(confused.get(), "x", 1, 0);
    EXPECT_EQ(ask(confused, {}).value, 0U);
    Request request;
    request.version = 1;
    const std::string mismatch = "panelsim and its preloaded library are of different versions";
    EXPECT_EQ(ask(connection(), request).text.data(), mismatch);
    EXPECT_EQ(service().complaints, expected);
}
