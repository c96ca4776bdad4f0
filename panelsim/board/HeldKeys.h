#pragma once

#include "panelsim/board/Board.h"

namespace panelsim {

/** The keys of a board under several hands. */
class HeldKeys {
public:
    using Hand = Board::Hand;

    /** @param itsBoard must outlive this object */
    explicit HeldKeys(Board& itsBoard) : board(itsBoard) {}

    void press(Hand hand, unsigned key) { board.press(key, hand); }
    void release(Hand hand, unsigned key) { board.release(key, hand); }
    /** Takes the hand off all keys. */
    void leave(Hand hand)
    {
        for (unsigned key = 0; key < board.getConfig().keyCount; ++key) {
            board.release(key, hand);
        }
    }

private:
    Board& board;
};

} // namespace panelsim
