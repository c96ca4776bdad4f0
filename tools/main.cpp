#include "tools/Frontpanel.h"

#include <sys/prctl.h>

namespace {

/**
 * Lets this thread, and those that it starts, wake up as soon as a wait is over: by default the kernel may add 50 us
 * to each wait of the LCD bus, most of which are of 10 us. Where it refuses, only waits are longer.
 */
void minimizeTimerSlack()
{
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL); // in nanoseconds; 0 would mean the slack at the start
}

} // namespace

int main(int argc, char* argv[])
{
    minimizeTimerSlack();
    return tools::runFrontpanel(argc, argv);
}
