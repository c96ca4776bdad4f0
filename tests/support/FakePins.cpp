#include "tests/support/FakePins.h"

#include <utility>

namespace {

class FakeGpio : public sysfs::ISysfsGpio {
public:
    FakeGpio(const FakePins& itsPins, unsigned itsNumber) : pins(itsPins), number(itsNumber) {}
    ~FakeGpio() override { pins.happen("delete " + name()); }

    bool init(bool inverted, sysfs::PinDirectionEn direction, bool value) override
    {
        return pins.happen("init " + name() + (inverted ? " inverted " : " ") + word(direction) + (value ? "1" : "0"));
    }
    void deinit() override { pins.happen("deinit " + name()); }
    void setDirection(sysfs::PinDirectionEn direction) override { pins.happen(word(direction) + name()); }
    bool setValue(bool value) override { return pins.happen(name() + (value ? "=1" : "=0")); }
    bool getValue() const override
    {
        pins.happen(name() + "?");
        return pins.levels.at(number);
    }
    void exportGpio(unsigned gpioNumber) override
    {
        number = gpioNumber;
        pins.happen("export " + name());
    }
    unsigned getGpioNumber() const override { return number; }

private:
    std::string name() const { return std::to_string(number); }
    static std::string word(sysfs::PinDirectionEn d) { return d == sysfs::PinDirectionEn::Output ? "out " : "in "; }

    const FakePins& pins;
    unsigned number;
};

} // namespace

bool Record::happen(const std::string& event) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    events += (events.empty() ? "" : " ") + event;
    if (broken.count(event) != 0) {
        throw Broken();
    }
    return refused.count(event) == 0;
}

std::string Record::take() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(events, "");
}

std::unique_ptr<sysfs::ISysfsGpio> FakePins::create() const
{
    happen("create");
    return std::make_unique<FakeGpio>(*this, created++);
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
            bits += " " + std::to_string(line) + "=" + std::to_string(byte >> line & 1U);
        }
        rename(bits, " data=" + hex(static_cast<unsigned char>(byte)));
    }
    unsigned line = 8;
    for (const char* name : {" RS=", " CS=", " RD=", " WR=", " RST=", " BL="}) {
        rename(" " + std::to_string(line++) + "=", name);
    }
    return text.substr(1);
}

std::string hex(unsigned char byte)
{
    const char* const digits = "0123456789ABCDEF";
    return {digits[byte >> 4], digits[byte & 0xF]};
}
