#include "tests/support/FakePins.h"

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
        throw Broken();
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

std::string FakePins::takeWaveform() const
{
    // Joins what is done to the eight data lines in their order, and names the other lines.
    std::string text = " " + take();
    const auto rename = [&text](const std::string& from, const std::string& to) {
        for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
            text.replace(at, from.size(), to);
        }
    };
    rename(" in 0 in 1 in 2 in 3 in 4 in 5 in 6 in 7", " data->in");
    rename(" out 0 out 1 out 2 out 3 out 4 out 5 out 6 out 7", " data->out");
    rename(" 0? 1? 2? 3? 4? 5? 6? 7?", " data?");
    for (unsigned byte = 0; byte < 256; ++byte) {
        std::string bits;
        for (unsigned line = 0; line < 8; ++line) {
            bits += " " + std::to_string(line) + "=" + ((byte >> line & 1U) != 0 ? "1" : "0");
        }
        const char* const digits = "0123456789ABCDEF";
        rename(bits, std::string(" data=") + digits[byte >> 4] + digits[byte & 0xF]);
    }
    unsigned line = 8;
    for (const char* name : {" RS=", " CS=", " RD=", " WR=", " RST=", " BL="}) {
        rename(" " + std::to_string(line++) + "=", name);
    }
    return text.substr(1);
}
