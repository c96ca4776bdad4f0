#pragma once

#include <cstddef>
#include <functional>
#include <ios>
#include <iostream>
#include <mutex>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>

/** While it lives, it keeps what any thread writes to std::cout and std::cerr; its destructor restores both. */
class CapturedOutput {
public:
    /** @param whenLine is passed each line with its end, on the thread that writes it */
    explicit CapturedOutput(std::function<void(std::string_view line)> whenLine = {}) : onLine(std::move(whenLine)) {}

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
            if (character == '\n' && owner.onLine) {
                const std::size_t before = owner.text.rfind('\n', owner.text.size() - 2);
                owner.onLine(std::string_view(owner.text).substr(before + 1));
            }
            return character;
        }

        CapturedOutput& owner;
        std::ostream& stream;
        const char* mark;
        std::ios original; ///< its buffer and format
    };

    const std::function<void(std::string_view)> onLine;
    std::mutex mutex;
    std::string text;
    Diversion out{*this, std::cout, ""};
    Diversion err{*this, std::cerr, "! "};
};
