#include "panelsim/board/BoardGpioFactory.h"

#include "sysfs/PinDirectionEn.h"

#include <optional>
#include <stdexcept>
#include <string>

namespace panelsim {

namespace {

/** A pin with the errors and the level semantics of one of the kernel's interface. Its line stays as it is driven. */
class BoardGpio final : public sysfs::ISysfsGpio {
public:
    explicit BoardGpio(Board& itsBoard) : board(itsBoard) {}
    ~BoardGpio() override { release(); }

    BoardGpio(const BoardGpio&) = delete;
    BoardGpio& operator=(const BoardGpio&) = delete;

    bool init(bool isInverted, sysfs::PinDirectionEn direction, bool initialValue) override
    {
        if (!board.admit(PinOperation::Init, getGpioNumber())) {
            return false;
        }
        inverted = isInverted;
        level = initialValue;
        initialised = true;
        applyDirection(direction);
        return true;
    }

    void deinit() override
    {
        const std::optional<unsigned> gpio = number;
        release();
        board.admit(PinOperation::Deinit, gpio);
    }

    void setDirection(sysfs::PinDirectionEn direction) override
    {
        board.admit(PinOperation::SetDirection, getGpioNumber());
        if (!initialised) {
            throw std::logic_error("GPIO " + std::to_string(*number) + ": setDirection before init");
        }
        applyDirection(direction);
    }

    bool setValue(bool value) override
    {
        if (!board.admit(PinOperation::SetValue, getGpioNumber())) {
            return false;
        }
        board.drive(*number, value != inverted);
        level = value;
        return true;
    }

    bool getValue() const override
    {
        board.admit(PinOperation::GetValue, getGpioNumber());
        return board.read(*number) != inverted;
    }

    void exportGpio(unsigned gpioNumber) override
    {
        board.admit(PinOperation::Export, gpioNumber);
        if (number) {
            throw std::logic_error("GPIO " + std::to_string(*number) + ": this pin is already exported");
        }
        board.claim(gpioNumber);
        number = gpioNumber;
    }

    unsigned getGpioNumber() const override
    {
        if (!number) {
            throw std::logic_error("pin used before exportGpio");
        }
        return *number;
    }

private:
    void applyDirection(sysfs::PinDirectionEn direction)
    {
        if (direction == sysfs::PinDirectionEn::Output) {
            board.makeOutput(*number, level != inverted);
        } else {
            board.makeInput(*number);
        }
    }

    void release()
    {
        if (number) {
            board.unclaim(*number);
            number.reset();
            initialised = false;
        }
    }

    Board& board;
    std::optional<unsigned> number;
    bool initialised = false;
    bool inverted = false;
    bool level = false; ///< logical level set last
};

} // namespace

std::unique_ptr<sysfs::ISysfsGpio> BoardGpioFactory::create() const
{
    board.admit(PinOperation::Create, std::nullopt);
    return std::make_unique<BoardGpio>(board);
}

} // namespace panelsim
