#pragma once

namespace tools {

/** Owns a file descriptor. */
class Descriptor {
public:
    /** @throws std::system_error with errno's reason and the given text when the descriptor is negative */
    Descriptor(int descriptor, const char* what);
    ~Descriptor();

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return descriptor; }

private:
    int descriptor;
};

} // namespace tools
