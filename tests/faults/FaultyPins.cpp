#include "tests/faults/FaultyPins.h"

#include "sysfs/SysfsGpioFactory.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

using panelsim::PinOperation;
using sysfs::PinDirectionEn;

namespace {

FaultyPins* installed = nullptr;

constexpr unsigned notExported = 0;
constexpr unsigned readStrobeOffset = 10; ///< from data line 0; then the write strobe and reset

bool canRefuse(PinOperation operation)
{
    return operation == PinOperation::Init || operation == PinOperation::SetValue;
}

class FaultyPin final : public sysfs::ISysfsGpio {
public:
    FaultyPin(FaultyPins& itsPins, std::unique_ptr<sysfs::ISysfsGpio> itsPin) : pins(itsPins), pin(std::move(itsPin))
    {
        ++pins.livePins;
    }
    ~FaultyPin() override { --pins.livePins; }
    FaultyPin(const FaultyPin&) = delete;
    FaultyPin& operator=(const FaultyPin&) = delete;

    bool init(bool inverted, PinDirectionEn direction, bool value) override
    {
        return pins.perform(PinOperation::Init, gpio, value, [&] { return pin->init(inverted, direction, value); });
    }
    void deinit() override
    {
        pins.perform(PinOperation::Deinit, gpio, false, [&] { return pin->deinit(), true; });
    }
    void setDirection(PinDirectionEn direction) override
    {
        pins.perform(PinOperation::SetDirection, gpio, direction == PinDirectionEn::Output,
                     [&] { return pin->setDirection(direction), true; });
    }
    bool setValue(bool value) override
    {
        return pins.perform(PinOperation::SetValue, gpio, value, [&] { return pin->setValue(value); });
    }
    bool getValue() const override
    {
        bool level = false;
        pins.perform(PinOperation::GetValue, gpio, false, [&] { return level = pin->getValue(), true; });
        return level;
    }
    void exportGpio(unsigned number) override
    {
        gpio = number;
        pins.perform(PinOperation::Export, gpio, false, [&] { return pin->exportGpio(number), true; });
    }
    unsigned getGpioNumber() const override { return pin->getGpioNumber(); }

private:
    FaultyPins& pins;
    std::unique_ptr<sysfs::ISysfsGpio> pin;
    unsigned gpio = notExported;
};

} // namespace

std::unique_ptr<sysfs::ISysfsGpio> sysfs::SysfsGpioFactory::create() const
{
    return installed->create();
}

FaultyPins::FaultyPins(panelsim::Board& itsBoard, const FaultPlan& itsPlan, bool wantTrace)
    : plan(itsPlan), lcdBase(itsBoard.getConfig().lcdGpioBase), board(itsBoard), factory(itsBoard), recording(wantTrace)
{
    installed = this;
}

FaultyPins::~FaultyPins()
{
    installed = nullptr;
}

std::unique_ptr<sysfs::ISysfsGpio> FaultyPins::create()
{
    std::unique_ptr<sysfs::ISysfsGpio> pin;
    perform(PinOperation::Create, notExported, false, [&] {
        pin = std::make_unique<FaultyPin>(*this, factory.create());
        return true;
    });
    return pin;
}

template <typename Effect>
bool FaultyPins::perform(PinOperation operation, unsigned gpio, bool value, Effect effect)
{
    ++calls;
    const bool reached = plan.lasting ? calls >= plan.first : calls == plan.first;
    const bool isRead = operation == PinOperation::GetValue && gpio < lcdBase;
    if (reached || isRead || recording || !leftAsserted.empty()) {
        return performWatched({operation, gpio, value}, effect);
    }
    // Nearly all operations come here: it has to be quick.
    try {
        return effect();
    } catch (const std::exception& e) {
        noteException({operation, gpio, value}, e.what());
        throw;
    }
}

bool FaultyPins::performWatched(const PinCall& call, const std::function<bool()>& effect)
{
    if (recording) {
        trace.push_back(numbered(call));
    }
    const bool isDue = mayFail(call);
    const auto due = [&](FaultPlan::Kind kind) { return isDue && plan.kind == kind; };
    const auto throwFault = [&] { throw std::runtime_error("fault " + std::to_string(calls)); };
    try {
        if (due(FaultPlan::Kind::Throws)) {
            throwFault();
        }
        if (due(FaultPlan::Kind::Foreign)) {
            throw ForeignFault();
        }
        const bool answer = !due(FaultPlan::Kind::Refuses) && effect();
        if (due(FaultPlan::Kind::ThrowsAfter)) {
            throwFault();
        }
        if (!answer) {
            failures.push_back(numbered(call));
        } else if (call.operation == PinOperation::GetValue && call.gpio < lcdBase) {
            reads.push_back({call.gpio, board.read(call.gpio), isOwnThread()});
        }
        watchBus(!answer);
        return answer;
    } catch (const std::exception& e) {
        noteException(call, e.what());
        throw;
    } catch (const ForeignFault&) {
        noteException(call, "");
        throw;
    }
}

bool FaultyPins::mayFail(const PinCall& call) const
{
    const bool reached = plan.lasting ? calls >= plan.first : calls == plan.first;
    return reached && (plan.kind != FaultPlan::Kind::Refuses || canRefuse(call.operation)) &&
           (plan.kind != FaultPlan::Kind::Foreign || plan.anyThread || isOwnThread());
}

bool FaultyPins::isOwnThread() const
{
    return std::this_thread::get_id() == owner;
}

PinCall FaultyPins::numbered(PinCall call) const
{
    call.number = calls;
    call.ownThread = isOwnThread();
    return call;
}

void FaultyPins::noteException(const PinCall& call, const std::string& what)
{
    failures.push_back(numbered(call));
    failures.back().what = what;
    failures.back().foreign = what.empty();
    if (call.operation == PinOperation::GetValue && call.gpio < lcdBase) {
        reads.push_back({call.gpio, std::nullopt, isOwnThread()});
    }
    watchBus(true);
}

void FaultyPins::watchBus(bool failed)
{
    if ((!failed && leftAsserted.empty()) || !board.getConfig().hasLcd) {
        return;
    }
    unexplained |= leftAsserted.empty() && board.busFaultCount() != explainedBusFaults;
    if (failed) {
        leftAsserted = {lcdBase + readStrobeOffset, lcdBase + readStrobeOffset + 1, lcdBase + readStrobeOffset + 2};
    }
    const auto isReleased = [this](unsigned gpio) { return board.lineLevel(gpio) != panelsim::LineLevel::Low; };
    leftAsserted.erase(std::remove_if(leftAsserted.begin(), leftAsserted.end(), isReleased), leftAsserted.end());
    explainedBusFaults = board.busFaultCount();
}

bool FaultyPins::hasUnexplainedBusFaults() const
{
    return unexplained || (leftAsserted.empty() && board.busFaultCount() != explainedBusFaults);
}
