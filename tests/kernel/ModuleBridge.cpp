#include "tests/kernel/ModuleBridge.h"

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

ModuleBridge::ModuleBridge(panelsim::Board& itsBoard)
    : board(itsBoard), device(open("/dev/panel-gpio", O_RDWR | O_NONBLOCK | O_CLOEXEC), "cannot open /dev/panel-gpio"),
      stopEvent(eventfd(0, EFD_CLOEXEC), "cannot make an event descriptor"), thread([this] { run(); })
{
}

ModuleBridge::~ModuleBridge()
{
    letGo();
    eventfd_write(stopEvent.get(), 1);
    thread.join();
}

void ModuleBridge::hold(Filter newFilter)
{
    const std::lock_guard<std::mutex> lock(mutex);
    filter = std::move(newFilter);
}

bool ModuleBridge::isHolding() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return holding;
}

void ModuleBridge::letGo()
{
    const std::lock_guard<std::mutex> lock(mutex);
    filter = nullptr;
    changed.notify_all();
}

void ModuleBridge::run()
{
    while (waitForRequest()) {
        panel_gpio_request request{};
        if (read(device.get(), &request, sizeof request) != sizeof request) {
            continue; // given up by the module, which counts it
        }
        waitWhileHeld(request);
        const panel_gpio_reply reply = answer(request);
        if (write(device.get(), &reply, sizeof reply) != sizeof reply) {
            std::cerr << "ModuleBridge: the module refuses a reply\n";
            std::abort();
        }
        ++answerCount;
    }
}

bool ModuleBridge::waitForRequest() const
{
    pollfd polled[] = {{device.get(), POLLIN, 0}, {stopEvent.get(), POLLIN, 0}};
    while (poll(polled, 2, -1) < 0) {
    }
    return polled[1].revents == 0;
}

void ModuleBridge::waitWhileHeld(const panel_gpio_request& request)
{
    std::unique_lock<std::mutex> lock(mutex);
    holding = filter && filter(request);
    changed.wait(lock, [this] { return !holding || !filter; });
    holding = false;
}

panel_gpio_reply ModuleBridge::answer(const panel_gpio_request& request)
{
    try {
        return {request.sequence, 0, perform(request) ? 1U : 0U};
    } catch (const std::system_error& error) {
        return {request.sequence, static_cast<unsigned>(error.code().value()), 0};
    }
}

bool ModuleBridge::perform(const panel_gpio_request& request)
{
    const bool level = request.value != 0;
    switch (request.operation) {
    case PANEL_GPIO_GET_DIRECTION:
        return outputs.count(request.offset) == 0;
    case PANEL_GPIO_MAKE_INPUT:
        board.makeInput(request.offset);
        outputs.erase(request.offset);
        return false;
    case PANEL_GPIO_MAKE_OUTPUT:
        board.makeOutput(request.offset, level);
        outputs.insert(request.offset);
        return false;
    case PANEL_GPIO_GET:
        return board.read(request.offset);
    case PANEL_GPIO_SET:
        board.drive(request.offset, level);
        return false;
    default:
        throw std::system_error(ENOSYS, std::generic_category());
    }
}
