#pragma once

#include "panelsim/board/Board.h"

namespace panelsim {

/**
 * Puts a board under sysfs::SysfsGpioFactory of this process, in place of the kernel's lines, for as long as the
 * object lives. Linking it into a program replaces that factory's create in all of the program's libraries; without
 * an installed board create then throws std::logic_error. One at a time.
 */
class InstalledBoard {
public:
    /** @param board must outlive this object and all pins made meanwhile */
    explicit InstalledBoard(Board& board);
    ~InstalledBoard();

    InstalledBoard(const InstalledBoard&) = delete;
    InstalledBoard& operator=(const InstalledBoard&) = delete;
};

} // namespace panelsim
