#pragma once

#include "panelsim/wire/Protocol.h"

#include <cstdint>

namespace panelsim {

/**
 * The application's end of the conversation with panelsim.
 *
 * Each thread has a connection of its own, opened at its first operation, so that threads do not wait for each other.
 * After a fork both processes go on with the pins that there were, each on connections of its own.
 */
class PinLink {
public:
    /**
     * Has an operation done, and returns when it is done; stamps it with the time.
     * @return the reply's value
     * @throws std::system_error, std::logic_error or std::runtime_error as the pin on the board threw it;
     *         std::runtime_error also when panelsim cannot be reached
     */
    static std::uint64_t perform(Request request);
};

} // namespace panelsim
