#include "panelsim/scenario/Screenshot.h"

#include "panelsim/board/FileDescriptor.h"
#include "panelsim/board/Utf8.h"
#include "panelsim/picture/PanelSvg.h"
#include "panelsim/picture/PanelText.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace panelsim {

namespace {

constexpr std::size_t largestPicture = std::size_t{1} << 20U; ///< bytes

bool isText(const std::filesystem::path& file)
{
    return file.extension() == ".txt";
}

std::string draw(const BoardConfig& config, const PanelView& view, const std::filesystem::path& file)
{
    return isText(file) ? drawPanel(config, view, TextStyle::Plain) : drawPanelSvg(config, view, SvgExtent::Panel);
}

/** @return the first line in which the texts differ, of both of them */
std::string firstDifference(const std::string& expected, const std::string& actual)
{
    std::istringstream expectedLines(expected);
    std::istringstream actualLines(actual);
    std::string expectedLine;
    std::string actualLine;
    for (std::size_t number = 1;; ++number) {
        const bool hasExpected = !std::getline(expectedLines, expectedLine).fail();
        const bool hasActual = !std::getline(actualLines, actualLine).fail();
        if (!hasExpected && !hasActual) {
            return "only the newline at the end differs";
        }
        if (hasExpected != hasActual || expectedLine != actualLine) {
            return "line " + std::to_string(number) +
                   " differs:\n  file:  " + (hasExpected ? printable(expectedLine) : "(at its end)") +
                   "\n  panel: " + (hasActual ? printable(actualLine) : "(at its end)");
        }
    }
}

[[noreturn]] void fail(int error, const std::string& what)
{
    throw std::system_error(error, std::generic_category(), what);
}

} // namespace

void saveScreenshot(const BoardConfig& config, const PanelView& view, const std::filesystem::path& file)
{
    const std::string picture = draw(config, view, file);
    const std::string fresh = file.string() + ".new" + std::to_string(getpid());
    const std::string failure = "cannot write " + file.string();
    const FileDescriptor opened(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666), failure.c_str());
    const ssize_t written = write(opened.get(), picture.data(), picture.size());
    const bool isWhole = written == static_cast<ssize_t>(picture.size());
    if (!isWhole || std::rename(fresh.c_str(), file.c_str()) != 0) {
        const int error = written >= 0 && !isWhole ? ENOSPC : errno;
        std::remove(fresh.c_str());
        fail(error, failure);
    }
}

std::string readPictureFile(const std::filesystem::path& file)
{
    const std::string failure = "cannot read " + file.string();
    // Without O_NONBLOCK, opening a named pipe waits for its writer.
    const FileDescriptor opened(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), failure.c_str());
    struct stat status {};
    if (fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        fail(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, failure);
    }
    std::string content(largestPicture + 1, '\0');
    const ssize_t size = ::read(opened.get(), content.data(), content.size());
    if (size < 0 || size > static_cast<ssize_t>(largestPicture)) {
        fail(size < 0 ? errno : EFBIG, failure);
    }
    content.resize(static_cast<std::size_t>(size));
    return content;
}

std::optional<std::string> compareScreenshot(const BoardConfig& config, const PanelView& view,
                                             const std::filesystem::path& file)
{
    const std::string expected = readPictureFile(file);
    const std::string actual = draw(config, view, file);
    if (expected == actual) {
        return std::nullopt;
    }
    return isText(file) ? firstDifference(expected, actual) : "the picture differs";
}

} // namespace panelsim
