#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

/** Events from a key callback, as "2+" for key 2 at level 1 and "2-" for level 0, to wait for on another thread. */
class KeyEvents {
public:
    void add(unsigned key, bool level)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        text += std::to_string(key) + (level ? "+" : "-");
        changed.notify_all();
    }

    /** @return whether these events come, one after the other, within a generous time */
    bool waitFor(const std::string& wanted)
    {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10), [&] { return text.find(wanted) != std::string::npos; });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::string text;
};
