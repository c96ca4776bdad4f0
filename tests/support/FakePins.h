#pragma once

#include "sysfs/ISysfsGpioFactory.h"

#include <array>
#include <atomic>
#include <exception>
#include <mutex>
#include <set>
#include <string>

/** What a broken event throws; derived only from std::exception. */
struct Broken : std::exception {
    const char* what() const noexcept override { return "broken"; }
};

/** What happens to fakes, in order and from any thread. */
class Record {
public:
    std::set<std::string> broken;  ///< events that throw Broken
    std::set<std::string> refused; ///< events that return false

    /** Notes the event. @return whether it is not refused */
    bool happen(const std::string& event) const;
    /** Takes the events since the last call, with a blank between them. */
    std::string take() const;

private:
    mutable std::mutex mutex;
    mutable std::string events;
};

/**
 * A factory of pins that only record what is done to them: "create", "export 40", "init 40 inverted out 1", "in 40",
 * "out 40", "40=1", "40?", "deinit 40", "delete 40". A pin not yet exported is numbered in the order of creation.
 */
class FakePins : public Record, public sysfs::ISysfsGpioFactory {
public:
    std::array<std::atomic<bool>, 64> levels{}; ///< what the lines read, by their GPIO numbers

    std::unique_ptr<sysfs::ISysfsGpio> create() const override;

    /** As take, in the words of the LCD's timing diagram, for an LCD on lines 0 to 12 with the backlight on line 13. */
    std::string takeWaveform() const;

private:
    mutable unsigned created = 0;
};

/** @return two digits */
std::string hex(unsigned char byte);
