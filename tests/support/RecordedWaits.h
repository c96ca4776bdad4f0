#pragma once

#include <functional>
#include <string>

/**
 * While it lives, the sleeps of the thread that made it take no time: the listener is passed each, as "10us",
 * "300ms" or "2s". When it returns false, a signal interrupts the sleep halfway. Other threads sleep as usual.
 */
class RecordedWaits {
public:
    using Listener = std::function<bool(const std::string& wait)>;

    explicit RecordedWaits(Listener listener = [](const std::string&) { return true; });
    ~RecordedWaits();
    RecordedWaits(const RecordedWaits&) = delete;
    RecordedWaits& operator=(const RecordedWaits&) = delete;
};
