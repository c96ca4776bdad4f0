#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace panelsim {

/** Where a server listens. */
struct HttpAddress {
    std::string host = "127.0.0.1"; ///< as canonicalHost gives it
    std::uint16_t port = 0;         ///< 0 = any free one

    /** @return whether only this machine reaches it */
    bool isLoopback() const;
    /** @return whether it stands for all addresses of this machine */
    bool isWildcard() const;
};

/**
 * @param text "[HOST:]PORT", an IPv6 address in brackets; the host is 127.0.0.1 when it is left out
 * @throws std::invalid_argument with one line of text for anything else
 */
HttpAddress parseHttpAddress(const std::string& text);

/** @return "HOST:PORT", an IPv6 address in brackets */
std::string describe(const HttpAddress& address);

/**
 * @param text an IPv4 address, an IPv6 address in brackets or a name
 * @return it in lower case and without brackets, an IPv6 address in its shortest form; empty for anything else
 */
std::optional<std::string> canonicalHost(const std::string& text);

/** @return whether a canonical host is an address rather than a name */
bool isIpAddress(const std::string& host);

} // namespace panelsim
