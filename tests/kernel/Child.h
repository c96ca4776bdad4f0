#pragma once

#include "panelsim/board/FileDescriptor.h"

#include <string>
#include <sys/types.h>
#include <vector>

/** A program that runs next to the tests; it is killed if it has not ended when the object goes. */
class Child {
public:
    /** How a program has ended, and what it wrote. */
    struct End {
        int status; ///< of its exit, or 128 more than the number of the signal that ended it
        std::string output;
        std::string error;
    };

    /** @param command the program, searched for in PATH, and its arguments */
    explicit Child(std::vector<std::string> command);
    ~Child();

    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /** @return what it has written to standard output up to now */
    std::string output() const;
    /** @return whether it waits for something in the kernel that no signal interrupts */
    bool isInKernel() const;
    void sendSignal(int number) const;
    /** Waits for its end. */
    End wait();

private:
    panelsim::FileDescriptor outputFile;
    panelsim::FileDescriptor errorFile;
    pid_t pid = -1;
};
