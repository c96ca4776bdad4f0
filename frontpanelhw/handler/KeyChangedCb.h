#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace frontpanelhw::handler {

/**
 * A key callback that may be replaced while another thread calls it. Used like the std::function that it holds.
 *
 * The lock is held only while the function is exchanged or picked up, never while it runs: replacing it waits for
 * nothing, and a function that was just replaced may still be finishing its last call on the other thread.
 */
class KeyChangedCb {
public:
    using Function = std::function<void(unsigned, bool)>;

    KeyChangedCb() = default;
    KeyChangedCb(const KeyChangedCb&) = delete;
    KeyChangedCb& operator=(const KeyChangedCb&) = delete;

    /** Installs a function in place of the one held; an empty one removes it. */
    KeyChangedCb& operator=(Function newFunction)
    {
        auto replacement =
            newFunction ? std::make_shared<const Function>(std::move(newFunction)) : std::shared_ptr<const Function>();
        const std::lock_guard<std::mutex> lock(exchange);
        function.swap(replacement);
        return *this;
    }

    /** @return the function held now, null when there is none; it stays callable whatever is installed meanwhile */
    std::shared_ptr<const Function> get() const
    {
        const std::lock_guard<std::mutex> lock(exchange);
        return function;
    }

    explicit operator bool() const { return get() != nullptr; }

    /** @throws std::bad_function_call when no function is held */
    void operator()(unsigned index, bool level) const
    {
        const auto current = get();
        if (!current) {
            throw std::bad_function_call();
        }
        (*current)(index, level);
    }

private:
    mutable std::mutex exchange;
    std::shared_ptr<const Function> function;
};

} // namespace frontpanelhw::handler
