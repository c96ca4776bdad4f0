#include "panelsim/web/HttpAddress.h"

#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>

namespace panelsim {

HttpAddress parseHttpAddress(std::string_view text)
{
    HttpAddress address;
    const auto colon = text.rfind(':');
    const std::string_view port = text.substr(colon + 1); // all of it without a colon
    if (colon != std::string_view::npos && text.substr(0, colon) != "localhost") {
        address.host = text.substr(0, colon);
    }
    const bool bracketed = address.host.front() == '[' && address.host.back() == ']';
    const std::string plain = bracketed ? address.host.substr(1, address.host.size() - 2) : address.host;
    const int family = bracketed ? AF_INET6 : AF_INET;
    in6_addr bytes{};
    std::array<char, INET6_ADDRSTRLEN> shortest{};
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
    if (error != std::errc() || end != port.data() + port.size() || inet_pton(family, plain.c_str(), &bytes) != 1) {
        throw std::invalid_argument("'" + std::string(text) +
                                    "' is no address to serve on: it has to be PORT or ADDR:PORT, with a port from 0 "
                                    "to 65535 and a numeric address, an IPv6 address in brackets, or 'localhost'");
    }
    address.host = inet_ntop(family, &bytes, shortest.data(), shortest.size());
    return address;
}

std::string describe(const HttpAddress& address)
{
    const bool ip6 = address.host.find(':') != std::string::npos;
    return (ip6 ? "[" + address.host + "]" : address.host) + ":" + std::to_string(address.port);
}

} // namespace panelsim
