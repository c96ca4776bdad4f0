#pragma once

#include "panelsim/board/AppState.h"
#include "panelsim/board/ChangeSignal.h"

#include <mutex>

namespace panelsim {

/** The application's state, for several threads. */
class AppStatus {
public:
    /** @param signal is notified of each new state; must outlive this object */
    explicit AppStatus(ChangeSignal& signal) : changes(signal) {}

    AppState get() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return state;
    }

    void set(const AppState& next)
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            state = next;
        }
        changes.notify();
    }

private:
    ChangeSignal& changes;
    mutable std::mutex mutex;
    AppState state;
};

} // namespace panelsim
