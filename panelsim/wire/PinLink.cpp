#include "panelsim/wire/PinLink.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace panelsim {

namespace {

// Pins of static objects are used until the very end of the process, so none of this has a destructor.

/**
 * A socket of this library's in somebody else's process, which may close all descriptors, as daemons do, and get the
 * same number for another file. By its inode number it is known to be the same.
 */
struct Socket {
    int descriptor;
    ino_t inode;
};

/** Guards the session, which the first connection begins. */
std::mutex sessionMutex;
std::uint64_t session = 0;
std::uint64_t parentSession = 0;
/** Holds the session while threads come and go; never used otherwise. */
Socket anchor{-1, 0};
/** Counts forks, since a child must not talk on the connections of its parent. */
std::atomic<unsigned> forks{0};

struct ThreadConnection {
    Socket socket;
    unsigned forks;
};
thread_local ThreadConnection connection{{-1, 0}, 0};

ino_t inodeOf(int descriptor)
{
    struct stat status {};
    return fstat(descriptor, &status) == 0 ? status.st_ino : 0;
}

bool isOpen(const Socket& socket)
{
    return socket.descriptor >= 0 && inodeOf(socket.descriptor) == socket.inode;
}

void closeIfOpen(Socket& socket)
{
    if (isOpen(socket)) {
        close(socket.descriptor);
    }
    socket = {-1, 0};
}

[[noreturn]] void throwUnreachable(const std::string& why)
{
    throw std::runtime_error("simulated front panel: " + why);
}

[[noreturn]] void throwGone(int error)
{
    throwUnreachable("the connection to panelsim is gone: has panelsim ended? (" +
                     std::generic_category().message(error) + ")");
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
        throwUnreachable(std::string(socketVariable) + " does not name a socket; start the application by panelsim");
    }
    // After the zero byte that says so, the name is in the abstract namespace.
    const std::size_t length = std::strlen(name);
    std::memcpy(address.sun_path + 1, name, length);
    const int socket = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        throwUnreachable("no socket for panelsim: " + std::generic_category().message(errno));
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), size) != 0) {
        const int error = errno;
        close(socket);
        throwUnreachable("panelsim cannot be reached: has it ended, or is the application in another network "
                         "namespace? (" +
                         std::generic_category().message(error) + ")");
    }
    return socket;
}

/** @return a connection within the session, which the first one begins */
Socket openConnection()
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
    return {socket, inodeOf(socket)};
}

/** Closes the connection of a thread that ends. */
void closeThreadConnection(void* /*unused*/)
{
    if (isOpen(connection.socket) && connection.forks == forks) {
        // Or else a child that was forked meanwhile would keep the connection.
        shutdown(connection.socket.descriptor, SHUT_RDWR);
    }
    closeIfOpen(connection.socket);
}

/** The parent's anchor stays open here as well: its pins are this process's, too. */
void beginAsChild()
{
    ++forks;
    parentSession = session;
    session = 0;
    anchor = {-1, 0};
    sessionMutex.unlock();
}

/** @return a key whose destructor runs at the end of each thread but the last one of the process */
pthread_key_t makeThreadEndKey()
{
    pthread_key_t key{};
    const int error = pthread_key_create(&key, closeThreadConnection);
    if (error != 0) {
        throwUnreachable("no connection for this thread: " + std::generic_category().message(error));
    }
    pthread_atfork([] { sessionMutex.lock(); }, [] { sessionMutex.unlock(); }, beginAsChild);
    return key;
}

void connectThread()
{
    static const pthread_key_t threadEndKey = makeThreadEndKey();
    const std::lock_guard<std::mutex> lock(sessionMutex);
    closeIfOpen(connection.socket);
    if (!isOpen(anchor)) {
        session = 0;
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
    if (connection.forks != forks || !isOpen(connection.socket)) {
        connectThread();
    }
    request.time = monotonicTime();
    sendOn(connection.socket.descriptor, request);
    return receiveOn(connection.socket.descriptor);
}

} // namespace panelsim
