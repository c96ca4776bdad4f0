#include "panelsim/web/HttpStream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace panelsim {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto longestRequest = 5s;
constexpr std::size_t mostRequestBytes = 16384;
constexpr auto longestWrite = 3s; ///< without any progress
constexpr auto longestFarewell = 2s;

/** What a client that is slow has not taken yet is old, so it must not be much. */
constexpr int sendBuffer = 65536;

/** Until a client whose machine has left the network counts as gone. */
constexpr int longestUnacknowledged = 2000; // ms

short waitFor(int descriptor, short events, Clock::time_point deadline)
{
    pollfd entry{descriptor, events, 0};
    int ready = 0;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        ready = poll(&entry, 1, static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0)));
    } while (ready < 0 && errno == EINTR);
    return ready > 0 ? entry.revents : short{0};
}

} // namespace

HttpStream::HttpStream(Socket socket) : connection(std::move(socket)), readDeadline(Clock::now() + longestRequest)
{
    connection.setOption(IPPROTO_TCP, TCP_NODELAY, 1);
    connection.setOption(IPPROTO_TCP, TCP_USER_TIMEOUT, longestUnacknowledged);
    connection.setOption(SOL_SOCKET, SO_SNDBUF, sendBuffer);
}

bool HttpStream::is_writable() const
{
    return waitFor(connection.descriptor(), POLLRDHUP, Clock::now()) == 0 || readingStopped;
}

ssize_t HttpStream::read(char* bytes, size_t size)
{
    if (begin == end && !fill()) {
        return -1;
    }
    const std::size_t taken = std::min(size, end - begin);
    std::memcpy(bytes, buffer.data() + begin, taken);
    begin += taken;
    return static_cast<ssize_t>(taken);
}

bool HttpStream::fill()
{
    begin = 0;
    end = 0;
    if (received >= mostRequestBytes) {
        return false;
    }
    const auto receive = [this] { return recv(connection.descriptor(), buffer.data(), buffer.size(), MSG_DONTWAIT); };
    ssize_t count = receive();
    if (count < 0 && errno == EAGAIN && waitForClient()) {
        count = receive();
    }
    end = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    received += end;
    return end != 0;
}

/** @return whether something has come, in time and before the client was turned away */
bool HttpStream::waitForClient()
{
    auto before = Phase::Busy;
    if (!phase.compare_exchange_strong(before, Phase::Waiting)) {
        return false;
    }
    const bool came = waitFor(connection.descriptor(), POLLIN, readDeadline) != 0;
    before = Phase::Waiting;
    return phase.compare_exchange_strong(before, Phase::Busy) && came;
}

ssize_t HttpStream::write(const char* bytes, size_t size)
{
    return wasTurnedAway() ? -1 : send(bytes, size);
}

ssize_t HttpStream::send(const char* bytes, size_t size)
{
    if (waitFor(connection.descriptor(), POLLOUT, Clock::now() + longestWrite) == 0) {
        return -1;
    }
    const ssize_t count = ::send(connection.descriptor(), bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    answered = answered || count > 0;
    return count < 0 && errno == EAGAIN ? 0 : count;
}

void HttpStream::get_remote_ip_and_port(std::string& ip, int& port) const
{
    ip.clear();
    port = 0;
}

void HttpStream::get_local_ip_and_port(std::string& ip, int& port) const
{
    ip.clear();
    port = 0;
}

bool HttpStream::isUnanswered() const
{
    return received != 0 && !answered;
}

bool HttpStream::isTooLong() const
{
    return received >= mostRequestBytes;
}

void HttpStream::finish()
{
    // Closing a connection with unread bytes would take back an answer that the client has not read yet.
    shutdown(connection.descriptor(), SHUT_WR);
    readDeadline = Clock::now() + longestFarewell;
    received = 0;
    while (Clock::now() < readDeadline && fill()) {
        received = 0;
    }
}

void HttpStream::stopReading()
{
    readingStopped = true; // before what looks as if the client had gone
    shutdown(connection.descriptor(), SHUT_RD);
}

bool HttpStream::turnAway()
{
    auto before = Phase::Waiting;
    const bool waited = phase.compare_exchange_strong(before, Phase::TurnedAway);
    if (waited) {
        shutdown(connection.descriptor(), SHUT_RD);
    }
    return waited;
}

void HttpStream::abort()
{
    shutdown(connection.descriptor(), SHUT_RDWR);
}

} // namespace panelsim
