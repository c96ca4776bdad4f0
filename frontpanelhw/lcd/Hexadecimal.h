#pragma once

#include <ostream>

namespace frontpanelhw::lcd {

/** std::hex for a stream that another thread may write to: changes no base that is hexadecimal already. */
inline std::ostream& hexadecimal(std::ostream& stream)
{
    return (stream.flags() & std::ios_base::basefield) == std::ios_base::hex ? stream : stream << std::hex;
}

} // namespace frontpanelhw::lcd
