#include "tools/Output.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

namespace tools {

void occupyStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) == -1) {
            open("/dev/null", O_RDONLY); // gets the lowest free number, which is this one
        }
    }
}

// Not std::cout: two threads that write text to one stream race for its field width.
void printLine(const std::string& line)
{
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

bool outputFailed()
{
    return std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
}

void complain(const std::string& text)
{
    std::string line = text;
    const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
    std::replace_if(line.begin(), line.end(), isControl, '?');
    std::cerr << "frontpanel: " + line + "\n";
}

} // namespace tools
