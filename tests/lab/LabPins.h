#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/board/BoardGpioFactory.h"
#include "sysfs/ISysfsGpioFactory.h"
#include "tests/lab/PanelLab.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

/** An exception derived from nothing. */
struct ForeignException {};

/** What happened to the pins during one operation of the panel. */
struct PinRecord {
    unsigned thrown = 0;     ///< operations that threw a std::exception
    bool foreign = false;    ///< whether one threw something else
    bool setUpThrew = false; ///< whether creation, export, init or deinit threw
    bool refused = false;    ///< whether one returned false
    bool lcdInitRefused = false;
    bool backlightRefused = false;
    bool ledThrew = false;
    unsigned ledWrites = 0;
    /** GPIO and level of ID lines and keys that were read; no level where that threw. */
    std::vector<std::pair<unsigned, std::optional<bool>>> reads = {};

    bool failed() const { return thrown > 0 || foreign || refused; }
};

/** A factory of pins of a board, one of whose operations fails as planned. */
class LabPins : public sysfs::ISysfsGpioFactory {
public:
    LabPins(panelsim::Board& itsBoard, const PinFailure& itsFailure)
        : board(itsBoard), failure(itsFailure), factory(itsBoard)
    {
    }

    std::unique_ptr<sysfs::ISysfsGpio> create() const override;

    /** Does an operation, or lets it fail. @return its result: whether it is done, or the level that was read */
    bool perform(panelsim::PinOperation operation, unsigned gpio, const std::function<bool()>& effect) const;

    unsigned backlight() const { return board.getConfig().ledGpioBase + board.getConfig().ledCount; }

    panelsim::Board& board;
    PinFailure failure;
    mutable PinRecord record; ///< of the panel's operation
    mutable PinRecord polled; ///< of the scan by the polling thread
    mutable std::uint64_t operations = 0;
    mutable bool everFailed = false;
    mutable int livePins = 0;

private:
    panelsim::BoardGpioFactory factory;
    const std::thread::id owner = std::this_thread::get_id();
};
