#include "panelsim/scenario/Files.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>
#include <unistd.h>

namespace panelsim {

namespace {

struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

using OpenFile = std::unique_ptr<std::FILE, Closer>;

/** @return errno's value, 0 for success */
int writeAll(const std::string& file, std::string_view content)
{
    OpenFile open(std::fopen(file.c_str(), "we"));
    if (!open) {
        return errno;
    }
    const bool written = std::fwrite(content.data(), 1, content.size(), open.get()) == content.size();
    const int writeError = errno;
    if (std::fclose(open.release()) != 0) {
        return errno;
    }
    return written ? 0 : writeError;
}

int renameFile(const std::string& from, const std::string& to)
{
    return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

} // namespace

std::string readFile(const std::filesystem::path& file, std::size_t mostBytes)
{
    const OpenFile open(std::fopen(file.c_str(), "re"));
    std::string content(mostBytes + 1, '\0');
    if (open) {
        content.resize(std::fread(content.data(), 1, content.size(), open.get()));
    }
    if (!open || std::ferror(open.get()) != 0 || content.size() > mostBytes) {
        const int error = open && content.size() > mostBytes ? EFBIG : errno;
        throw std::system_error(error, std::generic_category(), "cannot read " + file.string());
    }
    return content;
}

void replaceFile(const std::filesystem::path& file, std::string_view content)
{
    const std::string fresh = file.string() + ".new" + std::to_string(getpid());
    int error = writeAll(fresh, content);
    if (error == 0) {
        error = renameFile(fresh, file.string());
    }
    if (error != 0) {
        std::remove(fresh.c_str());
        throw std::system_error(error, std::generic_category(), "cannot write " + file.string());
    }
}

} // namespace panelsim
