#include "panelsim/board/BoardGpioFactory.h"

#include "panelsim/board/BoardGpio.h"

#include <optional>

namespace panelsim {

BoardGpioFactory::BoardGpioFactory(Board& itsBoard) : board(itsBoard)
{
}

std::unique_ptr<sysfs::ISysfsGpio> BoardGpioFactory::create() const
{
    board.admit(PinOperation::Create, std::nullopt);
    return std::make_unique<BoardGpio>(board);
}

} // namespace panelsim
