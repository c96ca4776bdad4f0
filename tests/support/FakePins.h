#pragma once

#include "sysfs/ISysfsGpioFactory.h"

#include <exception>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

/** What a pin throws; derived from nothing but std::exception. */
struct Broken : std::exception {
    const char* what() const noexcept override { return "broken"; }
};

/**
 * A factory of pins that only tell what is done to them. Events: "create", "export 40", "init 40 inverted out 1",
 * "in 40", "out 40", "40=1", "40?", "deinit 40", "delete 40". Pins may be used from any thread.
 */
class FakePins : public sysfs::ISysfsGpioFactory {
public:
    std::unique_ptr<sysfs::ISysfsGpio> create() const override;

    /** The event throws Broken from now on. */
    void breakOn(const std::string& event);
    /** The event, an init or a setValue, answers false from now on. */
    void refuse(const std::string& event);
    /** The level that a line reads from now on; 0 for lines never set. */
    void setLevel(unsigned gpio, bool level);

    void tell(const std::string& event) const;
    /** Takes the events told since the last call, with a blank between them. */
    std::string take() const;
    /** As take, in the words of the LCD's timing diagram, for an LCD on lines 0 to 12 with the backlight on line 13. */
    std::string takeWaveform() const;

private:
    friend class FakeGpio;
    bool happen(const std::string& event) const;

    mutable std::mutex mutex;
    mutable std::vector<std::string> events;
    std::set<std::string> broken;
    std::set<std::string> refused;
    std::map<unsigned, bool> levels;
};
