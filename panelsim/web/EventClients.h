#pragma once

#include "panelsim/board/HeldKeys.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <set>

namespace panelsim {

/** The pages that are connected, and their hands on the keys. All operations may be called from several threads. */
class EventClients {
public:
    static constexpr std::size_t most = 32;

    /** A client's number, from 1 up. It is connected, and may hold keys, as long as this exists. */
    using Presence = std::shared_ptr<const HeldKeys::Hand>;

    /** @param keys must outlive this object */
    explicit EventClients(HeldKeys& keys);

    /** @return nothing while there are too many. This object must outlive what is returned. */
    Presence join();

    /**
     * @return false when there is no such client
     * @throws std::out_of_range when there is no such key
     */
    bool setKey(HeldKeys::Hand client, unsigned key, bool pressed);

private:
    void leave(HeldKeys::Hand client);

    HeldKeys& keys;
    std::mutex mutex;
    std::set<HeldKeys::Hand> present;
    std::atomic<HeldKeys::Hand> lastNumber{0};
};

} // namespace panelsim
