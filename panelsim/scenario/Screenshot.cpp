#include "panelsim/scenario/Screenshot.h"

#include "panelsim/board/Utf8.h"
#include "panelsim/picture/PanelSvg.h"
#include "panelsim/picture/PanelText.h"
#include "panelsim/scenario/Files.h"

#include <cstddef>
#include <sstream>

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

} // namespace

void saveScreenshot(const BoardConfig& config, const PanelView& view, const std::filesystem::path& file)
{
    replaceFile(file, draw(config, view, file));
}

std::optional<std::string> compareScreenshot(const BoardConfig& config, const PanelView& view,
                                             const std::filesystem::path& file)
{
    const std::string expected = readFile(file, largestPicture);
    const std::string actual = draw(config, view, file);
    if (expected == actual) {
        return std::nullopt;
    }
    return isText(file) ? firstDifference(expected, actual) : "the picture differs";
}

} // namespace panelsim
