#include "tests/faults/BusDecoder.h"

#include <algorithm>
#include <array>
#include <optional>

using panelsim::ChipVariant;
using panelsim::PinOperation;

namespace {

const std::string characterText = "unable to write lcd controller data; ";

enum Line { RegisterSelect = 8, ChipSelect, ReadStrobe, WriteStrobe, Reset };

class Decoder {
public:
    explicit Decoder(ChipVariant itsChip) : fitted(itsChip) {}

    /** Follows an operation on one of the bus lines. @return how the access that it completes fails, if it does */
    std::optional<std::string> follow(unsigned line, bool isWrite, bool level)
    {
        const bool deselected = isWrite && line == ChipSelect && levels.at(ChipSelect) && !level;
        if (isWrite) {
            levels.at(line) = level;
            strobed.at(line) = strobed.at(line) || level;
        }
        if (!deselected) {
            return std::nullopt;
        }
        const bool isReset = strobed.at(Reset);
        const bool isRead = strobed.at(ReadStrobe);
        strobed.fill(false);
        return isReset ? "unable to reset lcd controller; " : cycle(isRead);
    }

private:
    std::optional<std::string> cycle(bool isRead)
    {
        const bool select = levels.at(RegisterSelect);
        if (isRead && select) {
            return "unable to read lcd controller status ";
        }
        if (isRead) {
            driven = fitted;
            return "unable to read lcd controller register '" + takeRegister() + "'; ";
        }
        const bool isAddress = driven == ChipVariant::Ra8806 ? select : !select && !reg;
        if (isAddress) {
            reg = byte();
            return std::nullopt;
        }
        const std::string number = driven == ChipVariant::Ra8806 || !select ? takeRegister() : "";
        if (number.empty() || (driven == ChipVariant::Ra8806 && number == "176")) {
            return characterText;
        }
        return "unable to write lcd controller command '" + std::to_string(byte()) + "' to register '" + number + "'; ";
    }

    unsigned byte() const
    {
        unsigned value = 0;
        for (unsigned i = 0; i < 8; ++i) {
            value |= static_cast<unsigned>(levels.at(i)) << i;
        }
        return value;
    }

    std::string takeRegister()
    {
        const std::string number = std::to_string(reg.value());
        reg.reset();
        return number;
    }

    ChipVariant fitted;
    ChipVariant driven = ChipVariant::Ra8803; ///< as it is taken to be until it was asked
    std::array<bool, 13> levels{};
    std::array<bool, 13> strobed{}; ///< since the last access
    std::optional<unsigned> reg;
};

} // namespace

std::vector<BusAccess> decodeBus(const std::vector<PinCall>& calls, ChipVariant chip, unsigned lcdGpioBase,
                                 unsigned backlightGpio)
{
    Decoder decoder(chip);
    std::vector<BusAccess> accesses;
    std::uint64_t first = 0;
    for (const PinCall& call : calls) {
        const bool isWrite = call.operation == PinOperation::SetValue;
        if (isWrite && call.gpio == backlightGpio) {
            accesses.push_back({call.number, call.number, "unable to set lcd backlight gpio value; "});
        } else if (call.gpio >= lcdGpioBase && call.operation >= PinOperation::SetDirection) {
            first = first == 0 ? call.number : first;
            if (const auto failure = decoder.follow(call.gpio - lcdGpioBase, isWrite, call.value)) {
                accesses.push_back({first, call.number, *failure, *failure == characterText});
                first = 0;
            }
        }
    }
    for (std::size_t i = 2; i + 1 < accesses.size(); ++i) {
        accesses[i].isLikeOthers =
            std::all_of(&accesses[i - 2], &accesses[i + 2], [](const BusAccess& access) { return access.isCharacter; });
    }
    return accesses;
}
