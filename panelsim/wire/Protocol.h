#pragma once

#include <cstddef>
#include <cstdint>

namespace panelsim {

/**
 * @file
 * The conversation between an application's pins and the board in another process of the same machine, over a Unix
 * socket that keeps packets apart (SOCK_SEQPACKET). The application greets on each of its connections and gets a Reply
 * whose value is the session's number; then each Request gets one Reply. Numbers are in the machine's byte order.
 */

/** Environment variable that holds the name of the socket, in the abstract namespace and without its leading zero. */
constexpr const char* socketVariable = "PANELSIM_SOCKET";

constexpr std::uint32_t greetingMagic = 0x4C4E5050;
constexpr std::uint32_t protocolVersion = 1;

/** The first packet of a connection. */
struct Greeting {
    std::uint32_t magic = greetingMagic;
    std::uint32_t version = protocolVersion;
    std::uint64_t session = 0; ///< 0 for a new one, whose pins live as long as one of its connections
    std::uint64_t parent = 0;  ///< of a new session in a forked process: the one whose pins it goes on with, or 0
};

struct Request {
    enum class Operation : std::uint8_t { Create, Export, Init, Deinit, SetDirection, SetValue, GetValue, Destroy };

    std::int64_t time = 0;  ///< CLOCK_MONOTONIC of the application, nanoseconds
    std::uint32_t pin = 0;  ///< as Create answered it
    std::uint32_t gpio = 0; ///< Export only
    Operation operation = Operation::Create;
    std::uint8_t inverted = 0; ///< Init only
    std::uint8_t output = 0;   ///< Init and SetDirection: 1 for an output
    std::uint8_t level = 0;    ///< Init and SetValue
    std::uint32_t unused = 0;
};
static_assert(sizeof(Request) == 24, "there are no bytes between the members");

/** What a reply begins with; the text of an error follows it in the same packet. */
struct Reply {
    enum class Outcome : std::uint32_t { Done, SystemError, LogicError, OtherError };

    std::uint64_t value = 0; ///< the pin, the session, or what the operation returns
    Outcome outcome = Outcome::Done;
    std::int32_t error = 0; ///< errno value of a SystemError
};
static_assert(sizeof(Reply) == 16, "there are no bytes between the members");

constexpr std::size_t longestErrorText = 400;

} // namespace panelsim
