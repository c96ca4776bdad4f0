#pragma once

#include "panelsim/board/Board.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/ISysfsGpioFactory.h"

#include <memory>

namespace panelsim {

/** Makes pins of a board. */
class BoardGpioFactory final : public sysfs::ISysfsGpioFactory {
public:
    /** @param itsBoard must outlive the factory and its pins */
    explicit BoardGpioFactory(Board& itsBoard) : board(itsBoard) {}

    std::unique_ptr<sysfs::ISysfsGpio> create() const override;

private:
    Board& board;
};

} // namespace panelsim
