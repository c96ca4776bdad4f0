#include "panelsim/scenario/ScenarioFile.h"

#include "panelsim/board/Utf8.h"
#include "panelsim/scenario/Fields.h"
#include "panelsim/scenario/Files.h"
#include "panelsim/scenario/PlacedError.h"
#include "panelsim/scenario/ScenarioError.h"
#include "panelsim/scenario/StepTable.h"
#include "panelsim/scenario/YamlDocument.h"

#include <system_error>

namespace panelsim {

namespace {

std::string readContent(const std::filesystem::path& file)
{
    try {
        return readFile(file, largestScenario);
    } catch (const std::system_error& e) {
        const bool large = e.code() == std::errc::file_too_large;
        throw ScenarioError(printable(file.string()) + ": " +
                            (large ? "a scenario is no larger than 1 MiB" : "cannot read: " + e.code().message()));
    }
}

Scenario readDocument(const YamlNode& document, const std::filesystem::path& file, const Board& board)
{
    const Fields fields("a scenario", document.place, document, {"name", "version", "steps"});
    Scenario scenario;
    scenario.file = printable(file.string());
    scenario.name = fields.filledText("name");
    fields.number("version", {1, 1});
    const YamlNode& steps = fields.get("steps");
    if (steps.kind != YamlNode::Kind::Sequence || steps.children.empty()) {
        refuseValue(steps, "steps", "a list of one step or more");
    }
    for (const YamlNode& step : steps.children) {
        scenario.steps.push_back(readStep(step, board, file.parent_path()));
    }
    return scenario;
}

} // namespace

Scenario readScenario(const std::filesystem::path& file, const BoardConfig& config)
{
    const Board board(config);
    return parseScenario(readContent(file), file, board);
}

Scenario parseScenario(const std::string& content, const std::filesystem::path& file, const Board& board)
{
    try {
        return readDocument(parseYaml(content), file, board);
    } catch (const PlacedError& e) {
        const TextPlace place = e.place();
        throw ScenarioError(printable(file.string()) + ":" + std::to_string(place.line) + ":" +
                            std::to_string(place.column) + ": " + e.what());
    }
}

} // namespace panelsim
