#pragma once

#include <iostream>
#include <mutex>
#include <streambuf>
#include <string>

/** Keeps what any thread writes, as the standard streams themselves may be written to by several threads at once. */
class SharedBuffer : public std::streambuf {
public:
    std::string text() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return kept;
    }

protected:
    std::streamsize xsputn(const char* characters, std::streamsize count) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        kept.append(characters, static_cast<std::size_t>(count));
        return count;
    }
    int overflow(int character) override
    {
        const char narrow = traits_type::to_char_type(character);
        xsputn(&narrow, 1);
        return character;
    }

private:
    mutable std::mutex mutex;
    std::string kept;
};

/** While it lives, std::cout and std::cerr are kept; at its end both are as they were, their number base included. */
class CapturedOutput {
public:
    CapturedOutput() : coutState(nullptr), coutBuffer(std::cout.rdbuf(&outText)), cerrBuffer(std::cerr.rdbuf(&errText))
    {
        coutState.copyfmt(std::cout);
    }
    ~CapturedOutput()
    {
        std::cout.rdbuf(coutBuffer);
        std::cerr.rdbuf(cerrBuffer);
        std::cout.copyfmt(coutState);
    }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    std::string out() const { return outText.text(); }
    std::string err() const { return errText.text(); }

private:
    SharedBuffer outText;
    SharedBuffer errText;
    std::ios coutState;
    std::streambuf* coutBuffer;
    std::streambuf* cerrBuffer;
};
