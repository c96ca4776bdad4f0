#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

namespace frontpanelhw::handler {

/**
 * A key callback that may be replaced while another thread calls it. It is assigned, tested and called like the
 * std::function that it holds; a copy holds the function that was installed at that moment.
 *
 * The lock is held only while the function is exchanged or picked up, never while it runs: replacing it waits for
 * nothing, and a function that was just replaced may still be finishing its last call on the other thread.
 */
class KeyChangedCb {
public:
    /** Takes the key index, counted from 0, and the key's level, true = pressed. */
    using Function = std::function<void(unsigned, bool)>;

    /** Holds no function. */
    KeyChangedCb() = default;
    ~KeyChangedCb() = default;
    /** Holds the function that the other one holds now. */
    KeyChangedCb(const KeyChangedCb& other) : function(other.get()) {}

    /** Installs the function that the other one holds now. */
    KeyChangedCb& operator=(const KeyChangedCb& other)
    {
        if (this != &other) {
            install(other.get());
        }
        return *this;
    }

    /** Installs a function in place of the one held; an empty one, or nullptr, removes it. */
    template <typename Callable, typename = std::enable_if_t<std::is_convertible_v<Callable, Function> &&
                                                             !std::is_same_v<std::decay_t<Callable>, KeyChangedCb>>>
    KeyChangedCb& operator=(Callable&& callable)
    {
        Function newFunction(std::forward<Callable>(callable));
        install(newFunction ? std::make_shared<const Function>(std::move(newFunction)) : nullptr);
        return *this;
    }

    /** @return the function held now, null when there is none; it stays callable whatever is installed meanwhile */
    std::shared_ptr<const Function> get() const
    {
        const std::lock_guard<std::mutex> lock(exchange);
        return function;
    }

    /** @name Tests for a function: whether one is held now */
    ///@{
    /** As for a std::function. */
    explicit operator bool() const { return get() != nullptr; }
    friend bool operator==(const KeyChangedCb& cb, std::nullptr_t) { return !cb; }
    friend bool operator!=(const KeyChangedCb& cb, std::nullptr_t) { return static_cast<bool>(cb); }
    ///@}

    /** Calls the function held now, on the calling thread. @throws std::bad_function_call when there is none */
    void operator()(unsigned index, bool level) const
    {
        const auto current = get();
        if (!current) {
            throw std::bad_function_call();
        }
        (*current)(index, level);
    }

private:
    /** The function that was held ends its life outside the lock: its destructor is the application's code. */
    void install(std::shared_ptr<const Function> newFunction)
    {
        const std::lock_guard<std::mutex> lock(exchange);
        function.swap(newFunction);
    }

    mutable std::mutex exchange;
    std::shared_ptr<const Function> function;
};

} // namespace frontpanelhw::handler
