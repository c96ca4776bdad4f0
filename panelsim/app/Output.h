#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

namespace panelsim {

/**
 * Opens descriptors 0 to 2, where one is closed, so that it can neither be read nor written as intended. Otherwise the
 * next file that is opened would get the number, and the application's text would end up there.
 */
void occupyStandardDescriptors();

/** Writes some of the bytes without waiting. @return as write does, with EAGAIN while nothing is taken */
ssize_t writeSome(int descriptor, std::string_view bytes);

/** Writes to standard output or error; drops the rest when nothing was taken for two seconds. */
void writeAll(int descriptor, std::string_view bytes);

/** Writes "panelsim: " and the text, of one or more lines, to standard error, without control characters. */
void say(const std::string& text);

} // namespace panelsim
