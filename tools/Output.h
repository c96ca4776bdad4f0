#pragma once

#include <string>

namespace tools {

/**
 * Opens /dev/null, only for reading, for each of the descriptors 0 to 2 that is closed. Otherwise the next file that is
 * opened would get its number, and lines of text would be written to a GPIO.
 */
void occupyStandardDescriptors();

/** Writes a line to standard output at once; safe while the panel's polling thread writes its log there. */
void printLine(const std::string& line);

/** Writes out what is left. @return whether any write to standard output failed since the error was last cleared */
bool outputFailed();

/** Writes "frontpanel: " and the text to standard error, as exactly one line: control characters become question marks.
 */
void complain(const std::string& text);

} // namespace tools
