#pragma once

#include "panelsim/board/BoardConfig.h"
#include "panelsim/board/LcdBus.h"
#include "panelsim/board/PanelView.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <type_traits>
#include <vector>

namespace panelsim {

/** The operations of a pin and, first, of the factory that makes it. */
enum class PinOperation { Create, Export, Init, Deinit, SetDirection, SetValue, GetValue };

/** Makes pin operations of a board fail before they have any effect; only deinit still releases the line. */
struct PinFault {
    enum class Kind {
        Throw, ///< a std::runtime_error
        False  ///< returns false; init and setValue only, other operations do not match
    };

    std::optional<unsigned> gpio = {};          ///< the line; any when empty, and none for Create
    std::optional<PinOperation> operation = {}; ///< the operation; any when empty
    std::uint64_t call = 1;                     ///< the first matching call that fails; 1 = the next one
    std::optional<std::uint64_t> calls = 1;     ///< how many calls fail from that one on; all when empty
    Kind kind = Kind::Throw;
};

/** Electrical level of a line; floating when nothing drives or pulls it. */
enum class LineLevel { Low, High, Floating };

/** A change of a line's level. */
struct LineChange {
    std::chrono::nanoseconds time; ///< of the board's clock
    unsigned gpio;
    LineLevel level;
};

/**
 * A front panel on a simulated board: ID lines, keys, LEDs and, behind its fourteen lines, the LCD. It knows
 * electrical levels only; pins convert their polarity.
 *
 * All operations may be called from several threads at once. BoardGpioFactory makes its pins.
 */
class Board {
public:
    /** Returns the time since an arbitrary start; never goes back. */
    using Clock = std::function<std::chrono::nanoseconds()>;

    /** Identifies what presses keys: a page, a scenario. */
    using Hand = std::uint64_t;

    /** The time of std::chrono::steady_clock. */
    static std::chrono::nanoseconds steadyTime();

    /** @throws std::invalid_argument when lines overlap, std::system_error when a stuck line does not exist */
    explicit Board(BoardConfig config, Clock clock = steadyTime);

    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    const BoardConfig& getConfig() const { return config; }

    std::chrono::nanoseconds now() const
    {
        return locked([this] { return time(); });
    }

    /**
     * Stops the board's time while an operation of another process takes effect, so that traces show when that process
     * requested it. The time never goes back and is never ahead of the clock.
     * @param newTime of the operation; empty when it is done
     */
    void setOperationTime(std::optional<std::chrono::nanoseconds> newTime)
    {
        locked([&] { operationTime = newTime; });
    }

    /** @name The person in front of the panel; for a key that does not exist std::out_of_range is thrown */
    ///@{
    /** A key is pressed as long as at least one hand holds it. */
    void press(unsigned key, Hand hand = 0) { setKey(key, hand, true); }
    /** No effect on a key that the hand does not hold. */
    void release(unsigned key, Hand hand = 0) { setKey(key, hand, false); }
    /** Takes the hand off all keys. */
    void releaseAll(Hand hand);
    /** @return how often the key's line was read */
    std::uint64_t keyReads(unsigned key) const
    {
        return locked([&] { return lineAt(config.keyGpioBase + key).reads; });
    }
    PanelView view() const;
    ///@}

    /** @name The laboratory */
    ///@{
    /** Makes pin operations fail from now on, in addition to those that fail already. */
    void failPin(const PinFault& fault)
    {
        locked([&] { faults.push_back({fault}); });
    }
    /** @return pin operations since the start, those that failed included; destroying a pin is none */
    std::uint64_t pinOperations() const { return operations; }
    /** @return number of lines that pins are bound to */
    std::size_t claimedLines() const;
    /** @return the first faults on the LCD bus since the start or since they were cleared */
    std::vector<BusFault> busFaults() const
    {
        return locked([this] { return bus.faults(); });
    }
    std::uint64_t busFaultCount() const
    {
        return locked([this] { return bus.faultCount(); });
    }
    void clearBusFaults()
    {
        locked([this] { bus.clearFaults(); });
    }
    LineLevel lineLevel(unsigned gpio) const
    {
        return locked([&] { return lineAt(gpio).level; });
    }
    /**
     * Calls the observer for each line with its present level, and then at each change of a line's level, all under the
     * board's lock: it must not call the board. Once this returns, earlier observers are not called any more.
     */
    void observe(std::function<void(const LineChange&)> observer);
    /** @return a register of the LCD's chip as it would read back */
    unsigned char lcdRegister(unsigned char reg) const
    {
        return locked([&] { return bus.chip().registerValue(reg); });
    }
    ///@}

    /**
     * @name The pins
     * Errors are those of the kernel's interface: std::system_error with EINVAL for a line that does not exist, EBUSY
     * for one that another pin holds, EPERM for driving an input. Levels are electrical.
     */
    ///@{
    /**
     * Counts an operation and throws if a fault makes it throw.
     * @return false when the operation must return false
     */
    bool admit(PinOperation operation, std::optional<unsigned> gpio);
    void claim(unsigned gpio);
    /** The line keeps being driven as it is. */
    void unclaim(unsigned gpio)
    {
        locked([&] { lineAt(gpio).claimed = false; });
    }
    void makeInput(unsigned gpio) { setOutput(gpio, std::nullopt); }
    void makeOutput(unsigned gpio, bool level) { setOutput(gpio, level); }
    void drive(unsigned gpio, bool level) { setOutput(gpio, level, true); }
    bool read(unsigned gpio);
    ///@}

private:
    using Lock = std::lock_guard<std::mutex>;

    /** What drives a line: the first of stuck, output and other that is not empty. */
    struct Line {
        unsigned gpio;
        std::optional<bool> other;       ///< by the panel
        std::optional<bool> output = {}; ///< by the processor
        std::optional<bool> stuck = {};
        LineLevel level = LineLevel::Floating;
        bool claimed = false;
        std::set<Hand> hands = {}; ///< that hold it as a key
        std::uint64_t reads = 0;
    };

    struct CountedFault {
        PinFault fault;
        std::uint64_t calls = 0; ///< that matched
    };

    template <typename Work>
    std::invoke_result_t<Work> locked(Work work) const
    {
        const Lock lock(mutex);
        return work();
    }
    void addLines(unsigned firstGpio, unsigned count, const std::function<std::optional<bool>(unsigned)>& drivenTo);
    std::chrono::nanoseconds time() const;
    Line& lineAt(unsigned gpio);
    const Line& lineAt(unsigned gpio) const;
    void setKey(unsigned key, Hand hand, bool pressed);
    void setOutput(unsigned gpio, std::optional<bool> output, bool onlyIfOutput = false);
    void update(Line& line);
    void follow(const Line& line);

    const BoardConfig config;
    const Clock clock;
    mutable std::mutex mutex;
    std::optional<std::chrono::nanoseconds> operationTime;
    mutable std::chrono::nanoseconds latest{0}; ///< latest time returned
    std::map<unsigned, Line> lines;             ///< by GPIO
    LcdBus bus;                                 ///< stands still on a board without LCD
    LcdLevels levels;
    std::vector<CountedFault> faults;
    std::atomic<std::uint64_t> operations{0};
    std::function<void(const LineChange&)> observer;
};

} // namespace panelsim
