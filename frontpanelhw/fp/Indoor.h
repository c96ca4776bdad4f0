#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "frontpanelhw/fp/ILcdFp.h"

#include <functional>
#include <memory>
#include <vector>

namespace frontpanelhw::fp {

class IndoorFpImpl;

/** The indoor panel: keys, LEDs and an LCD of 3 lines of 25 characters, on pins of sysfs::SysfsGpioFactory. */
class FRONTPANELHW_EXPORT Indoor : public ILcdFp {
public:
    /** Builds the panel with the parameters, the duration and the exceptions of IndoorFpImpl. */
    Indoor(unsigned keyGpioBase, unsigned ledGpioBase, unsigned lcdGpioBase, unsigned keyCount, unsigned ledCount,
           const std::vector<unsigned>& invertedLeds, const std::vector<unsigned>& ledsInitiallyOn);

    /** Stops polling and deletes the pins; LEDs and display stay as they are. */
    ~Indoor() override;

    Indoor(const Indoor&) = delete;
    Indoor& operator=(const Indoor&) = delete;

    void connectAnyKeyChangedCb(const std::function<void(unsigned, bool)>& cb) override;
    bool setLed(unsigned index, bool on) override;
    void setAllLeds(bool on) override;
    bool start(bool lampTest, unsigned lampTestSeconds) override;
    void stop() override;
    bool isRunning() override;
    bool clear() override;
    unsigned getChars() const override;
    unsigned getLines() const override;
    bool printLine(unsigned line, const drawing::DisplayLine& text) override;
    bool printBuffer(const drawing::DisplayBuffer& buffer) override;
    bool resetController() override;
    bool swapPage() override;
    bool enable(bool on) override;

    /** As LcdFp::setBacklight. */
    bool setBacklight(bool on);

    /** As LcdFp::setContrast: on an RA8806, it returns true and changes nothing. */
    bool setContrast(unsigned percent);

    /** As IndoorFpImpl::restartDisplay: the way back to a working display after a failure or resetController. */
    bool restartDisplay();

private:
    std::unique_ptr<IndoorFpImpl> impl;
};

} // namespace frontpanelhw::fp
