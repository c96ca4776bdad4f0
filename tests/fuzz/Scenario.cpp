// Any bytes are a scenario, or they are refused in one line that names the place.
#include "panelsim/scenario/Scenario.h"
#include "panelsim/board/Board.h"
#include "panelsim/board/BoardConfig.h"
#include "panelsim/board/Utf8.h"
#include "tests/panelsim/TestFolder.h"
#include "tests/support/Check.h"

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using namespace panelsim;

void checkPlace(const std::string& message, const std::string& content, const std::string& file)
{
    check(message == printable(message), "a message is one line of UTF-8");
    unsigned line = 0;
    unsigned column = 0;
    const bool isPlace =
        message.rfind(file, 0) == 0 && std::sscanf(message.c_str() + file.size(), ":%u:%u: ", &line, &column) == 2;
    std::istringstream lines(content + '\n');
    std::string text;
    for (unsigned i = 0; i < line; ++i) {
        check(bool(std::getline(lines, text)), "the line is there");
    }
    check(isPlace && line >= 1 && column <= text.size() + 1, "a message begins with file, line and column");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static const TestFolder folder;
    static const std::string picture = folder.write("a.txt", "").string(); // for steps to compare with
    static const std::filesystem::path file = folder.path("a.yaml");
    static const Board board{BoardConfig()};
    const std::string content(reinterpret_cast<const char*>(bytes), size);
    try {
        const Scenario scenario = parseScenario(content, file, board);
        check(!scenario.name.empty() && !scenario.steps.empty(), "a scenario has a name and steps");
        for (const Step& step : scenario.steps) {
            check(step.said == printable(step.said), "a step is described in one line");
        }
    } catch (const std::runtime_error& e) {
        checkPlace(e.what(), content, file.string());
    }
    return 0;
}
