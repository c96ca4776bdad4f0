#pragma once

#include <string>

namespace panelsim {

/**
 * Writes bytes, waiting so long for each part of them to be taken, and removes what was written.
 * @return 0, or the number of an error, after which no more can be written and no bytes are left
 */
int writeSome(int descriptor, std::string& bytes, int milliseconds);

/** Writes to standard output or error; drops the rest when nothing was taken for two seconds. */
void writeAll(int descriptor, std::string bytes);

/** Writes "panelsim: " and the text, of one or more lines, to standard error, without control characters. */
void say(const std::string& text);

} // namespace panelsim
