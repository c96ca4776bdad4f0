// Any bytes are a scenario, or they are refused in one line that names the place.
#include "panelsim/scenario/Scenario.h"
#include "panelsim/board/Board.h"
#include "panelsim/board/BoardConfig.h"
#include "panelsim/board/Text.h"
#include "tests/panelsim/TestFolder.h"
#include "tests/support/Check.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

using namespace panelsim;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static const TestFolder folder;
    static const std::string file = folder.path("a.yaml").string();
    folder.write("a.txt", ""); // for steps to compare with
    static const Board board{BoardConfig()};
    const std::string content(reinterpret_cast<const char*>(bytes), size);
    try {
        const Scenario scenario = parseScenario(content, file, board);
        check(!scenario.name.empty() && !scenario.steps.empty(), "a scenario has a name and steps");
        for (const Step& step : scenario.steps) {
            check(step.said == printable(step.said), "a step is described in one line");
        }
    } catch (const std::runtime_error& e) {
        const std::string message = e.what();
        check(message == printable(message) && message.rfind(file, 0) == 0, "a message is one line and names the file");
    }
    return 0;
}
