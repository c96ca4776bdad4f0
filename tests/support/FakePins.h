#pragma once

#include "sysfs/ISysfsGpioFactory.h"

#include <array>
#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <utility>

/** What a broken event throws; derived only from std::exception. */
struct Broken : std::exception {
    const char* what() const noexcept override { return "broken"; }
};

/** What happens to fakes, in order and from any thread. */
class Record {
public:
    std::set<std::string> broken;  ///< events that throw Broken
    std::set<std::string> refused; ///< events that return false

    /** Notes the event. @return whether it is not refused */
    bool happen(const std::string& event) const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        events += (events.empty() ? "" : " ") + event;
        return broken.count(event) == 0 ? refused.count(event) == 0 : throw Broken();
    }
    /** Takes the events since the last call, with a blank between them. */
    std::string take() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return std::exchange(events, "");
    }

private:
    mutable std::mutex mutex;
    mutable std::string events;
};

/**
 * A factory of pins that only record what is done to them: "create", "export 40", "init 40 inverted out 1", "in 40",
 * "out 40", "40=1", "40?", "deinit 40", "delete 40". A pin not yet exported is numbered in the order of creation.
 */
class FakePins : public Record, public sysfs::ISysfsGpioFactory {
public:
    std::array<std::atomic<bool>, 64> levels{}; ///< what the lines read, by their GPIO numbers

    std::unique_ptr<sysfs::ISysfsGpio> create() const override
    {
        happen("create");
        return std::make_unique<Pin>(*this, created++);
    }

    /** As take, in the words of the LCD's timing diagram with data bytes in binary, for an LCD on lines 0 to 12 with
     * the backlight on line 13. */
    std::string takeWaveform() const
    {
        static const std::pair<std::regex, const char*> words[] = {
            {std::regex("in 0 in 1 in 2 in 3 in 4 in 5 in 6 in 7"), "data->in"},
            {std::regex("out 0 out 1 out 2 out 3 out 4 out 5 out 6 out 7"), "data->out"},
            {std::regex(R"(0\? 1\? 2\? 3\? 4\? 5\? 6\? 7\?)"), "data?"},
            {std::regex("0=(.) 1=(.) 2=(.) 3=(.) 4=(.) 5=(.) 6=(.) 7=(.)"), "data=$8$7$6$5$4$3$2$1"},
            {std::regex(R"(\b8=)"), "RS="},
            {std::regex(R"(\b9=)"), "CS="},
            {std::regex("10="), "RD="},
            {std::regex("11="), "WR="},
            {std::regex("12="), "RST="},
            {std::regex("13="), "BL="}};
        std::string text = take();
        for (const auto& [lines, word] : words) {
            text = std::regex_replace(text, lines, word);
        }
        return text;
    }

private:
    class Pin : public sysfs::ISysfsGpio {
    public:
        Pin(const FakePins& itsPins, unsigned itsNumber) : pins(itsPins), number(itsNumber) {}
        ~Pin() override { pins.happen("delete " + name()); }

        bool init(bool inverted, sysfs::PinDirectionEn direction, bool value) override
        {
            return pins.happen("init " + name() + (inverted ? " inverted " : " ") + word(direction) +
                               (value ? "1" : "0"));
        }
        void deinit() override { pins.happen("deinit " + name()); }
        void setDirection(sysfs::PinDirectionEn direction) override { pins.happen(word(direction) + name()); }
        bool setValue(bool value) override { return pins.happen(name() + (value ? "=1" : "=0")); }
        bool getValue() const override { return pins.happen(name() + "?") && pins.levels.at(number); }
        void exportGpio(unsigned gpioNumber) override
        {
            number = gpioNumber;
            pins.happen("export " + name());
        }
        unsigned getGpioNumber() const override { return number; }

    private:
        std::string name() const { return std::to_string(number); }
        static std::string word(sysfs::PinDirectionEn to)
        {
            return to == sysfs::PinDirectionEn::Output ? "out " : "in ";
        }

        const FakePins& pins;
        unsigned number;
    };

    mutable unsigned created = 0;
};
