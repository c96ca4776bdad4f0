#include "frontpanelhw/handler/KeyHandler.h"

#include "frontpanelhw/Wait.h"
#include "sysfs/PinDirectionEn.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <utility>

namespace frontpanelhw::handler {

namespace {

constexpr unsigned heldPollsBeforeRepeat = 8;

/** Polls that found a key held since the last event, over all keys and all handlers. */
std::atomic<unsigned> repeatCounter{0};

/** Counts one poll of a held key. Of several handlers that count at once, exactly one sees the count come round. */
bool countHeldPoll()
{
    return repeatCounter.fetch_add(1, std::memory_order_relaxed) == heldPollsBeforeRepeat;
}

void sleepPeriod(std::chrono::milliseconds period)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(period);
    wait(seconds, period - seconds);
}

#ifdef NDEBUG
constexpr bool reportsMisuse = false;
#else
constexpr bool reportsMisuse = true;
#endif

/** While it lives, its thread polls for the handler. */
class Polling {
public:
    explicit Polling(const KeyHandler& handler) { current = &handler; }
    ~Polling() { current = nullptr; }
    Polling(const Polling&) = delete;
    Polling& operator=(const Polling&) = delete;

    static bool isFor(const KeyHandler& handler) { return current == &handler; }

private:
    static thread_local const KeyHandler* current;
};

thread_local const KeyHandler* Polling::current = nullptr;

[[noreturn]] void endForMisuse()
{
    std::cerr << "ERROR: "
              << "panel stopped or destroyed by its own key callback: leave that to another thread" << std::endl;
    std::abort();
}

} // namespace

KeyHandler::KeyHandler(std::unique_ptr<GpioVectorCreator> keyCreator)
    : gpioCreator(std::move(keyCreator)), keys(&gpioCreator->createAndInit(false, sysfs::PinDirectionEn::Input, false))
{
    initKeys();
}

KeyHandler::~KeyHandler()
{
    stop();
}

bool KeyHandler::initKeys()
{
    for (const auto& key : *keys) {
        try {
            keyStates.push_back(key->getValue());
        } catch (const std::exception&) {
            std::cerr << "ERROR: "
                      << "unable to get key gpio value: " << std::to_string(key->getGpioNumber()) << "\n";
            return false;
        }
    }
    return true;
}

bool KeyHandler::start(std::chrono::milliseconds period)
{
    if (running.exchange(true)) {
        return false;
    }
    try {
        thread = std::thread(&KeyHandler::pollingWorker, this, period);
    } catch (...) {
        running = false;
        throw;
    }
    return true;
}

void KeyHandler::stop()
{
    if (reportsMisuse && Polling::isFor(*this)) {
        endForMisuse();
    }
    if (!running.exchange(false)) {
        return;
    }
    std::cout << "INFO: "
              << "KeyHandler stop called"
              << "\n";
    if (thread.joinable()) {
        thread.join();
    }
}

void KeyHandler::pollingWorker(std::chrono::milliseconds period)
{
    const Polling polling(*this);
    while (running) {
        for (unsigned i = 0; i < keys->size(); ++i) {
            try {
                bool value = false;
                if (!fireChangeEvent(i, value)) {
                    continue;
                }
                if (const auto callback = anyKeyChangedCb.get()) {
                    std::cout << "INFO: "
                              << "key event from: " << i << "\n";
                    (*callback)(i, value);
                }
            } catch (const std::exception&) {
                // A key that fails now is read again in the next scan; its neighbours must not wait for it.
            }
        }
        if (period >= std::chrono::milliseconds(1)) {
            sleepPeriod(period);
        }
    }
}

bool KeyHandler::fireChangeEvent(unsigned index, bool& value)
{
    const std::lock_guard<std::mutex> lock(mutex);
    value = keys->at(index)->getValue();
    std::vector<bool>::reference state = keyStates.at(index);
    const bool old = state;
    const bool held = value && old;
    const bool event = held ? countHeldPoll() : value != old;
    state = value;
    if (event) {
        repeatCounter.store(0, std::memory_order_relaxed);
    }
    return event;
}

} // namespace frontpanelhw::handler
