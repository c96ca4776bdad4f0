#pragma once

#include "frontpanelhw/Export.h"

#include <functional>

namespace frontpanelhw::fp {

/**
 * A front panel with keys and LEDs.
 *
 * Operations are called from one thread at a time, the key callback's thread included; only isRunning and
 * connectAnyKeyChangedCb may be called from any thread at any time. A callback that uses the panel acquires a lock of
 * the application, as do the other threads that use the panel; such a panel is stopped before it is destroyed. An
 * exception of an LED pin propagates from the operation that wrote it.
 *
 * stop and the destructor wait for the polling thread to end. They must not be called from the key callback, where that
 * thread would wait for itself (a library built without NDEBUG ends the process with a message), nor while holding a
 * lock the callback acquires.
 *
 * Panels write log lines to std::cout, from the polling thread too; that needs std::cout to be synchronised with stdio,
 * as it is by default. When standard output is a pipe whose reader no longer reads, the polling thread blocks at a log
 * line as soon as the pipe is full, and with it stop and the destructor. The constructor of a panel with a display
 * changes std::cout's number base: construct such a panel while no other thread writes to std::cout, other panels'
 * polling threads included.
 */
class FRONTPANELHW_EXPORT IFp {
public:
    virtual ~IFp() = default;

    /**
     * Installs the panel's only key callback in place of an earlier one; an empty function removes it. It is called
     * on the key polling thread with the key index, counted from 0, and the key's level (true = pressed): on press, on
     * release and, while only this key is held, at every 9th poll; keys held together share that count. An exception
     * that it throws is dropped if it derives from std::exception and ends the process otherwise. While keys are
     * polled, an event that is just being reported still goes to the earlier callback, whose call may then begin after
     * this one has returned; the polling thread destroys the earlier callback.
     */
    virtual void connectAnyKeyChangedCb(const std::function<void(unsigned, bool)>& cb) = 0;

    /**
     * Switches an LED and remembers its state. While all LEDs are forced on, it only remembers.
     * @return false when there is no such LED or its pin did not accept the level
     */
    virtual bool setLed(unsigned index, bool on) = 0;

    /** True lights every LED and keeps the remembered states; false switches every LED to its remembered state. */
    virtual void setAllLeds(bool on) = 0;

    /**
     * Starts key polling, with a sleep of 25 ms between two scans, after the lamp test if lampTest is true. The lamp
     * test blocks the caller and is run even when keys are already polled. When an LED pin throws while the lamp test
     * lights the LEDs, polling is not started and all LEDs stay forced on: setLed only remembers until
     * setAllLeds(false) or stop.
     * @param lampTest        true to light every LED first, and to fill the display, if there is one, which then stays
     *                        filled until the next page: print after start
     * @param lampTestSeconds how long they stay lit, in whole seconds
     * @return false when polling was already running
     * @throws std::system_error when no thread can be created; the panel is then stopped
     */
    virtual bool start(bool lampTest, unsigned lampTestSeconds) = 0;

    /**
     * Stops key polling, waits for its thread to end, then switches every LED off and forgets its state. Not from the
     * key callback.
     */
    virtual void stop() = 0;

    /** @return true while keys are polled and the panel's display, if there is one, is initialised */
    virtual bool isRunning() = 0;
};

} // namespace frontpanelhw::fp
