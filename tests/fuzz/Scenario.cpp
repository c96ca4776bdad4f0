// Any bytes are a scenario, or they are refused in one line that tells the place.
#include "panelsim/board/Board.h"
#include "panelsim/board/BoardConfig.h"
#include "panelsim/board/Utf8.h"
#include "panelsim/scenario/ScenarioError.h"
#include "panelsim/scenario/ScenarioFile.h"
#include "panelsim/scenario/StepKind.h"
#include "tests/fuzz/Check.h"
#include "tests/panelsim/TestFolder.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

namespace {

using namespace panelsim;

void checkPlace(const std::string& message, const std::string& content, const std::string& file)
{
    check(validUtf8(message) == message.size() && message == printable(message), "a message is one line of UTF-8");
    check(message.rfind(file + ":", 0) == 0, "a message begins with the file");
    unsigned line = 0;
    unsigned column = 0;
    const int numbers = std::sscanf(message.c_str() + file.size(), ":%u:%u: ", &line, &column);
    check(numbers == 2 && line >= 1, "a message tells the line and the column");
    std::size_t begin = 0;
    for (unsigned i = 1; i < line; ++i) {
        begin = content.find('\n', begin) + 1;
        check(begin != 0, "the line that is told is there");
    }
    const std::size_t end = std::min(content.find('\n', begin), content.size());
    check(column <= end - begin + 1, "the column that is told is there");
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
            const std::string text = step.kind->say(step, board.getConfig());
            check(text.find('\n') == std::string::npos, "a step is told in one line");
        }
    } catch (const ScenarioError& e) {
        checkPlace(e.what(), content, file.string());
    }
    return 0;
}
