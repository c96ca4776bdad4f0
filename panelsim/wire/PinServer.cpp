#include "panelsim/wire/PinServer.h"

#include "panelsim/board/BoardGpioFactory.h"
#include "sysfs/PinDirectionEn.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <exception>
#include <poll.h>
#include <random>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace panelsim {

namespace {

constexpr std::size_t mostConnections = 256; ///< of processes; panelsim needs descriptors for its page, too

std::string newSocketName()
{
    return "panelsim-" + std::to_string(getpid()) + "-" + std::to_string(std::random_device()());
}

FileDescriptor listenAt(const std::string& name)
{
    const auto [address, size] = socketAddress(name);
    FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "cannot open a socket for pins");
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        listen(socket.get(), SOMAXCONN) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot listen for pins");
    }
    return socket;
}

/** Names in the abstract namespace are open to every user of the machine. */
bool isOfSameUser(int connection)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           (peer.uid == geteuid() || peer.uid == 0);
}

sysfs::PinDirectionEn directionOf(const Request& request)
{
    return request.output != 0 ? sysfs::PinDirectionEn::Output : sysfs::PinDirectionEn::Input;
}

Reply failure(Reply::Outcome outcome, const std::string& text, int error = 0)
{
    Reply reply;
    reply.outcome = outcome;
    reply.error = error;
    reply.textSize = static_cast<std::uint16_t>(text.copy(reply.text.data(), reply.text.size()));
    return reply;
}

/** @return the text that the error was made with, without the system's own that follows it */
std::string textOf(const std::system_error& error)
{
    const std::string text = error.what();
    return text.substr(0, text.rfind(": " + error.code().message()));
}

} // namespace

PinServer::PinServer(Board& itsBoard, Complain itsComplain)
    : board(itsBoard), complain(std::move(itsComplain)), name(newSocketName()), listener(listenAt(name)),
      stopEvent(eventfd(0, EFD_CLOEXEC), "cannot open an event"), thread([this] { serve(); })
{
}

PinServer::~PinServer()
{
    eventfd_write(stopEvent.get(), 1);
    thread.join();
}

void PinServer::complainOnce(const std::string& text)
{
    if (complaints.insert(text).second) {
        complain(text);
    }
}

void PinServer::serve()
{
    std::vector<pollfd> polled;
    while (true) {
        polled = {{stopEvent.get(), POLLIN, 0}, {listener.get(), POLLIN, 0}};
        for (const auto& connection : connections) {
            polled.push_back({connection.first, POLLIN, 0});
        }
        poll(polled.data(), polled.size(), -1);
        if (polled[0].revents != 0) {
            return;
        }
        // Those that have ended come first: they must not hold lines that others request now.
        for (const pollfd& each : polled) {
            if ((each.revents & POLLHUP) != 0) {
                drop(each.fd);
            }
        }
        for (const pollfd& each : polled) {
            if (each.revents != 0 && connections.count(each.fd) != 0 && !answer(each.fd)) {
                drop(each.fd);
            }
        }
        if (polled[1].revents != 0) {
            accept();
        }
    }
}

void PinServer::accept()
{
    const int number = accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (number < 0) {
        complainOnce("cannot take a connection of the application: " + std::generic_category().message(errno));
        // Out of descriptors, say: the connection waits, and would be tried again at once.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return;
    }
    FileDescriptor connection(number, "");
    if (!isOfSameUser(number)) {
        complainOnce("a connection of another user was refused");
    } else if (connections.size() >= mostConnections) {
        complainOnce("an application was refused: " + std::to_string(mostConnections) + " processes use pins already");
    } else {
        connections[number] = std::move(connection);
    }
}

void PinServer::drop(int connection)
{
    for (auto pin = pins.begin(); pin != pins.end();) {
        pin = pin->second.owner == connection ? pins.erase(pin) : std::next(pin);
    }
    connections.erase(connection);
}

/** @return whether the connection goes on */
bool PinServer::answer(int connection)
{
    Request request;
    const ssize_t received = recv(connection, &request, sizeof request, MSG_TRUNC | MSG_DONTWAIT);
    if (received != sizeof request) {
        if (received > 0) {
            complainOnce("a connection was closed that does not follow the protocol");
        }
        return received < 0 && (errno == EINTR || errno == EAGAIN);
    }
    const Reply reply = perform(connection, request);
    // Who does not read the replies is not waited for.
    return send(connection, &reply, replySizeWithoutText + reply.textSize, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0;
}

Reply PinServer::perform(int connection, const Request& request)
{
    if (request.version != protocolVersion) {
        return failure(Reply::Outcome::OtherError, "panelsim and its preloaded library are of different versions");
    }
    Reply reply;
    board.setOperationTime(std::chrono::nanoseconds(request.time));
    try {
        const auto pin = pins.find(request.pin);
        if (request.operation == Request::Operation::Create) {
            auto gpio = BoardGpioFactory(board).create();
            reply.value = ++lastPin;
            pins[lastPin] = {std::move(gpio), connection};
        } else if (pin != pins.end()) {
            reply.value = performOn(pin->second, request);
        } else if (request.operation != Request::Operation::Destroy) {
            // Another process destroyed it, or it was lost when the application closed all descriptors.
            throw std::system_error(ENODEV, std::generic_category(), "this pin is gone");
        }
    } catch (const std::system_error& error) {
        reply = failure(Reply::Outcome::SystemError, textOf(error), error.code().value());
    } catch (const std::logic_error& error) {
        reply = failure(Reply::Outcome::LogicError, error.what());
    } catch (const std::exception& error) {
        reply = failure(Reply::Outcome::OtherError, error.what());
    }
    board.setOperationTime(std::nullopt);
    return reply;
}

std::uint32_t PinServer::performOn(Pin& pin, const Request& request)
{
    switch (request.operation) {
    case Request::Operation::Export:
        pin.gpio->exportGpio(request.gpio);
        return 0;
    case Request::Operation::Init:
        return pin.gpio->init(request.inverted != 0, directionOf(request), request.level != 0) ? 1 : 0;
    case Request::Operation::Deinit:
        pin.gpio->deinit();
        return 0;
    case Request::Operation::SetDirection:
        pin.gpio->setDirection(directionOf(request));
        return 0;
    case Request::Operation::SetValue:
        return pin.gpio->setValue(request.level != 0) ? 1 : 0;
    case Request::Operation::GetValue:
        return pin.gpio->getValue() ? 1 : 0;
    case Request::Operation::Destroy:
        pins.erase(request.pin);
        return 0;
    case Request::Operation::Create:
        break; // has no pin yet
    }
    throw std::invalid_argument("there is no such pin operation");
}

} // namespace panelsim
