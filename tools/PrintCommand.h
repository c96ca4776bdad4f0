#pragma once

#include "tools/PrintedPage.h"
#include "tools/Wiring.h"

namespace tools {

/**
 * Shows a page, which stays; keys and LEDs are left alone.
 * @throws UsageError, std::exception when there is no display or it fails
 */
void printPage(const Wiring& wiring, const PrintedPage& page);

} // namespace tools
