#include "panelsim/web/ListeningSocket.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <utility>

namespace panelsim {

namespace {

using namespace std::chrono_literals;

constexpr auto pauseAfterError = 50ms;
constexpr int longestDeferral = 5; // s

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

std::string attempt(const HttpAddress& address)
{
    return "cannot serve on " + describe(address);
}

AddressList findAddresses(const HttpAddress& address)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &found);
    if (error != 0) {
        throw std::runtime_error(attempt(address) + ": " + gai_strerror(error));
    }
    return {found, freeaddrinfo};
}

bool listenOn(const Socket& socket, const addrinfo& candidate)
{
    if (socket.descriptor() < 0) {
        return false;
    }
    // The port is free again right after a former run, but not during one.
    socket.setOption(SOL_SOCKET, SO_REUSEADDR, 1);
    // Browsers open connections in advance; none takes up a thread before something comes on it.
    socket.setOption(IPPROTO_TCP, TCP_DEFER_ACCEPT, longestDeferral);
    if (candidate.ai_family == AF_INET6) {
        socket.setOption(IPPROTO_IPV6, IPV6_V6ONLY, 0);
    }
    return bind(socket.descriptor(), candidate.ai_addr, candidate.ai_addrlen) == 0 &&
           listen(socket.descriptor(), SOMAXCONN) == 0;
}

std::string advice(int error)
{
    switch (error) {
    case EADDRINUSE:
        return " (choose another port, or 0 for any free one)";
    case EACCES:
        return " (choose a port from 1024 on)";
    case EADDRNOTAVAIL:
        return " (choose an address of this machine)";
    default:
        return "";
    }
}

Socket openListening(const HttpAddress& address)
{
    const AddressList candidates = findAddresses(address);
    int error = 0;
    for (const addrinfo* candidate = candidates.get(); candidate != nullptr; candidate = candidate->ai_next) {
        Socket socket(::socket(candidate->ai_family, candidate->ai_socktype | SOCK_CLOEXEC, candidate->ai_protocol));
        if (listenOn(socket, *candidate)) {
            return socket;
        }
        error = errno;
        if (error == EADDRINUSE) {
            break; // on another address of that name the page could be mistaken for the other program's
        }
    }
    throw std::system_error(error, std::generic_category(), attempt(address) + advice(error));
}

std::uint16_t portOf(const Socket& socket)
{
    sockaddr_storage address{};
    socklen_t size = sizeof(address);
    if (getsockname(socket.descriptor(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot tell the port that is served on");
    }
    return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(address).sin6_port
                                               : reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

} // namespace

ListeningSocket::ListeningSocket(const HttpAddress& address) : bound(address), socket(openListening(address))
{
    bound.port = portOf(socket);
}

std::optional<Socket> ListeningSocket::accept(const std::function<void(const std::string&)>& complain)
{
    bool complained = false;
    while (!stopped) {
        const int connection = accept4(socket.descriptor(), nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0) {
            return Socket(connection);
        }
        if (!stopped && errno != EINTR && errno != ECONNABORTED) {
            if (!std::exchange(complained, true)) {
                complain("cannot take a connection of the page: " + std::generic_category().message(errno));
            }
            std::this_thread::sleep_for(pauseAfterError); // for lack of descriptors, say
        }
    }
    return std::nullopt;
}

void ListeningSocket::stop()
{
    stopped = true;
    shutdown(socket.descriptor(), SHUT_RDWR);
}

} // namespace panelsim
