#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/wire/Protocol.h"
#include "sysfs/ISysfsGpio.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace panelsim {

/**
 * The pins of one process; they go with it. A forked process has those of its parent, too, which then stay until both
 * have ended. Operations may be called from several threads.
 */
class PinSession {
public:
    static constexpr std::size_t mostPins = 16384; ///< of all sessions together
    static constexpr unsigned mostGenerations = 64;

    /**
     * @param board  must outlive the session
     * @param parent null for a process that was not forked by one with pins
     * @throws std::invalid_argument after too many generations
     */
    PinSession(Board& board, std::uint64_t number, std::shared_ptr<PinSession> parent);

    ~PinSession();

    PinSession(const PinSession&) = delete;
    PinSession& operator=(const PinSession&) = delete;

    std::uint64_t number() const { return sessionNumber; }

    /**
     * @return what the operation returns
     * @throws std::exception what the pin throws; std::system_error with ENODEV for a pin that there is not (any more);
     *         std::invalid_argument for a request that makes no sense
     */
    std::uint64_t perform(const Request& request);

private:
    using Pins = std::unordered_map<std::uint32_t, std::unique_ptr<sysfs::ISysfsGpio>>;

    std::uint64_t create();
    std::uint64_t performOn(Pins::iterator pin, const Request& request);

    Board& board;
    const std::uint64_t sessionNumber;
    const std::shared_ptr<PinSession> parent;
    const unsigned generation;
    std::mutex mutex;
    Pins pins;
};

} // namespace panelsim
