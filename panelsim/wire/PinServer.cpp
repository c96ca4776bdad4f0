#include "panelsim/wire/PinServer.h"

#include "panelsim/wire/StampedClock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <poll.h>
#include <random>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace panelsim {

namespace {

/** Connections beyond the number that is served, which get an answer that says so. */
constexpr std::size_t mostRefusals = 16;

/** Who connects and says nothing, whichever user that is, must not keep a place for long. */
constexpr int greetingPatience = 5000; // milliseconds

constexpr std::chrono::seconds departurePatience(2);

constexpr unsigned mostComplaints = 20;

std::uint64_t randomNumber()
{
    std::random_device device;
    return std::uint64_t{device()} << 32U | device();
}

std::string newSocketName()
{
    return "panelsim-" + std::to_string(getpid()) + "-" + std::to_string(randomNumber());
}

FileDescriptor listenAt(const std::string& name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // After the zero byte that says so, the name is in the abstract namespace: nothing is left behind by a crash.
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
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

/** @return a whole packet of that type, empty when the peer has closed or sent anything else */
template <typename Message>
std::optional<Message> receive(int connection)
{
    Message message;
    ssize_t received = 0;
    do {
        received = recv(connection, &message, sizeof message, MSG_TRUNC);
    } while (received < 0 && errno == EINTR);
    if (received > 0 && received != sizeof message) {
        throw std::invalid_argument("a packet of " + std::to_string(received) + " bytes");
    }
    return received == sizeof message ? std::optional<Message>(message) : std::nullopt;
}

/**
 * @return whether the peer took it
 * @throws std::invalid_argument when it has not read those before: it has one request under way at a time, if it
 * follows the protocol, and nobody is to wait for one that does not
 */
bool answer(int connection, Reply reply, const std::string& text = {})
{
    std::array<char, sizeof(Reply) + longestErrorText> packet{};
    const std::size_t textSize = std::min(text.size(), longestErrorText);
    std::memcpy(packet.data(), &reply, sizeof reply);
    std::copy_n(text.begin(), textSize, packet.begin() + sizeof reply);
    const ssize_t sent = send(connection, packet.data(), sizeof reply + textSize, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && errno == EAGAIN) {
        throw std::invalid_argument("it does not read the replies");
    }
    return sent >= 0;
}

bool answerError(int connection, Reply::Outcome outcome, const std::string& text, int error = 0)
{
    Reply reply;
    reply.outcome = outcome;
    reply.error = error;
    return answer(connection, reply, text);
}

/** @return the text that the error was made with, without the system's own that follows it */
std::string textOf(const std::system_error& error)
{
    const std::string text = error.what();
    const std::string ending = ": " + error.code().message();
    const bool ends =
        text.size() >= ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
    return ends ? text.substr(0, text.size() - ending.size()) : text;
}

bool saysNothing(int connection)
{
    pollfd polled{connection, POLLIN, 0};
    return poll(&polled, 1, greetingPatience) == 0;
}

bool hasDeparted(int connection)
{
    pollfd polled{connection, POLLRDHUP, 0};
    return poll(&polled, 1, 0) > 0 && (polled.revents & (POLLRDHUP | POLLHUP)) != 0;
}

} // namespace

PinServer::PinServer(Board& itsBoard, Complain itsComplain)
    : board(itsBoard), complain(std::move(itsComplain)), name(newSocketName()), listener(listenAt(name)),
      stopEvent(eventfd(0, EFD_CLOEXEC), "cannot open an event"), accepting([this] { acceptConnections(); })
{
}

PinServer::~PinServer()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t size = write(stopEvent.get(), &one, sizeof one);
    accepting.join();
    std::unique_lock<std::mutex> lock(mutex);
    for (const int connection : connections) {
        shutdown(connection, SHUT_RDWR);
    }
    connectionClosed.wait(lock, [this] { return connections.empty(); });
}

/** Tells what is wrong, as long as it does not look like a flood. */
void PinServer::report(const std::string& text)
{
    const unsigned number = ++complaints;
    if (number <= mostComplaints) {
        complain(text + (number == mostComplaints ? "; more of these are not reported" : ""));
    }
}

void PinServer::acceptConnections()
{
    std::string lastComplaint;
    while (true) {
        std::array<pollfd, 2> polled{{{listener.get(), POLLIN, 0}, {stopEvent.get(), POLLIN, 0}}};
        if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) {
            complain(std::string("cannot wait for applications: ") + std::strerror(errno));
            return;
        }
        if (polled[1].revents != 0) {
            return;
        }
        std::string complaint;
        if (polled[0].revents != 0) {
            const int accepted = accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
            if (accepted >= 0) {
                complaint = admit(FileDescriptor(accepted, ""));
            } else if (errno != EINTR && errno != ECONNABORTED) {
                complaint = std::string("cannot take a connection of the application: ") + std::strerror(errno);
                // Out of descriptors, say: the connection stays in the queue, and would be tried again at once.
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        }
        if (!complaint.empty() && complaint != lastComplaint) {
            report(complaint);
        }
        lastComplaint = complaint;
    }
}

/** @return why the connection could not be served, empty if it is */
std::string PinServer::admit(FileDescriptor connection)
{
    const int descriptor = connection.get();
    const std::lock_guard<std::mutex> lock(mutex);
    if (connections.size() >= mostConnections + mostRefusals) {
        return "too many connections: one was closed";
    }
    connections.insert(descriptor);
    try {
        std::thread([this, connected = std::move(connection)]() mutable { converse(std::move(connected)); }).detach();
        return {};
    } catch (const std::system_error& error) {
        connections.erase(descriptor);
        return std::string("cannot serve a connection of the application: ") + error.what();
    }
}

void PinServer::converse(FileDescriptor connection)
{
    try {
        const std::shared_ptr<PinSession> session = welcome(connection.get());
        bool open = session != nullptr;
        while (open) {
            const auto request = receive<Request>(connection.get());
            open = request && carryOut(connection.get(), *session, *request);
        }
    } catch (const std::exception& error) {
        report(std::string("a connection that does not follow the protocol was closed: ") + error.what());
    }
    const std::lock_guard<std::mutex> lock(mutex);
    connections.erase(connection.get());
    connection.close();
    connectionClosed.notify_all();
}

/** @return whether the peer took the answer */
bool PinServer::carryOut(int connection, PinSession& session, const Request& request)
{
    const StampedClock::Operation operation{std::chrono::nanoseconds(request.time)};
    try {
        if (request.operation == Request::Operation::Export) {
            waitForDeparted(connection);
        }
        Reply reply;
        reply.value = session.perform(request);
        return answer(connection, reply);
    } catch (const std::invalid_argument&) {
        throw;
    } catch (const std::system_error& error) {
        return answerError(connection, Reply::Outcome::SystemError, textOf(error), error.code().value());
    } catch (const std::logic_error& error) {
        return answerError(connection, Reply::Outcome::LogicError, error.what());
    } catch (const std::exception& error) {
        return answerError(connection, Reply::Outcome::OtherError, error.what());
    }
}

/** Sees to it that an application that has ended no longer holds lines when the next one asks for them. */
void PinServer::waitForDeparted(int asking)
{
    std::unique_lock<std::mutex> lock(mutex);
    // A connection whose own process is gone does not wait: two such would wait for each other for ever.
    // Nor does any other for long, when somebody keeps connecting and going.
    connectionClosed.wait_for(lock, departurePatience, [&] {
        return hasDeparted(asking) || std::none_of(connections.begin(), connections.end(), hasDeparted);
    });
}

/** @return the session that the peer asks for, null when there is none for it */
std::shared_ptr<PinSession> PinServer::welcome(int connection)
{
    const auto greeting = saysNothing(connection) ? std::nullopt : receive<Greeting>(connection);
    if (!greeting) {
        return nullptr;
    }
    if (greeting->magic != greetingMagic) {
        throw std::invalid_argument("an unknown greeting");
    }
    if (greeting->version != protocolVersion) {
        answerError(connection, Reply::Outcome::OtherError,
                    "panelsim and its preloaded library are of different versions");
        throw std::invalid_argument("version " + std::to_string(greeting->version));
    }
    const std::shared_ptr<PinSession> known = findSession(greeting->session);
    // Who knows the number of a session is one of its threads, even if it has changed its user since.
    const std::string objection = objectionTo(connection, known != nullptr);
    if (!objection.empty()) {
        answerError(connection, Reply::Outcome::OtherError, objection);
        report("a connection was refused: " + objection);
        return nullptr;
    }
    const std::shared_ptr<PinSession> session = known != nullptr ? known : beginSession(findSession(greeting->parent));
    Reply reply;
    reply.value = session->number();
    return answer(connection, reply) ? session : nullptr;
}

/** @return why it cannot be served, empty if it can */
std::string PinServer::objectionTo(int connection, bool isKnown) const
{
    if (!isKnown && !isOfSameUser(connection)) {
        return "this panelsim serves another user";
    }
    const std::lock_guard<std::mutex> lock(mutex);
    return connections.size() <= mostConnections
               ? ""
               : "panelsim has " + std::to_string(mostConnections) + " connections, one for each thread that uses pins";
}

std::shared_ptr<PinSession> PinServer::findSession(std::uint64_t number)
{
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = sessions.find(number);
    return found == sessions.end() ? nullptr : found->second.lock();
}

std::shared_ptr<PinSession> PinServer::beginSession(std::shared_ptr<PinSession> parent)
{
    const std::lock_guard<std::mutex> lock(mutex);
    for (auto old = sessions.begin(); old != sessions.end();) {
        old = old->second.expired() ? sessions.erase(old) : std::next(old);
    }
    auto session = std::make_shared<PinSession>(board, randomNumber() | 1U, std::move(parent));
    sessions[session->number()] = session;
    return session;
}

} // namespace panelsim
