#include "frontpanelhw/handler/KeyEventQueue.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <limits>
#include <map>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace frontpanelhw::handler {

namespace {

constexpr std::size_t mostEvents = 256;
constexpr std::chrono::milliseconds longestWait(std::numeric_limits<int>::max());

} // namespace

/** The descriptor's counter is above 0 while events wait or the queue is closed. */
struct KeyEventQueue::State {
    State() : descriptor(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
    {
        if (descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), "cannot make a queue of key events");
        }
    }
    ~State() { ::close(descriptor); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void push(unsigned key, bool pressed);
    void mergeRepeat(unsigned key);
    void makeRoom();
    std::optional<KeyEvent> take();

    const int descriptor;
    std::mutex mutex; ///< guards all below
    std::vector<KeyEvent> events;
    std::map<unsigned, unsigned> repeatsOfHeldKeys;
    unsigned dropped = 0;
    bool closed = false;
};

void KeyEventQueue::State::push(unsigned key, bool pressed)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (closed) {
        return;
    }
    const auto [held, isNew] = repeatsOfHeldKeys.try_emplace(key, 0);
    KeyEvent event{key, KeyAction::Pressed, 0, std::chrono::steady_clock::now()};
    if (!pressed) {
        event.action = KeyAction::Released;
        event.repeats = held->second;
        repeatsOfHeldKeys.erase(held);
    } else if (!isNew) {
        event.action = KeyAction::Repeated;
        event.repeats = ++held->second;
        mergeRepeat(key);
    }
    if (events.size() == mostEvents) {
        makeRoom();
    }
    events.push_back(event);
    eventfd_write(descriptor, 1);
}

void KeyEventQueue::State::mergeRepeat(unsigned key)
{
    const auto latest =
        std::find_if(events.rbegin(), events.rend(), [key](const KeyEvent& event) { return event.key == key; });
    if (latest != events.rend() && latest->action == KeyAction::Repeated) {
        events.erase(std::prev(latest.base()));
    }
}

void KeyEventQueue::State::makeRoom()
{
    auto first = events.begin();
    auto end = std::next(first);
    for (auto press = events.begin(); press != events.end(); ++press) {
        const auto release = std::find_if(press, events.end(), [&press](const KeyEvent& event) {
            return event.key == press->key && event.action == KeyAction::Released;
        });
        if (press->action == KeyAction::Pressed && release != events.end()) {
            first = press;
            end = std::next(release);
            break;
        }
    }
    const unsigned key = first->key;
    const auto removed = std::remove_if(first, end, [key](const KeyEvent& event) { return event.key == key; });
    dropped += static_cast<unsigned>(end - removed);
    events.erase(removed, end);
}

std::optional<KeyEvent> KeyEventQueue::State::take()
{
    if (events.empty()) {
        return std::nullopt;
    }
    const KeyEvent event = events.front();
    events.erase(events.begin());
    if (events.empty() && !closed) {
        eventfd_t count = 0;
        eventfd_read(descriptor, &count);
    }
    return event;
}

KeyEventQueue::KeyEventQueue() : state(std::make_shared<State>())
{
}

KeyEventQueue::~KeyEventQueue() = default;

std::function<void(unsigned, bool)> KeyEventQueue::callback() const
{
    return [queue = std::weak_ptr<State>(state)](unsigned key, bool pressed) {
        if (const auto alive = queue.lock()) {
            alive->push(key, pressed);
        }
    };
}

std::optional<KeyEvent> KeyEventQueue::next(std::chrono::milliseconds timeout)
{
    using std::chrono::steady_clock;
    const auto end = steady_clock::now() + std::clamp(timeout, std::chrono::milliseconds::zero(), longestWait);
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
        {
            const std::lock_guard<std::mutex> lock(state->mutex);
            const auto event = state->take();
            const bool expired = timeout.count() >= 0 && left.count() <= 0;
            if (event || state->closed || expired) {
                return event;
            }
        }
        pollfd readable{state->descriptor, POLLIN, 0};
        poll(&readable, 1, timeout.count() < 0 ? -1 : static_cast<int>(left.count()));
    }
}

void KeyEventQueue::close()
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->closed = true;
    eventfd_write(state->descriptor, 1);
}

int KeyEventQueue::descriptor() const
{
    return state->descriptor;
}

unsigned KeyEventQueue::dropped() const
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->dropped;
}

} // namespace frontpanelhw::handler
