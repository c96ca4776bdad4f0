#include "panelsim/scenario/PanelCheck.h"

#include "panelsim/board/LcdChip.h"
#include "panelsim/board/Utf8.h"
#include "panelsim/scenario/ShownText.h"

namespace panelsim {

namespace {

bool isDisplayOn(const PanelView& view)
{
    return view.lcd && view.lcd->displayOn;
}

bool isInverted(const PanelView& view, unsigned line, unsigned column)
{
    return isDisplayOn(view) && view.lcd->lines.at(line).at(column).inverted;
}

std::string describeLine(const PanelView& view, unsigned line)
{
    if (!isDisplayOn(view)) {
        return "the display is off";
    }
    return "line " + std::to_string(line) + " shows " + inQuotes(withoutTrailingBlanks(shownLine(view, line)));
}

Objection checkLight(const std::string& name, bool lit, bool expected)
{
    return lit == expected ? Objection() : name + (lit ? " is on" : " is off");
}

} // namespace

Objection check(const steps::WaitText& step, const PanelView& view)
{
    for (unsigned line = step.line.value_or(0); line <= step.line.value_or(LcdChip::rows - 1); ++line) {
        if (shownLine(view, line).find(step.text) != std::string::npos) {
            return std::nullopt;
        }
    }
    return step.line || !isDisplayOn(view) ? describeLine(view, step.line.value_or(0)) : "none does";
}

Objection check(const steps::ExpectText& step, const PanelView& view)
{
    const bool isEqual = withoutTrailingBlanks(shownLine(view, step.line)) == withoutTrailingBlanks(step.text);
    return isEqual ? Objection() : describeLine(view, step.line);
}

Objection check(const steps::ExpectInverted& step, const PanelView& view)
{
    for (unsigned column = step.from; column <= step.to; ++column) {
        if (isInverted(view, step.line, column) != step.inverted) {
            return "column " + std::to_string(column) + (step.inverted ? " is not" : " is");
        }
    }
    return std::nullopt;
}

Objection check(const steps::ExpectLed& step, const PanelView& view)
{
    return checkLight("LED " + std::to_string(step.led), view.leds.at(step.led), step.lit);
}

Objection check(const steps::WaitLed& step, const PanelView& view)
{
    return check(steps::ExpectLed{step.led, step.lit}, view);
}

Objection check(const steps::ExpectBacklight& step, const PanelView& view)
{
    return checkLight("it", view.lcd && view.lcd->backlight, step.lit);
}

} // namespace panelsim
