#include "tools/LampTest.h"

#include "tools/DisplaySize.h"
#include "tools/PrintedPage.h"

#include <stdexcept>

namespace tools {

namespace {

PrintedPage filledPage()
{
    PrintedPage page;
    for (unsigned line = 0; line < DisplaySize::lines; ++line) {
        page.inverted.push_back({line, 0, DisplaySize::chars - 1});
    }
    return page;
}

} // namespace

bool testLamps(Panel& panel, std::chrono::seconds duration, Interrupt& interrupt)
{
    const auto lightAll = [&panel] { panel.keysAndLeds().setAllLeds(true); };
    lightAll();
    bool ok = panel.show(filledPage().toBuffer(), lightAll);
    interrupt.wait(Interrupt::Clock::now() + duration);
    panel.keysAndLeds().setAllLeds(false);
    ok &= panel.show(PrintedPage().toBuffer());
    return ok;
}

void runLampTest(const Wiring& wiring, std::chrono::seconds duration, Interrupt& interrupt)
{
    Panel panel(resolvePanel(wiring, Panel::usedLines()));
    bool ok = false;
    panel.run([&] { ok = testLamps(panel, duration, interrupt); });
    if (!ok) {
        throw std::runtime_error("the display failed during the lamp test");
    }
}

} // namespace tools
