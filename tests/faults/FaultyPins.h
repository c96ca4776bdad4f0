#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/board/BoardGpioFactory.h"
#include "panelsim/board/PinFault.h"
#include "sysfs/ISysfsGpioFactory.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/** What a pin throws that is derived from nothing. */
struct ForeignFault {};

/** Which operation of factory and pins fails, and how. */
struct FaultPlan {
    enum class Kind {
        Throws,      ///< a std::runtime_error "fault " and the operation's number, without effect
        ThrowsAfter, ///< the same, but the operation has had its effect
        Refuses,     ///< the answer false, without effect; init and setValue only
        Foreign      ///< a ForeignFault, without effect
    };
    std::uint64_t first = UINT64_MAX; ///< counted from 1; none by default
    Kind kind = Kind::Throws;
    bool lasting = false;   ///< whether all after it fail as well
    bool anyThread = false; ///< whether a ForeignFault may come on another thread, where it ends the process
};

/** An operation of the factory (Create) or of a pin. */
struct PinCall {
    panelsim::PinOperation operation;
    unsigned gpio;
    bool value;               ///< level written, or true for the direction output
    bool ownThread = true;    ///< whether it came from the thread that made the FaultyPins
    std::uint64_t number = 0; ///< counted from 1
    std::string what = {};    ///< of the exception that left it
    bool foreign = false;     ///< whether that was a ForeignFault
    bool threw() const { return foreign || !what.empty(); }
};

/**
 * While it lives, sysfs::SysfsGpioFactory makes pins of a board that fail as planned. They number their operations and
 * tell which of them failed, whoever made them fail. One at a time; operations come one after the other, though not
 * from one thread.
 */
class FaultyPins {
public:
    /** @param wantTrace whether every operation is kept, not only those that fail */
    FaultyPins(panelsim::Board& board, const FaultPlan& plan, bool wantTrace = false);
    ~FaultyPins();
    FaultyPins(const FaultyPins&) = delete;
    FaultyPins& operator=(const FaultyPins&) = delete;

    /** A level read from a line of a key or of the panel's ID; empty when the read failed. */
    struct Read {
        unsigned gpio;
        std::optional<bool> level;
        bool ownThread;
    };

    std::vector<PinCall> trace;
    std::vector<PinCall> failures; ///< those that threw or answered false
    std::vector<Read> reads;
    FaultPlan plan;             ///< may be changed between two operations
    std::uint64_t calls = 0;    ///< operations so far
    std::uint64_t livePins = 0; ///< pins made and not yet destroyed
    unsigned lcdBase;           ///< as in the board's configuration

    /**
     * A strobe or reset that is asserted when an operation has failed spoils the bus until it is released.
     * @return whether the board reports more bus faults than those
     */
    bool hasUnexplainedBusFaults() const;

    std::unique_ptr<sysfs::ISysfsGpio> create();
    template <typename Effect>
    bool perform(panelsim::PinOperation operation, unsigned gpio, bool value, Effect effect);

private:
    bool performWatched(const PinCall& call, const std::function<bool()>& effect);
    bool mayFail(const PinCall& call) const;
    bool isOwnThread() const;
    PinCall numbered(PinCall call) const;
    void noteException(const PinCall& call, const std::string& what);
    void watchBus(bool failed);

    panelsim::Board& board;
    panelsim::BoardGpioFactory factory;
    const bool recording;
    const std::thread::id owner = std::this_thread::get_id();
    std::vector<unsigned> leftAsserted; ///< of read strobe, write strobe and reset, since an operation failed
    std::uint64_t explainedBusFaults = 0;
    bool unexplained = false;
};
