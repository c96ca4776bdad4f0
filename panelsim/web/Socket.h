#pragma once

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

private:
    int number;
};

} // namespace panelsim
