#pragma once

#include <functional>
#include <string>

/**
 * While it lives, the sleeps of the thread that made it take no time: each is told instead, as "10us", "300ms" or "2s".
 * Other threads sleep as ever.
 */
class RecordedWaits {
public:
    explicit RecordedWaits(std::function<void(const std::string&)> tell = {});
    ~RecordedWaits();
    RecordedWaits(const RecordedWaits&) = delete;
    RecordedWaits& operator=(const RecordedWaits&) = delete;

    /** The next sleep is interrupted by a signal, with half of it remaining. */
    void interruptNext();
};
