#include "panelsim/board/HeldKeys.h"

#include <stdexcept>
#include <string>

namespace panelsim {

HeldKeys::HeldKeys(Board& itsBoard) : board(itsBoard), hands(itsBoard.getConfig().keyCount)
{
}

void HeldKeys::press(Hand hand, unsigned key)
{
    const std::lock_guard<std::mutex> lock(mutex);
    handsOn(key).insert(hand);
    board.press(key);
}

void HeldKeys::release(Hand hand, unsigned key)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (handsOn(key).erase(hand) != 0 && handsOn(key).empty()) {
        board.release(key);
    }
}

void HeldKeys::leave(Hand hand)
{
    for (unsigned key = 0; key < hands.size(); ++key) {
        release(hand, key);
    }
}

std::set<HeldKeys::Hand>& HeldKeys::handsOn(unsigned key)
{
    if (key >= hands.size()) {
        throw std::out_of_range("there is no key " + std::to_string(key));
    }
    return hands[key];
}

} // namespace panelsim
