#pragma once

#include "panelsim/board/Board.h"

#include <cstdint>
#include <mutex>
#include <set>
#include <vector>

namespace panelsim {

/**
 * The keys of a board under several hands: a key is pressed as long as at least one of them holds it. Operations may be
 * called from several threads.
 */
class HeldKeys {
public:
    /** Whoever presses keys: a page, a scenario. */
    using Hand = std::uint64_t;

    /** @param board must outlive this object */
    explicit HeldKeys(Board& board);

    /** @throws std::out_of_range when there is no such key */
    void press(Hand hand, unsigned key);
    /** No effect on a key that the hand does not hold. @throws std::out_of_range when there is no such key */
    void release(Hand hand, unsigned key);
    /** Takes the hand off all keys. */
    void leave(Hand hand);

private:
    std::set<Hand>& handsOn(unsigned key);

    Board& board;
    std::mutex mutex;
    std::vector<std::set<Hand>> hands; ///< by key
};

} // namespace panelsim
