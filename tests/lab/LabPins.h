#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/board/BoardGpioFactory.h"
#include "sysfs/ISysfsGpioFactory.h"
#include "tests/lab/PanelLab.h"

#include <cstdint>
#include <memory>
#include <thread>

/** What happened to the pins during one operation of the panel; on a polling thread, only reads and refusals. */
struct PinRecord {
    unsigned thrown = 0;  ///< operations that threw
    bool foreign = false; ///< whether one threw what is no std::exception
    bool refused = false; ///< whether one returned false
    bool backlightRefused = false;
    bool escapes = false;     ///< whether one threw that sets up a pin or switches an LED
    unsigned polledReads = 0; ///< by a polling thread
};

/** The pins of a board under sysfs::SysfsGpioFactory, one of whose operations fails as planned. One at a time. */
class LabPins : public sysfs::ISysfsGpioFactory {
public:
    explicit LabPins(panelsim::Board& itsBoard, const PinFailure& itsFailure = {})
        : failure(itsFailure), config(itsBoard.getConfig()), factory(itsBoard)
    {
        installed = this;
    }

    std::unique_ptr<sysfs::ISysfsGpio> create() const override;

    /** Does an operation, or lets it fail. @return whether it is done, or the level that was read */
    template <typename... Effect>
    bool perform(panelsim::PinOperation operation, unsigned gpio, const Effect&... effect) const;

    static inline const LabPins* installed = nullptr;
    PinFailure failure;
    mutable PinRecord record;
    mutable std::uint64_t operations = 0;
    mutable bool failed = false;

private:
    const panelsim::BoardConfig& config;
    const panelsim::BoardGpioFactory factory;
    const std::thread::id owner = std::this_thread::get_id();
};
