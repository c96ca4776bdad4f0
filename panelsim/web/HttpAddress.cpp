#include "panelsim/web/HttpAddress.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <cstddef>
#include <netinet/in.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <system_error>

namespace panelsim {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isLetterOrDigit(char c)
{
    return isDigit(c) || (c >= 'a' && c <= 'z');
}

std::string toLower(std::string text)
{
    for (char& c : text) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return text;
}

bool isIp4(const std::string& text)
{
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

std::optional<std::string> canonicalIp6(const std::string& text)
{
    in6_addr address{};
    std::array<char, INET6_ADDRSTRLEN> canonical{};
    if (inet_pton(AF_INET6, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return inet_ntop(AF_INET6, &address, canonical.data(), canonical.size());
}

/** A name that ends with a number would be taken for an address, by other rules than ours. */
bool isName(const std::string& text)
{
    const auto label = text.rfind('.') + 1; // 0 without a dot
    return !text.empty() && isLetterOrDigit(text.front()) && isLetterOrDigit(text.back()) &&
           std::all_of(text.begin(), text.end(), [](char c) { return isLetterOrDigit(c) || c == '-' || c == '.'; }) &&
           !std::all_of(text.begin() + static_cast<std::ptrdiff_t>(label), text.end(), isDigit);
}

std::optional<std::uint16_t> parsePort(std::string_view text)
{
    constexpr std::size_t mostDigits = 5;
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [parsed, error] = std::from_chars(text.data(), end, port);
    if (text.size() > mostDigits || error != std::errc() || parsed != end) {
        return std::nullopt;
    }
    return port;
}

} // namespace

bool HttpAddress::isLoopback() const
{
    return host == "localhost" || host == "::1" || (isIp4(host) && host.rfind("127.", 0) == 0);
}

bool HttpAddress::isWildcard() const
{
    return host == "0.0.0.0" || host == "::";
}

HttpAddress parseHttpAddress(const std::string& text)
{
    HttpAddress address;
    const auto colon = text.rfind(':');
    const auto host = colon == std::string::npos ? address.host : canonicalHost(text.substr(0, colon));
    const auto port = parsePort(colon == std::string::npos ? text : text.substr(colon + 1));
    if (!host || !port) {
        throw std::invalid_argument("'" + text +
                                    "' is no address to serve on: it has to be PORT or HOST:PORT, with a port from 0 "
                                    "to 65535 and an IPv6 address in brackets");
    }
    address.host = *host;
    address.port = *port;
    return address;
}

std::string describe(const HttpAddress& address)
{
    const bool ip6 = address.host.find(':') != std::string::npos;
    return (ip6 ? "[" + address.host + "]" : address.host) + ":" + std::to_string(address.port);
}

std::optional<std::string> canonicalHost(const std::string& text)
{
    if (text.find('\0') != std::string::npos) {
        return std::nullopt; // the system's functions would read up to there
    }
    if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
        return canonicalIp6(text.substr(1, text.size() - 2));
    }
    const std::string lower = toLower(text);
    return isIp4(lower) || isName(lower) ? std::optional(lower) : std::nullopt;
}

bool isIpAddress(const std::string& host)
{
    return isIp4(host) || canonicalIp6(host);
}

} // namespace panelsim
