#include "tests/support/FakePins.h"

#include <array>
#include <stdexcept>

class FakeGpio : public sysfs::ISysfsGpio {
public:
    explicit FakeGpio(const FakePins& itsPins) : pins(itsPins) {}
    ~FakeGpio() override { pins.tell("delete " + name()); }

    bool init(bool inverted, sysfs::PinDirectionEn direction, bool initialValue) override
    {
        return pins.happen("init " + name() + (inverted ? " inverted" : "") +
                           (direction == sysfs::PinDirectionEn::Output ? " out " : " in ") + digit(initialValue));
    }
    void deinit() override { pins.happen("deinit " + name()); }
    void setDirection(sysfs::PinDirectionEn direction) override
    {
        pins.happen((direction == sysfs::PinDirectionEn::Output ? "out " : "in ") + name());
    }
    bool setValue(bool value) override { return pins.happen(name() + "=" + digit(value)); }
    bool getValue() const override
    {
        pins.happen(name() + "?");
        const std::lock_guard<std::mutex> lock(pins.mutex);
        const auto found = pins.levels.find(number);
        return found != pins.levels.end() && found->second;
    }
    void exportGpio(unsigned gpioNumber) override
    {
        number = gpioNumber;
        pins.happen("export " + name());
    }
    unsigned getGpioNumber() const override { return number; }

private:
    std::string name() const { return std::to_string(number); }
    static const char* digit(bool value) { return value ? "1" : "0"; }

    const FakePins& pins;
    unsigned number = 0;
};

std::unique_ptr<sysfs::ISysfsGpio> FakePins::create() const
{
    happen("create");
    return std::make_unique<FakeGpio>(*this);
}

void FakePins::breakOn(const std::string& event)
{
    const std::lock_guard<std::mutex> lock(mutex);
    broken.insert(event);
}

void FakePins::refuse(const std::string& event)
{
    const std::lock_guard<std::mutex> lock(mutex);
    refused.insert(event);
}

void FakePins::setLevel(unsigned gpio, bool level)
{
    const std::lock_guard<std::mutex> lock(mutex);
    levels[gpio] = level;
}

void FakePins::tell(const std::string& event) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    events.push_back(event);
}

bool FakePins::happen(const std::string& event) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    events.push_back(event);
    if (broken.count(event) != 0) {
        throw std::runtime_error("broken");
    }
    return refused.count(event) == 0;
}

std::string FakePins::take() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    std::string text;
    for (const std::string& event : events) {
        text += (text.empty() ? "" : " ") + event;
    }
    events.clear();
    return text;
}

namespace {

constexpr std::size_t dataLines = 8;

/** Joins the events of the eight data lines, when they stand in the order of the lines, into one. */
std::string joinDataLines(const std::vector<std::string>& events, std::size_t first)
{
    if (first + dataLines > events.size()) {
        return {};
    }
    unsigned byte = 0;
    const std::array<std::string, 3> kinds = {"data->in", "data->out", "data?"};
    const auto patterns = [](std::size_t i) {
        const std::string line = std::to_string(i);
        return std::array<std::string, 5>{"in " + line, "out " + line, line + "?", line + "=0", line + "=1"};
    };
    std::array<bool, 3> fits = {true, true, true};
    bool fitsWrite = true;
    for (std::size_t i = 0; i < dataLines; ++i) {
        const std::string& event = events[first + i];
        const auto expected = patterns(i);
        for (std::size_t k = 0; k < fits.size(); ++k) {
            fits[k] = fits[k] && event == expected[k];
        }
        fitsWrite = fitsWrite && (event == expected[3] || event == expected[4]);
        byte |= (event == expected[4] ? 1U : 0U) << i;
    }
    for (std::size_t k = 0; k < fits.size(); ++k) {
        if (fits[k]) {
            return kinds[k];
        }
    }
    const char* const digits = "0123456789ABCDEF";
    return fitsWrite ? std::string("data=") + digits[byte >> 4] + digits[byte & 0xF] : std::string();
}

} // namespace

std::string FakePins::takeWaveform() const
{
    const std::array<const char*, 6> names = {"RS", "CS", "RD", "WR", "RST", "BL"};
    const std::lock_guard<std::mutex> lock(mutex);
    std::string text;
    for (std::size_t i = 0; i < events.size(); ++i) {
        std::string word = joinDataLines(events, i);
        if (!word.empty()) {
            i += dataLines - 1;
        } else {
            word = events[i];
            const std::size_t equals = word.find('=');
            const unsigned line = equals == std::string::npos ? 0 : static_cast<unsigned>(std::stoul(word));
            if (line >= dataLines) {
                word = names.at(line - dataLines) + word.substr(equals);
            }
        }
        text += (text.empty() ? "" : " ") + word;
    }
    events.clear();
    return text;
}
