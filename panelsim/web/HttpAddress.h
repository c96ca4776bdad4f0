#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace panelsim {

/** Where a server listens. */
struct HttpAddress {
    std::string host = "127.0.0.1"; ///< an IPv4 or IPv6 address in its shortest form
    std::uint16_t port = 0;         ///< 0 = any free one
};

/**
 * @param text "[ADDR:]PORT": ADDR is an IPv4 address, an IPv6 address in brackets, or "localhost" for 127.0.0.1, which
 * it is when left out
 * @throws std::invalid_argument with one line of text for anything else
 */
HttpAddress parseHttpAddress(std::string_view text);

/** @return "ADDR:PORT", an IPv6 address in brackets */
std::string describe(const HttpAddress& address);

} // namespace panelsim
