#pragma once

#include <string>

/**
 * Runs the tool in process, on the installed board or without any pins.
 * @param words what follows the tool's name, with one blank between two arguments
 * @return its exit status and, each after a "|", the lines of standard output and of standard error: without those of
 *         the library, which begin with a capital, and once where a line repeats the one before
 */
std::string runTool(std::string words);
