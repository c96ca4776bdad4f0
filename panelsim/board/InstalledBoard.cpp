#include "panelsim/board/InstalledBoard.h"

#include "panelsim/board/BoardGpioFactory.h"
#include "sysfs/SysfsGpioFactory.h"

#include <atomic>
#include <memory>
#include <stdexcept>

namespace panelsim {

namespace {

std::atomic<Board*> installed{nullptr};

} // namespace

InstalledBoard::InstalledBoard(Board& board)
{
    installed = &board;
}

InstalledBoard::~InstalledBoard()
{
    installed = nullptr;
}

} // namespace panelsim

std::unique_ptr<sysfs::ISysfsGpio> sysfs::SysfsGpioFactory::create() const
{
    panelsim::Board* const board = panelsim::installed;
    if (board == nullptr) {
        throw std::logic_error("no simulated board is installed");
    }
    return panelsim::BoardGpioFactory(*board).create();
}
