#include "tests/faults/PanelLife.h"

#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"
#include "sysfs/SysfsGpioFactory.h"

using namespace frontpanelhw;
using Kind = PanelStep::Kind;

PanelLife::PanelLife(const panelsim::BoardConfig& config, const FaultPlan& plan, bool wantTrace)
    : board(config, [this] { return time.now(); }), pins(board, plan, wantTrace)
{
}

void PanelLife::construct()
{
    const panelsim::BoardConfig& wiring = board.getConfig();
    if (wiring.hasLcd) {
        auto indoor =
            std::make_unique<fp::Indoor>(10, 20, 40, 3, 8, std::vector<unsigned>{1, 28}, std::vector<unsigned>{0, 1});
        lcd = indoor.get();
        panel = std::move(indoor);
    } else {
        panel = std::make_unique<fp::Outdoor>(10, 20);
    }
    panel->connectAnyKeyChangedCb([this](unsigned key, bool pressed) {
        keyEvents += std::to_string(key) + (pressed ? "+" : "-");
        panel->setLed(6, pressed);
    });
}

void PanelLife::scan(unsigned times)
{
    for (unsigned i = 0; polling && i < times; ++i) {
        time.scan();
    }
}

panelsim::BoardConfig lifeBoard(bool withLcd, panelsim::ChipVariant chip)
{
    panelsim::BoardConfig config =
        withLcd ? panelsim::BoardConfig() : panelsim::boardOf(panelsim::panelKind("outdoor"));
    config.chip = chip;
    config.invertedLeds = withLcd ? std::vector<unsigned>{1} : std::vector<unsigned>();
    config.backlightInverted = true;
    return config;
}

drawing::DisplayBuffer makePage(unsigned columns, char16_t first,
                                const std::function<bool(unsigned, unsigned)>& isInverted)
{
    drawing::DisplayBuffer page(columns, 3);
    for (unsigned line = 0; line < 3; ++line) {
        drawing::DisplayLine text;
        for (unsigned column = 0; column < columns; ++column) {
            text.addCharacter({static_cast<char16_t>(first + 7 * line + column % columns), isInverted(column, line)});
        }
        page.setDisplayLine(line, text);
    }
    return page;
}

namespace {

PanelStep step(Kind kind, std::function<void(PanelLife&)> run)
{
    return {kind, [run = std::move(run)](PanelLife& life) { return run(life), true; }};
}

PanelStep startStep(bool lampTest)
{
    return {Kind::Start, [lampTest](PanelLife& life) {
                life.polling = life.panel->start(lampTest, 1);
                life.time.awaitSleeper();
                return life.polling;
            }};
}

const PanelStep constructStep = step(Kind::Construct, [](PanelLife& life) { life.construct(); });
const PanelStep stopStep = step(Kind::Stop, [](PanelLife& life) {
    life.polling = false;
    life.panel->stop();
});
const PanelStep destroyStep = step(Kind::Destroy, [](PanelLife& life) { life.panel.reset(); });

} // namespace

std::vector<PanelStep> lampTestLife()
{
    return {constructStep, startStep(true), stopStep, destroyStep};
}

std::vector<PanelStep> wholeLife(bool withLcd)
{
    const auto page =
        makePage(6, u'0', [](unsigned column, unsigned line) { return column / 2 == line || column == 5; });
    std::vector<PanelStep> steps{
        {Kind::Detect,
         [withLcd](PanelLife&) {
             sysfs::SysfsGpioFactory factory;
             return detectType(factory, 4) == (withLcd ? FrontPanelType::Indoor : FrontPanelType::Outdoor);
         }},
        constructStep,
        startStep(!withLcd),
        {Kind::IsRunning, [](PanelLife& life) { return life.panel->isRunning(); }},
        step(Kind::Keys,
             [withLcd](PanelLife& life) {
                 life.board.press(1);
                 life.scan(withLcd ? 1 : 11);
                 life.board.release(1);
                 life.scan(1);
             }),
        {Kind::Led, [](PanelLife& life) { return life.panel->setLed(1, true); }},
        {Kind::Led, [](PanelLife& life) { return life.panel->setLed(3, true); }},
        step(Kind::AllLeds, [](PanelLife& life) { life.panel->setAllLeds(true); }),
        step(Kind::AllLeds, [](PanelLife& life) { life.panel->setAllLeds(false); }),
    };
    if (withLcd) {
        const std::vector<PanelStep> display{
            {Kind::Display, [page](PanelLife& life) { return life.lcd->printBuffer(page); }},
            {Kind::Display, [](PanelLife& life) { return life.lcd->printLine(1, drawing::DisplayLine(u"text")); }},
            {Kind::Display, [](PanelLife& life) { return life.lcd->clear(); }},
            {Kind::Display, [](PanelLife& life) { return life.lcd->swapPage(); }},
            {Kind::Display, [](PanelLife& life) { return life.lcd->enable(false); }},
            {Kind::Reset, [](PanelLife& life) { return life.lcd->resetController(); }},
        };
        steps.insert(steps.end(), display.begin(), display.end());
    }
    steps.push_back(stopStep);
    steps.push_back(destroyStep);
    return steps;
}

StepRecord runStep(const PanelStep& step, PanelLife& life)
{
    StepRecord record;
    record.failuresBefore = life.pins.failures.size();
    record.readsBefore = life.pins.reads.size();
    record.callsBefore = life.pins.calls;
    try {
        record.result = step.run(life) ? "true" : "false";
    } catch (const std::exception& e) {
        record.result = std::string("throws ") + e.what();
    } catch (const ForeignFault&) {
        record.result = "foreign";
    }
    record.log = life.output.take();
    for (unsigned led = 0; led < 8; ++led) {
        record.leds.push_back(life.board.lineLevel(20 + led) == panelsim::LineLevel::High);
    }
    return record;
}
