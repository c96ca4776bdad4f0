#include "tools/KeyEventQueue.h"

#include <sys/eventfd.h>

namespace tools {

KeyEventQueue::KeyEventQueue() : counter(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), "cannot wait for key events")
{
}

void KeyEventQueue::push(const KeyEvent& event)
{
    const std::lock_guard<std::mutex> lock(mutex);
    events.push_back(event);
    eventfd_write(counter.get(), 1);
}

std::vector<KeyEvent> KeyEventQueue::take()
{
    const std::lock_guard<std::mutex> lock(mutex);
    eventfd_t count = 0;
    eventfd_read(counter.get(), &count);
    std::vector<KeyEvent> taken;
    taken.swap(events);
    return taken;
}

} // namespace tools
