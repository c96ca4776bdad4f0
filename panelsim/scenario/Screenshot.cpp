#include "panelsim/scenario/Screenshot.h"

#include "panelsim/board/FileDescriptor.h"
#include "panelsim/board/Text.h"
#include "panelsim/picture/PanelSvg.h"
#include "panelsim/picture/PanelText.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <system_error>
#include <unistd.h>

namespace panelsim {

namespace {

constexpr std::uintmax_t largestPicture = std::uintmax_t{1} << 20U; ///< bytes

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
    const auto end = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end()).first;
    const std::string same(expected.begin(), end);
    const std::size_t start = same.rfind('\n') + 1; // 0 in the first line
    const auto lineOf = [start](const std::string& text) {
        const std::string line = text.substr(start, text.find('\n', start) - start);
        return start == text.size() ? "(at its end)" : printable(line);
    };
    return "line " + std::to_string(std::count(same.begin(), same.end(), '\n') + 1) + " differs" +
           (lineOf(expected) == lineOf(actual) ? " in the newline at the end"
                                               : ":\n  file:  " + lineOf(expected) + "\n  panel: " + lineOf(actual));
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
        throw std::system_error(error, std::generic_category(), failure);
    }
}

std::string readPictureFile(const std::filesystem::path& file)
{
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(file, error); // of a named pipe an error
    std::ifstream stream;
    if (!error && size > largestPicture) {
        error = std::make_error_code(std::errc::file_too_large);
    } else if (!error && (stream.open(file, std::ios::binary), !stream)) {
        error = {errno, std::generic_category()};
    }
    if (error) {
        throw std::system_error(error, "cannot read " + file.string());
    }
    return {std::istreambuf_iterator(stream), {}};
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
