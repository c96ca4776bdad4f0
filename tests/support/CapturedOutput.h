#pragma once

#include "tests/support/VirtualTime.h"

#include <ios>
#include <iostream>
#include <mutex>
#include <streambuf>
#include <string>
#include <utility>

/** While it lives, it keeps what any thread writes to std::cout and std::cerr; its destructor restores both. */
class CapturedOutput {
public:
    /** @param itsTime in which a polling thread is woken when it is told to stop */
    explicit CapturedOutput(VirtualTime* itsTime = nullptr) : time(itsTime) {}

    /** Takes the text since the last call; a line on standard error begins with "! ". */
    std::string take()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return std::exchange(text, "");
    }

private:
    struct Diversion : std::streambuf {
        Diversion(CapturedOutput& itsOwner, std::ostream& itsStream, const char* itsMark)
            : owner(itsOwner), stream(itsStream), mark(itsMark), original(stream.rdbuf(this))
        {
            original.copyfmt(stream);
        }
        ~Diversion() override
        {
            stream.copyfmt(original);
            stream.rdbuf(original.rdbuf());
        }
        int overflow(int character) override
        {
            const std::lock_guard<std::mutex> lock(owner.mutex);
            owner.text += owner.text.empty() || owner.text.back() == '\n' ? mark : "";
            owner.text += traits_type::to_char_type(character);
            static const std::string end = "KeyHandler stop called\n";
            if (character == '\n' && owner.time && owner.text.rfind(end) + end.size() == owner.text.size()) {
                owner.time->wake();
            }
            return character;
        }

        CapturedOutput& owner;
        std::ostream& stream;
        const char* mark;
        std::ios original; ///< its buffer and format
    };

    VirtualTime* const time;
    std::mutex mutex;
    std::string text;
    Diversion out{*this, std::cout, ""};
    Diversion err{*this, std::cerr, "! "};
};
