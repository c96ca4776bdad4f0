#include "panelsim/wire/PinServer.h"

#include "sysfs/PinDirectionEn.h"
#include "sysfs/SysfsGpioFactory.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <system_error>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

using namespace panelsim;
using sysfs::PinDirectionEn;
using Action = std::function<unsigned()>;
using Operation = Request::Operation;

/** A board and a server for all tests of the process, as an application has them: the connection lasts. */
struct PinService {
    PinService() { setenv(socketVariable, server.address().c_str(), 1); }

    Board board{BoardConfig()};
    std::mutex mutex;
    std::string complaints;
    const PinServer server{board, [this](const std::string& text) {
                               const std::lock_guard<std::mutex> lock(mutex);
                               complaints += text + "\n";
                           }};
};

PinService& service()
{
    static PinService all;
    return all;
}

std::unique_ptr<sysfs::ISysfsGpio> pinOn(unsigned gpio)
{
    auto pin = sysfs::SysfsGpioFactory().create();
    pin->exportGpio(gpio);
    return pin;
}

std::string outcomeOf(const Action& action)
{
    try {
        return std::to_string(action());
    } catch (const std::system_error& error) {
        return std::to_string(error.code().value()) + ": " + error.what();
    } catch (const std::logic_error& error) {
        return std::string("logic: ") + error.what();
    } catch (const std::exception& error) {
        return std::string("other: ") + error.what();
    }
}

/** @return what the action returns in a child process, or the errno value that it throws, or -N when signal N ends it
 */
int inChild(const Action& action)
{
    service(); // by the parent
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(std::stoi(outcomeOf(action)));
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

/** @return a connection that is not a pin's */
FileDescriptor connection()
{
    const auto [to, size] = socketAddress(service().server.address());
    FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET, 0), "socket");
    const timeval patience{20, 0};
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    EXPECT_EQ(connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), size), 0);
    return socket;
}

/** @return the reply, or none when the connection is closed */
std::optional<Reply> receive(const FileDescriptor& socket)
{
    Reply reply;
    const bool isOpen = recv(socket.get(), &reply, sizeof reply, 0) != 0;
    return isOpen ? std::optional(reply) : std::nullopt;
}

Reply ask(const FileDescriptor& socket, const Request& request)
{
    send(socket.get(), &request, sizeof request, MSG_NOSIGNAL);
    return receive(socket).value();
}

TEST(PinServerTest, HasPinsThatFailAsThoseOfTheKernelDo)
{
    Board& board = service().board;
    board.failPin({22, PinOperation::GetValue, 2, 1});
    board.failPin({22, PinOperation::SetValue, 4, 1, PinFault::Kind::False});
    board.failPin({{}, PinOperation::Create, 2});
    board.failPin({23, {}, 1, {}, PinFault::Kind::False});
    const auto pin = sysfs::SysfsGpioFactory().create();
    const auto level = [&] { return static_cast<unsigned>(board.lineLevel(22)); };
    const auto turn = [&](PinDirectionEn direction) { return pin->setDirection(direction), level(); };
    const auto set = [&](bool value) { return pin->setValue(value) ? 10 + level() : 0; };
    const auto move = [&](unsigned gpio) { return pin->exportGpio(gpio), pin->getGpioNumber(); };
    const auto out = PinDirectionEn::Output;
    const auto in = PinDirectionEn::Input;
    const std::pair<Action, std::string> cases[] = {
        {[] { return pinOn(20) != nullptr; }, "other: pin factory: made to fail"},
        {[&] { return set(true); }, "logic: pin used before exportGpio"},
        {[&] { return move(99); }, "22: GPIO 99: no such GPIO on this board: Invalid argument"},
        {[&] { return move(22); }, "22"},
        {[&] { return move(22); }, "logic: GPIO 22: this pin is already exported"},
        {[&] { return turn(out); }, "logic: GPIO 22: setDirection before init"},
        {[] { return pinOn(22) != nullptr; },
         "16: GPIO 22: in use by another process or pin object: Device or resource busy"},
        {[&] { return pin->init(true, in, false) + level(); }, "3"},
        {[&] { return set(true); }, "1: GPIO 22: the line is an input: Operation not permitted"},
        {[&] { return pin->getValue(); }, "1"}, // a floating line reads low
        {[&] { return pin->getValue(); }, "other: GPIO 22: made to fail"},
        {[&] { return turn(out) + pin->getValue(); }, "1"},
        {[&] { return set(true); }, "10"},
        {[&] { return turn(in); }, "2"},
        {[&] { return turn(out); }, "0"},
        {[&] { return set(false); }, "11"},
        {[&] { return set(true); }, "0"},
        {[&] { return turn(out); }, "1"},
        {[&] { return pin->init(false, out, true) + level(); }, "2"},
        {[&] { return pin->deinit(), pin->getGpioNumber(); }, "logic: pin used before exportGpio"},
        {[&] { return move(22) + turn(out); }, "logic: GPIO 22: setDirection before init"},
        {[&] { return pinOn(23)->init(false, out, true); }, "0"},
        {[&] { return level() + board.claimedLines(); }, "2"}};
    for (const auto& [action, outcome] : cases) {
        EXPECT_EQ(outcomeOf(action), outcome) << "case " << &outcome - &cases[0].second;
    }
}

TEST(PinServerTest, OutlivesForkedAndKilledProcessesAndThoseThatCloseAllDescriptors)
{
    const Board& board = service().board;
    const auto mine = pinOn(20);
    auto lost = pinOn(23);
    EXPECT_EQ(inChild([] { return pinOn(20) != nullptr; }), EBUSY);
    EXPECT_EQ(inChild([&] {
                  lost.reset();
                  mine->init(false, PinDirectionEn::Output, true);
                  return inChild([] { return pinOn(22) != nullptr; }); // in a grandchild
              }),
              1);
    EXPECT_TRUE(mine->getValue());
    EXPECT_EQ(outcomeOf([&] { return lost->getValue(); }), "19: this pin is gone: No such device");
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(inChild([] {
                      const auto held = pinOn(22);
                      return pinOn(21)->init(false, PinDirectionEn::Output, true) ? raise(SIGKILL) : 0;
                  }),
                  -SIGKILL);
        EXPECT_NO_THROW(pinOn(22)) << "right after the end";
    }
    EXPECT_TRUE(board.view().leds[1]) << "stays as it was driven";
    EXPECT_EQ(board.claimedLines(), 1U);
    EXPECT_EQ(inChild([] {
                  for (int descriptor = 3; descriptor < 1000; ++descriptor) {
                      close(descriptor);
                  }
                  int pair[2];
                  while (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, pair) == 0 && pair[1] < 20) {
                  }
                  char byte = 0;
                  unsigned untouched = pinOn(22)->init(false, PinDirectionEn::Output, true) ? 0 : 100;
                  for (int socket = 3; socket <= pair[1]; ++socket) { // nothing came there that was for panelsim
                      untouched += recv(socket, &byte, 1, 0) < 0 && errno == EAGAIN;
                  }
                  return untouched;
              }),
              18);
}

TEST(PinServerTest, RefusesOtherUsersAndWhoDoesNotFollowTheProtocol)
{
    std::string expected = "a connection was closed that does not follow the protocol\n";
    if (geteuid() == 0) { // root may use the pins of others
        expected = "a connection of another user was refused\n" + expected;
        for (const auto& [own, peer, served] : {std::tuple(0U, 65534U, 0), {65534U, 0U, 1}, {65534U, 65534U, 1}}) {
            EXPECT_EQ(seteuid(own), 0);
            EXPECT_EQ(inChild([&, id = peer, greets = served] {
                          const bool isPeer = seteuid(id) == 0;
                          const FileDescriptor socket = connection();
                          return greets ? isPeer && ask(socket, {}).value != 0 : receive(socket).has_value();
                      }),
                      served);
            EXPECT_EQ(seteuid(0), 0);
        }
    }
    const FileDescriptor confused = connection();
    send(confused.get(), "x", 1, 0);
    EXPECT_FALSE(receive(confused));
    const FileDescriptor deaf = connection();
    Request request;
    while (send(deaf.get(), &request, sizeof request, MSG_NOSIGNAL) > 0) {
    }
    request.version = 1;
    const Reply reply = ask(connection(), request);
    EXPECT_EQ(reply.text.data(), std::string("panelsim and its preloaded library are of different versions"));
    EXPECT_EQ(reply.outcome, Reply::Outcome::OtherError);
    const std::lock_guard<std::mutex> lock(service().mutex);
    EXPECT_EQ(service().complaints, expected);
}

TEST(PinServerTest, StampsOperationsWithTheTimeOfTheApplication)
{
    std::vector<std::chrono::nanoseconds> seen;
    const FileDescriptor socket = connection();
    const std::uint32_t pin = ask(socket, {}).value;
    ask(socket, {Operation::Export, pin, 27});
    ask(socket, {Operation::Init, pin, 0, 0, 1});
    service().board.observe([&](const LineChange& change) { seen.push_back(change.time); });
    seen.clear();
    const auto now = Board::steadyTime();
    std::uint8_t level = 0;
    for (const auto stamp : {now, now - std::chrono::hours(1), now + std::chrono::hours(1)}) {
        ask(socket, {Operation::SetValue, pin, 0, level ^= 1U, 0, 0, protocolVersion, stamp.count()});
    }
    service().board.observe(nullptr);
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_TRUE(seen[0] == now && seen[1] == now) << "never back";
    EXPECT_TRUE(seen[2] > now && seen[2] <= Board::steadyTime()) << "never ahead";
}

} // namespace
