#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/**
 * What an input chooses, byte by byte; zeros once it is used up. Letters and digits mean what they look like where that
 * makes sense, so that inputs can be written by hand.
 */
class Choices {
public:
    Choices(const std::uint8_t* bytes, std::size_t size) : next(bytes), end(bytes + size) {}

    bool left() const { return next != end; }
    unsigned char byte() { return left() ? *next++ : 0; }

    /** @return 0 for '0' and so on, also beyond 9; bytes below '0' are the greatest numbers that there are */
    unsigned index() { return static_cast<unsigned>(byte()) - '0'; }

    /** @return a number below the limit, which is at most 256 */
    unsigned below(unsigned limit) { return (index() & 0xFFU) % limit; }

    bool flag() { return below(2) == 1; }

    /** @return code units, the first byte choosing how many of them; '~' is 0 and bytes past ASCII have two parts */
    std::u16string text(unsigned mostUnits)
    {
        std::u16string units;
        for (unsigned count = below(mostUnits + 1); units.size() < count;) {
            const unsigned unit = byte();
            units.push_back(static_cast<char16_t>(unit == '~' ? 0 : unit < 0x80 ? unit : unit << 8 | unit));
        }
        return units;
    }

private:
    const std::uint8_t* next;
    const std::uint8_t* end;
};
