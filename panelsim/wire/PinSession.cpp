#include "panelsim/wire/PinSession.h"

#include "panelsim/board/BoardGpioFactory.h"
#include "sysfs/PinDirectionEn.h"

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace panelsim {

namespace {

/** Pins of all sessions have different numbers, so that a forked process can name its own and its parent's. */
std::atomic<std::uint32_t> lastPin{0};

std::atomic<std::size_t> pinCount{0};

sysfs::PinDirectionEn directionOf(const Request& request)
{
    return request.output != 0 ? sysfs::PinDirectionEn::Output : sysfs::PinDirectionEn::Input;
}

} // namespace

PinSession::PinSession(Board& itsBoard, std::uint64_t itsNumber, std::shared_ptr<PinSession> itsParent)
    : board(itsBoard), sessionNumber(itsNumber), parent(std::move(itsParent)),
      generation(parent == nullptr ? 1 : parent->generation + 1)
{
    if (generation > mostGenerations) {
        throw std::invalid_argument("forked more than " + std::to_string(mostGenerations) + " times over");
    }
}

PinSession::~PinSession()
{
    pinCount -= pins.size();
}

std::uint64_t PinSession::perform(const Request& request)
{
    if (request.operation > Request::Operation::Destroy) {
        throw std::invalid_argument("there is no pin operation " +
                                    std::to_string(static_cast<unsigned>(request.operation)));
    }
    if (request.operation == Request::Operation::Create) {
        return create();
    }
    for (PinSession* owner = this; owner != nullptr; owner = owner->parent.get()) {
        const std::lock_guard<std::mutex> lock(owner->mutex);
        const auto found = owner->pins.find(request.pin);
        if (found != owner->pins.end()) {
            return owner->performOn(found, request);
        }
    }
    // Another process of the application's destroyed it, or it was lost when the application closed all descriptors.
    if (request.operation == Request::Operation::Destroy) {
        return 0;
    }
    throw std::system_error(ENODEV, std::generic_category(), "this pin is gone");
}

std::uint64_t PinSession::create()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (pinCount >= mostPins) {
        throw std::runtime_error("there are " + std::to_string(mostPins) + " pins already, which is the most");
    }
    auto pin = BoardGpioFactory(board).create();
    const std::uint32_t number = ++lastPin;
    pins[number] = std::move(pin);
    ++pinCount;
    return number;
}

std::uint64_t PinSession::performOn(Pins::iterator found, const Request& request)
{
    sysfs::ISysfsGpio& pin = *found->second;
    switch (request.operation) {
    case Request::Operation::Export:
        pin.exportGpio(request.gpio);
        return 0;
    case Request::Operation::Init:
        return pin.init(request.inverted != 0, directionOf(request), request.level != 0) ? 1 : 0;
    case Request::Operation::Deinit:
        pin.deinit();
        return 0;
    case Request::Operation::SetDirection:
        pin.setDirection(directionOf(request));
        return 0;
    case Request::Operation::SetValue:
        return pin.setValue(request.level != 0) ? 1 : 0;
    case Request::Operation::GetValue:
        return pin.getValue() ? 1 : 0;
    case Request::Operation::Destroy:
        pins.erase(found);
        --pinCount;
        return 0;
    case Request::Operation::Create:
        break; // has no pin yet
    }
    return 0;
}

} // namespace panelsim
