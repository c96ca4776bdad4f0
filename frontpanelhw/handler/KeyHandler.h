#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/handler/GpioVectorCreator.h"
#include "frontpanelhw/handler/KeyChangedCb.h"
#include "sysfs/ISysfsGpio.h"

#include <atomic>
#include <chrono>
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
 * it, and every event of any key starts it anew. Several handlers may poll at once.
 *
 * start, stop and the destructor belong to one thread at a time. Neither stop nor the destructor may be called from
 * the callback, where the polling thread would wait for itself, nor with a lock held that the callback takes. A library
 * built without NDEBUG ends the process with a message on standard error when they are called from the callback.
 */
class FRONTPANELHW_EXPORT KeyHandler {
public:
    /**
     * Creates, exports and configures the key pins as plain inputs and remembers the levels that they show, so that
     * a key held now gives no press event. Polling is not started.
     * @throws std::exception whatever a pin throws while it is created, exported or configured
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
     * @throws std::exception whatever the read throws
     */
    bool fireChangeEvent(unsigned index, bool& value);

private:
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
     * Called on the polling thread with key index and level; empty at first. May be replaced at any time and from
     * any thread; a call under way at that moment still ends in the callback that was replaced.
     */
    KeyChangedCb anyKeyChangedCb;
};

} // namespace frontpanelhw::handler
