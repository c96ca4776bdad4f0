#pragma once

#include <string>
#include <string_view>

namespace panelsim {

/**
 * Gives descriptors 0 to 2, where one is closed, a place that can neither be read nor written as intended. Otherwise
 * the next file that is opened would get the number, and the application's text would end up there.
 */
void occupyStandardDescriptors();

/** Waits while the descriptor takes nothing. @return whether all of it was written, or else errno tells why not */
bool writeAll(int descriptor, std::string_view bytes);

/** Writes "panelsim: " and the text, of one or more lines, to standard error. */
void say(const std::string& text);

} // namespace panelsim
