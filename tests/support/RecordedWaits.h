#pragma once

#include <functional>
#include <string>

/**
 * While it lives, the sleeps of the thread that made it take no time: each is told instead, as "10us", "300ms" or "2s",
 * and is interrupted by a signal halfway when the answer is false. Other threads sleep as ever.
 */
class RecordedWaits {
public:
    using Listener = std::function<bool(const std::string& wait)>;

    explicit RecordedWaits(Listener listener = [](const std::string&) { return true; });
    ~RecordedWaits();
    RecordedWaits(const RecordedWaits&) = delete;
    RecordedWaits& operator=(const RecordedWaits&) = delete;
};
