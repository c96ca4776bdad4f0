#include "panelsim/web/EventClients.h"

namespace panelsim {

EventClients::EventClients(HeldKeys& itsKeys) : keys(itsKeys)
{
}

EventClients::Presence EventClients::join()
{
    const HeldKeys::Hand client = ++lastNumber;
    // Before the lock, since its end, should this function fail, needs it too.
    Presence presence(new HeldKeys::Hand(client), [this](const HeldKeys::Hand* number) {
        leave(*number);
        delete number;
    });
    const std::lock_guard<std::mutex> lock(mutex);
    if (present.size() == most) {
        return nullptr;
    }
    present.insert(client);
    return presence;
}

bool EventClients::setKey(HeldKeys::Hand client, unsigned key, bool pressed)
{
    // Locked until the key has moved: a client that leaves meanwhile takes its hand off that key too.
    const std::lock_guard<std::mutex> lock(mutex);
    if (present.count(client) == 0) {
        return false;
    }
    if (pressed) {
        keys.press(client, key);
    } else {
        keys.release(client, key);
    }
    return true;
}

void EventClients::leave(HeldKeys::Hand client)
{
    const std::lock_guard<std::mutex> lock(mutex);
    present.erase(client);
    keys.leave(client);
}

} // namespace panelsim
