#include "frontpanelhw/handler/KeyHandler.h"

#include "frontpanelhw/Wait.h"
#include "sysfs/PinDirectionEn.h"

#include <cassert>
#include <exception>
#include <iostream>
#include <string>
#include <utility>

namespace frontpanelhw::handler {

namespace {

constexpr unsigned heldPollsBeforeRepeat = 8;

/** Polls that found a key held since the last event, over all keys and all handlers. */
std::atomic<unsigned> repeatCounter{0};

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
            std::cerr << "ERROR: unable to get key gpio value: " << std::to_string(key->getGpioNumber()) << "\n";
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
    assert(poller.load() != std::this_thread::get_id() && "panel stopped or destroyed by its own key callback");
    if (!running.exchange(false)) {
        return;
    }
    std::cout << "INFO: KeyHandler stop called\n";
    if (thread.joinable()) {
        thread.join();
    }
}

void KeyHandler::replaceCallback(std::function<void(unsigned, bool)> callback)
{
    const std::lock_guard<std::mutex> lock(handover);
    replaced = poller.load() != std::thread::id();
    (replaced ? replacement : anyKeyChangedCb).swap(callback);
}

/** The earlier function is destroyed after the lock is released: its destructor is the application's code. */
void KeyHandler::installReplacement(std::thread::id nextPoller)
{
    std::function<void(unsigned, bool)> earlier;
    const std::lock_guard<std::mutex> lock(handover);
    poller = nextPoller;
    if (replaced) {
        earlier.swap(anyKeyChangedCb);
        anyKeyChangedCb.swap(replacement);
        replaced = false;
    }
}

void KeyHandler::pollingWorker(std::chrono::milliseconds period)
{
    const std::thread::id self = std::this_thread::get_id();
    while (running) {
        installReplacement(self);
        for (unsigned i = 0; i < keys->size(); ++i) {
            try {
                bool value = false;
                if (!fireChangeEvent(i, value)) {
                    continue;
                }
                installReplacement(self);
                if (anyKeyChangedCb) {
                    std::cout << "INFO: key event from: " << i << "\n";
                    anyKeyChangedCb(i, value);
                }
            } catch (const std::exception&) {
                // A key that fails now is read again in the next scan; its neighbours must not wait for it.
            }
        }
        if (period >= std::chrono::milliseconds(1)) {
            wait(period);
        }
    }
    installReplacement(std::thread::id());
}

bool KeyHandler::fireChangeEvent(unsigned index, bool& value)
{
    const std::lock_guard<std::mutex> lock(mutex);
    value = keys->at(index)->getValue();
    std::vector<bool>::reference state = keyStates.at(index);
    const bool held = value && state;
    const bool event = held ? repeatCounter++ == heldPollsBeforeRepeat : value != state;
    state = value;
    if (event) {
        repeatCounter = 0;
    }
    return event;
}

} // namespace frontpanelhw::handler
