#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/handler/KeyEvent.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace frontpanelhw::handler {

/**
 * Takes key events from a panel's polling thread to threads of the application, and tells presses from repeats.
 *
 * A key counts as released until its first event: one that is held at start-up is reported as pressed by its first
 * repeat, and a first event that is a release is reported as one.
 *
 * At most 256 events wait. A repeat takes the place of the same key's repeat that waits as its latest event. When the
 * queue is full, the oldest press that waits together with its release is dropped, with that release and the repeat
 * between them; without such a press, which takes at least 64 keys, the oldest event is dropped.
 *
 * All operations may be called from any thread at any time, by several at once; only destruction waits until the
 * others have returned. Panels may go on calling the function that callback returned.
 */
class FRONTPANELHW_EXPORT KeyEventQueue {
public:
    /** @throws std::system_error when the system has no descriptor left */
    KeyEventQueue();

    /** Closes the descriptor; events that come later have no effect. */
    ~KeyEventQueue();

    KeyEventQueue(const KeyEventQueue&) = delete;
    KeyEventQueue& operator=(const KeyEventQueue&) = delete;

    /** @return the function for IFp::connectAnyKeyChangedCb; it may outlive the queue and then does nothing */
    std::function<void(unsigned, bool)> callback() const;

    /**
     * Takes the oldest event, and waits for one if there is none.
     * @param timeout how long to wait at most, up to 24 days; negative = without end
     * @return the event; nothing after the timeout, or when the queue is closed and no event is left
     */
    std::optional<KeyEvent> next(std::chrono::milliseconds timeout);

    /** Ends the waits of next, those to come included, and takes no more events. */
    void close();

    /** @return a close-on-exec descriptor, readable while events wait or the queue is closed; only to be polled */
    int descriptor() const;

    /** @return how many events were dropped because the queue was full */
    unsigned dropped() const;

private:
    struct FRONTPANELHW_HIDDEN State;
    std::shared_ptr<State> state;
};

} // namespace frontpanelhw::handler
