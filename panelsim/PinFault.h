#pragma once

#include <optional>

namespace panelsim {

/** The operations of a pin and, first, of the factory that makes it. */
enum class PinOperation { Create, Export, Init, Deinit, SetDirection, SetValue, GetValue };

/** Lets pin operations of a board fail, before they have any effect. */
struct PinFault {
    enum class Kind {
        Throw, ///< a std::runtime_error
        False  ///< the answer false; init and setValue only, other operations do not match
    };

    std::optional<unsigned> gpio = {};          ///< the line; any when empty, and none for Create
    std::optional<PinOperation> operation = {}; ///< the operation; any when empty
    unsigned call = 1;                          ///< which matching call from now on fails, the first being 1
    bool lasting = false;                       ///< whether all matching calls after that one fail too
    Kind kind = Kind::Throw;
};

} // namespace panelsim
