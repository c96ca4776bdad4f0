#include "panelsim/wire/PinLink.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace panelsim {

namespace {

// Pins of static objects are used until the very end of the process, so none of this has a destructor.

/** Guards the session, which the first connection begins. */
std::mutex sessionMutex;
std::uint64_t session = 0;
std::uint64_t parentSession = 0;
/** Holds the session while threads come and go; never used otherwise. */
int anchor = -1;
/** Counts forks, since a child must not talk on the connections of its parent. */
std::atomic<unsigned> forks{0};

struct ThreadConnection {
    int socket;
    unsigned forks;
};
thread_local ThreadConnection connection{-1, 0};

[[noreturn]] void throwUnreachable(const std::string& why)
{
    throw std::runtime_error("simulated front panel: " + why);
}

[[noreturn]] void throwGone(int error)
{
    throwUnreachable("the connection to panelsim is gone, has it ended? (" + std::generic_category().message(error) +
                     ")");
}

/** @return the error number as a failed call leaves it, or that of a peer that has closed */
int errorOf(ssize_t result)
{
    return result < 0 ? errno : ECONNRESET;
}

template <typename Message>
void sendOn(int socket, const Message& message)
{
    ssize_t sent = 0;
    do {
        sent = send(socket, &message, sizeof message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent != sizeof message) {
        throwGone(errorOf(sent));
    }
}

[[noreturn]] void rethrow(const Reply& reply, const std::string& text)
{
    switch (reply.outcome) {
    case Reply::Outcome::SystemError:
        throw std::system_error(reply.error, std::generic_category(), text);
    case Reply::Outcome::LogicError:
        throw std::logic_error(text);
    default:
        throw std::runtime_error(text);
    }
}

std::uint64_t receiveOn(int socket)
{
    std::array<char, sizeof(Reply) + longestErrorText> packet{};
    ssize_t received = 0;
    do {
        received = recv(socket, packet.data(), packet.size(), 0);
    } while (received < 0 && errno == EINTR);
    if (received < static_cast<ssize_t>(sizeof(Reply))) {
        throwGone(errorOf(received));
    }
    Reply reply;
    std::memcpy(&reply, packet.data(), sizeof reply);
    if (reply.outcome != Reply::Outcome::Done) {
        rethrow(reply, std::string(packet.data() + sizeof reply, static_cast<std::size_t>(received) - sizeof reply));
    }
    return reply.value;
}

int connectToSimulator()
{
    const char* const name = std::getenv(socketVariable);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name == nullptr || std::strlen(name) + 1 > sizeof address.sun_path) {
        throwUnreachable(std::string(socketVariable) + " is not set; start the application by panelsim");
    }
    // After the zero byte that says so, the name is in the abstract namespace.
    const std::size_t length = std::strlen(name);
    std::memcpy(address.sun_path + 1, name, length);
    const int socket = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
    if (socket < 0 || connect(socket, reinterpret_cast<const sockaddr*>(&address), size) != 0) {
        const int error = errno;
        close(socket);
        throwUnreachable("panelsim cannot be reached, has it ended? (" + std::generic_category().message(error) + ")");
    }
    return socket;
}

/** @return a connection within the session, which the first one begins */
int openConnection()
{
    const int socket = connectToSimulator();
    try {
        Greeting greeting;
        greeting.session = session;
        greeting.parent = parentSession;
        sendOn(socket, greeting);
        session = receiveOn(socket);
    } catch (...) {
        close(socket);
        throw;
    }
    return socket;
}

/** Closes the connection of a thread that ends. */
void closeThreadConnection(void* /*unused*/)
{
    close(connection.socket);
    connection.socket = -1;
}

/** The parent's anchor stays open here as well: its pins are this process's, too. */
void beginAsChild()
{
    ++forks;
    parentSession = session;
    session = 0;
    anchor = -1;
    sessionMutex.unlock();
}

/** @return a key whose destructor runs at the end of each thread but the last one of the process */
pthread_key_t makeThreadEndKey()
{
    pthread_key_t key{};
    pthread_key_create(&key, closeThreadConnection);
    pthread_atfork([] { sessionMutex.lock(); }, [] { sessionMutex.unlock(); }, beginAsChild);
    return key;
}

void connectThread()
{
    static const pthread_key_t threadEndKey = makeThreadEndKey();
    const std::lock_guard<std::mutex> lock(sessionMutex);
    if (connection.socket >= 0) {
        close(connection.socket);
        connection.socket = -1;
    }
    if (anchor < 0) {
        anchor = openConnection();
    }
    connection = {openConnection(), forks};
    pthread_setspecific(threadEndKey, &connection);
}

std::int64_t monotonicTime()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

} // namespace

std::uint64_t PinLink::perform(Request request)
{
    if (connection.socket < 0 || connection.forks != forks) {
        connectThread();
    }
    request.time = monotonicTime();
    sendOn(connection.socket, request);
    return receiveOn(connection.socket);
}

} // namespace panelsim
