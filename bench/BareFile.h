#pragma once

#include "bench/Check.h"
#include "panelsim/board/FileDescriptor.h"

#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <unistd.h>

namespace bench {

/** A file of a GPIO line on a held descriptor: its operations are a system call and nothing else. */
class BareFile {
public:
    /** @param flags of open @throws std::system_error as all operations do */
    BareFile(const std::string& path, int flags) : file(open(path.c_str(), flags | O_CLOEXEC), "open") {}

    void write(std::string_view text) const
    {
        check(pwrite(file.get(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()), "pwrite");
    }
    bool readLevel() const
    {
        char level = '\0';
        check(pread(file.get(), &level, 1, 0) == 1, "pread");
        return level == '1';
    }

private:
    panelsim::FileDescriptor file;
};

} // namespace bench
