#pragma once

#include <cstdint>
#include <optional>

namespace panelsim {

/** The operations of a pin and, first, of the factory that makes it. */
enum class PinOperation { Create, Export, Init, Deinit, SetDirection, SetValue, GetValue };

/** Lets pin operations of a board fail, before they have any effect; only deinit releases the line all the same. */
struct PinFault {
    enum class Kind {
        Throw, ///< a std::runtime_error
        False  ///< false is returned; init and setValue only, other operations do not match
    };

    std::optional<unsigned> gpio = {};          ///< the line; any when empty, and none for Create
    std::optional<PinOperation> operation = {}; ///< the operation; any when empty
    std::uint64_t call = 1;                     ///< first matching call from now on that fails, the next being 1
    std::optional<std::uint64_t> calls = 1;     ///< how many fail from that one on; all of them when empty
    Kind kind = Kind::Throw;
};

} // namespace panelsim
