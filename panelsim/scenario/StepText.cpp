#include "panelsim/scenario/StepText.h"

#include "panelsim/board/Duration.h"
#include "panelsim/board/Utf8.h"

namespace panelsim {

namespace {

std::string numbered(const char* what, unsigned number)
{
    return what + (" " + std::to_string(number));
}

std::string within(std::chrono::milliseconds duration)
{
    return " within " + describe(duration);
}

std::string toBe(bool lit)
{
    return std::string(" to be ") + (lit ? "on" : "off");
}

/** Finds words for each action. */
struct Describer {
    std::string operator()(const steps::Delay& step) const { return describe(step.duration); }
    std::string operator()(const steps::Press& step) const { return numbered("key", step.key); }
    std::string operator()(const steps::Release& step) const { return numbered("key", step.key); }
    std::string operator()(const steps::Tap& step) const
    {
        return numbered("key", step.key) + " for " + describe(step.duration);
    }
    std::string operator()(const steps::WaitText& step) const
    {
        return (step.line ? numbered("line", *step.line) : "a line") + " to contain " + inQuotes(step.text) +
               within(step.within);
    }
    std::string operator()(const steps::ExpectText& step) const
    {
        return numbered("line", step.line) + " to be " + inQuotes(step.text);
    }
    std::string operator()(const steps::ExpectInverted& step) const
    {
        return numbered("line", step.line) + (step.inverted ? " to be" : " not to be") +
               numbered(" inverted from column", step.from) + numbered(" to", step.to);
    }
    std::string operator()(const steps::ExpectLed& step) const { return numbered("LED", step.led) + toBe(step.lit); }
    std::string operator()(const steps::WaitLed& step) const
    {
        return numbered("LED", step.led) + toBe(step.lit) + within(step.within);
    }
    std::string operator()(const steps::ExpectBacklight& step) const { return "the backlight" + toBe(step.lit); }
    std::string operator()(const steps::WaitOutput& step) const
    {
        return "the application to write " + inQuotes(step.text) + within(step.within);
    }
    std::string operator()(const steps::WaitExit& step) const
    {
        return "the application to end with status " + std::to_string(step.status) + within(step.within);
    }
    std::string operator()(const steps::ExpectNoBusFaults& /*step*/) const { return "no faults on the LCD bus"; }
    std::string operator()(const steps::FailPin& step) const
    {
        return numbered("GPIO", *step.fault.gpio) + ", " + std::to_string(*step.fault.calls) +
               (step.fault.calls == 1 ? " call, " : " calls, ") +
               (step.fault.kind == PinFault::Kind::Throw ? "by throwing" : "by answering false");
    }
    std::string operator()(const steps::TakeScreenshot& step) const
    {
        const std::string compared =
            step.compareWith ? "the panel to look as in " + step.compareWith->string() : std::string();
        return compared + (step.saveTo && step.compareWith ? ", " : "") +
               (step.saveTo ? "saved to " + step.saveTo->string() : std::string());
    }
};

} // namespace

std::string describe(const StepAction& action)
{
    return std::visit(Describer(), action);
}

} // namespace panelsim
