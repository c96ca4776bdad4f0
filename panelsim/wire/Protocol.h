#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <utility>

namespace panelsim {

/**
 * @file
 * The conversation between an application's pins and the board in another process of the same machine, over a Unix
 * socket that keeps packets apart (SOCK_SEQPACKET). A process has one connection, on which each Request gets one Reply.
 * Numbers are in the machine's byte order.
 */

/** Environment variable that holds the name of the socket, in the abstract namespace and without its leading zero. */
constexpr const char* socketVariable = "PANELSIM_SOCKET";

/** @return the address of a socket of that name, whose end is cut off if it is too long, and the address's size */
inline std::pair<sockaddr_un, socklen_t> socketAddress(std::string_view name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // After the zero byte that says so, the name is in the abstract namespace: nothing is left behind by a crash.
    const std::size_t size = name.copy(address.sun_path + 1, sizeof address.sun_path - 1);
    return {address, static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + size)};
}

constexpr std::uint8_t protocolVersion = 3;

struct Request {
    enum class Operation : std::uint32_t { Create, Export, Init, Deinit, SetDirection, SetValue, GetValue, Destroy };

    Operation operation = Operation::Create;
    std::uint32_t pin = 0;     ///< as Create returned it
    std::uint32_t gpio = 0;    ///< Export only
    std::uint8_t level = 0;    ///< Init and SetValue
    std::uint8_t output = 0;   ///< Init and SetDirection: 1 for an output
    std::uint8_t inverted = 0; ///< Init only
    std::uint8_t version = protocolVersion;
    std::int64_t time = 0; ///< CLOCK_MONOTONIC of the application, nanoseconds
};
static_assert(sizeof(Request) == 24, "there are no bytes between the members");

/** Only as much of the text is sent as there is. */
struct Reply {
    enum class Outcome : std::uint16_t { Done, SystemError, LogicError, OtherError };

    std::uint32_t value = 0; ///< the pin, or what the operation returns
    std::int32_t error = 0;  ///< errno value of a SystemError
    Outcome outcome = Outcome::Done;
    std::uint16_t textSize = 0;
    std::array<char, 400> text{}; ///< of an error
};
constexpr std::size_t replySizeWithoutText = offsetof(Reply, text);

} // namespace panelsim
