#pragma once

#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace panelsim {

/** Owns a socket. */
class Socket {
public:
    explicit Socket(int descriptor) : number(descriptor) {}
    ~Socket()
    {
        if (number >= 0) {
            close(number);
        }
    }

    Socket(Socket&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Socket& operator=(Socket&& other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }

    int descriptor() const { return number; }

    /** Sets an option that is no more than a nicety: it does not matter when it cannot be set. */
    void setOption(int level, int name, int value) const { setsockopt(number, level, name, &value, sizeof(value)); }

private:
    int number;
};

} // namespace panelsim
