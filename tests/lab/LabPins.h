#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/board/BoardGpioFactory.h"
#include "sysfs/ISysfsGpioFactory.h"
#include "tests/lab/PanelLab.h"

#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

/** What happened to the pins during one operation of the panel; on a polling thread, only which keys were read. */
struct PinRecord {
    unsigned thrown = 0;  ///< operations that threw a std::exception
    bool foreign = false; ///< whether one threw something else
    bool refused = false; ///< whether one returned false
    bool backlightRefused = false;
    bool escapes = false;            ///< whether one threw that sets up a pin or switches an LED
    std::vector<bool> keyReads = {}; ///< whether each went well
};

/** The pins of a board under sysfs::SysfsGpioFactory, one of whose operations fails as planned. One at a time. */
class LabPins : public sysfs::ISysfsGpioFactory {
public:
    explicit LabPins(panelsim::Board& itsBoard, const PinFailure& itsFailure = {});
    ~LabPins() override;
    LabPins(const LabPins&) = delete;
    LabPins& operator=(const LabPins&) = delete;

    std::unique_ptr<sysfs::ISysfsGpio> create() const override;

    /** Does an operation, or lets it fail. @return whether it is done, or the level that was read */
    template <typename Effect>
    bool perform(panelsim::PinOperation operation, unsigned gpio, Effect effect) const;

    PinFailure failure;
    mutable PinRecord record;
    mutable std::uint64_t operations = 0;
    mutable bool failed = false;

private:
    const panelsim::BoardConfig& config;
    const panelsim::BoardGpioFactory factory;
    const std::thread::id owner = std::this_thread::get_id();
};
