#pragma once

#include "panelsim/board/Board.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/PinDirectionEn.h"

#include <optional>

namespace panelsim {

/** A pin on a line of a board, with the errors and the level semantics of a pin of the kernel's interface. */
class BoardGpio final : public sysfs::ISysfsGpio {
public:
    /** @param board must outlive the pin */
    explicit BoardGpio(Board& board);

    /** Gives the line free, as it is driven. */
    ~BoardGpio() override;

    BoardGpio(const BoardGpio&) = delete;
    BoardGpio& operator=(const BoardGpio&) = delete;

    bool init(bool inverted, sysfs::PinDirectionEn direction, bool initialValue) override;
    void deinit() override;
    void setDirection(sysfs::PinDirectionEn direction) override;
    bool setValue(bool value) override;
    bool getValue() const override;
    void exportGpio(unsigned gpioNumber) override;
    unsigned getGpioNumber() const override;

private:
    void applyDirection(sysfs::PinDirectionEn direction);
    void giveFree();

    Board& board;
    std::optional<unsigned> number;
    bool initialised = false;
    bool inverted = false;
    bool level = false; ///< logical level last given
};

} // namespace panelsim
