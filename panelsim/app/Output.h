#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

namespace panelsim {

/**
 * Gives descriptors 0 to 2, where one is closed, a place that can neither be read nor written as intended. Otherwise
 * the next file that is opened would get the number, and the application's text would end up there.
 */
void occupyStandardDescriptors();

/**
 * Writes some of the bytes to standard output or error, without waiting when that is a pipe.
 * @return as write does, with EAGAIN while nothing is taken
 */
ssize_t writeSome(int descriptor, std::string_view bytes);

/**
 * Writes to standard output or error; gives up on the rest when nothing was taken for two seconds, and then at once
 * until something is taken again: no reader that stands still is to hold up what this program has to do.
 */
void writeAll(int descriptor, std::string_view bytes);

/** Writes "panelsim: " and the text, of one or more lines, to standard error. */
void say(const std::string& text);

} // namespace panelsim
