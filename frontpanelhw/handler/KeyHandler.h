#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/handler/GpioVectorCreator.h"
#include "sysfs/ISysfsGpio.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace frontpanelhw::handler {

/**
 * Turns a run of key lines into key events, by polling them on a thread of its own.
 *
 * A key is pressed while its line reads 1. Press and release are events, and a key that is held repeats: every 9th
 * poll that finds it held is an event. The count of held polls is one for the whole process: every held key advances
 * it, and every event of any key resets it. Several handlers may poll at once.
 *
 * start, stop and the destructor belong to one thread at a time. stop and the destructor must not be called from the
 * callback, where the polling thread would wait for itself, nor while holding a lock that the callback acquires. A
 * library built without NDEBUG ends the process with a message on standard error when the callback calls one of them.
 */
class FRONTPANELHW_EXPORT KeyHandler {
public:
    /**
     * Creates, exports and configures the key pins as plain inputs and remembers their levels, so that a key held
     * now gives no press event. Polling is not started.
     * @throws std::exception from a pin that fails while it is created, exported or configured
     */
    explicit KeyHandler(std::unique_ptr<GpioVectorCreator> gpioCreator);

    /** Stops polling, then deletes the key pins. */
    ~KeyHandler();

    KeyHandler(const KeyHandler&) = delete;
    KeyHandler& operator=(const KeyHandler&) = delete;

    /**
     * Remembers the level of every key. A key that cannot be read is reported on standard error; it and all keys
     * after it then never produce an event.
     * @return true when every key was read
     */
    bool initKeys();

    /**
     * Starts the polling thread.
     * @param period sleep between two scans of all keys; 0 or less scans without a pause
     * @return false when polling already runs
     * @throws std::system_error when no thread can be created; the handler is then stopped
     */
    bool start(std::chrono::milliseconds period);

    /** Stops polling and waits for the thread to end: at most a scan, with its callbacks, and a period. Does nothing
     * when stopped. */
    void stop();

    /**
     * Replaces anyKeyChangedCb, from any thread and at any time, without waiting for the polling thread. While keys are
     * polled, that thread installs the function between two events; an event that is just being reported still goes to
     * the earlier function. When stop returns, the function is installed.
     */
    void replaceCallback(std::function<void(unsigned, bool)> callback);

    /**
     * Body of the polling thread; returns once running is false. Writes a log line for each event that has a
     * callback, then calls it. What a pin read or the callback throws as std::exception is dropped, and the scan goes
     * on with the next key; an exception of another type ends the process.
     */
    void pollingWorker(std::chrono::milliseconds period);

    /**
     * Reads one key and compares it with the level remembered. Polling thread; takes the handler's lock.
     * @param index key index
     * @param value receives the level read
     * @return true when an event is due
     * @throws std::out_of_range for a key that does not exist or whose first level could not be read
     * @throws std::exception from a failed read
     */
    bool fireChangeEvent(unsigned index, bool& value);

private:
    FRONTPANELHW_HIDDEN void installReplacement(std::thread::id nextPoller);

    std::thread thread;

public:
    /** True from start to stop. Only to be read from outside, from any thread. */
    std::atomic<bool> running{false};

private:
    std::mutex mutex;
    std::unique_ptr<GpioVectorCreator> gpioCreator;
    std::vector<std::unique_ptr<sysfs::ISysfsGpio>>* keys;
    std::vector<bool> keyStates;

public:
    /**
     * Called on the polling thread with key index and level (true = pressed); empty at first. Assign it directly only
     * while polling is stopped; replaceCallback does so at any time.
     */
    std::function<void(unsigned, bool)> anyKeyChangedCb;

private:
    std::mutex handover; ///< guards the two members below, and anyKeyChangedCb while nobody polls
    std::function<void(unsigned, bool)> replacement;
    bool replaced = false;
    std::atomic<std::thread::id> poller{std::thread::id()}; ///< the thread in pollingWorker; changed under handover
};

} // namespace frontpanelhw::handler
