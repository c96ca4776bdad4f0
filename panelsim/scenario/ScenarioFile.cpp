#include "panelsim/scenario/ScenarioFile.h"

#include "panelsim/board/Utf8.h"
#include "panelsim/scenario/ScenarioError.h"
#include "panelsim/scenario/StepKind.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>
#include <tuple>
#include <utility>
#include <yaml-cpp/depthguard.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

namespace panelsim {

namespace {

/** Refuses a second document, which YAML::Load would leave out. */
class DocumentCounter final : public YAML::EventHandler {
public:
    void OnDocumentStart(const YAML::Mark& mark) override
    {
        if (std::exchange(begun, true)) {
            throw YAML::Exception(mark, "a second document begins here: a scenario is one, check the indentation if "
                                        "none is meant");
        }
    }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark&, YAML::anchor_t) override {}
    void OnAlias(const YAML::Mark&, YAML::anchor_t) override {}
    void OnScalar(const YAML::Mark&, const std::string&, YAML::anchor_t, const std::string&) override {}
    void OnSequenceStart(const YAML::Mark&, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {}
    void OnSequenceEnd() override {}
    void OnMapStart(const YAML::Mark&, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {}
    void OnMapEnd() override {}

private:
    bool begun = false;
};

/** @return line and column, the latter in characters */
std::pair<unsigned, unsigned> placeOf(std::string_view content, const YAML::Mark& mark)
{
    const std::string_view before = content.substr(0, static_cast<std::size_t>(std::max(mark.pos, 0)));
    const std::string_view line = before.substr(before.find_last_of('\n') + 1);
    const auto isFirstByte = [](unsigned char byte) { return (byte & 0xC0U) != 0x80U; };
    // Behind the end there may be more lines: see parse.
    const bool isWithin = mark.pos <= static_cast<int>(content.size());
    const auto lines = isWithin ? std::max(mark.line, 0) : std::count(content.begin(), content.end(), '\n');
    return {static_cast<unsigned>(lines + 1),
            static_cast<unsigned>(std::count_if(line.begin(), line.end(), isFirstByte) + 1)};
}

YAML::Mark markAt(std::string_view content, std::size_t position)
{
    YAML::Mark mark;
    mark.pos = static_cast<int>(position);
    mark.line = static_cast<int>(std::count(content.begin(), content.begin() + mark.pos, '\n'));
    return mark;
}

/** Refuses what is not UTF-8, and control codes: some of them have a meaning of their own to the parser. */
void checkCharacters(std::string_view text)
{
    const std::size_t valid = validUtf8(text);
    for (std::size_t i = 0; i < valid; ++i) {
        const bool isControl = static_cast<unsigned char>(text[i]) < 0x20 || text[i] == '\x7F';
        if (isControl && text[i] != '\n' && text[i] != '\t' && text.substr(i, 2) != "\r\n") {
            throw YAML::Exception(markAt(text, i), "a control character, code " + std::to_string(text[i]) +
                                                       ", cannot stand in a scenario");
        }
    }
    if (valid < text.size()) {
        throw YAML::Exception(markAt(text, valid), "this is not UTF-8");
    }
}

YAML::Node parse(const std::string& content)
{
    checkCharacters(content);
    // Without an end mark the parser takes the end of the content for the end of a quoted text.
    const std::string document = content + "\n...\n";
    std::istringstream stream(document);
    YAML::Parser parser(stream);
    DocumentCounter counter;
    // Not all documents: there is no end to them when the parser stands still at what it does not understand.
    for (int i = 0; i < 2 && parser.HandleNextDocument(counter); ++i) {
    }
    return YAML::Load(document);
}

const FieldValue& require(const FieldValue::Fields& fields, const YAML::Mark& place, const std::string& name)
{
    const auto found = fields.find(name);
    if (found == fields.end()) {
        throw YAML::Exception(place, "a scenario: the field " + inQuotes(name) + " is missing");
    }
    return found->second;
}

Scenario read(const std::string& content, const std::filesystem::path& file, const Board& board)
{
    const YAML::Node root = parse(content);
    const auto fields = FieldValue{"a scenario", root, root.Mark()}.fields({"name", "version", "steps"});
    Scenario scenario;
    scenario.file = printable(file.string());
    scenario.name = printable(require(fields, root.Mark(), "name").filledText());
    require(fields, root.Mark(), "version").number(1, 1);
    const FieldValue& steps = require(fields, root.Mark(), "steps");
    if (!steps.node.IsSequence() || steps.node.size() == 0) {
        steps.refuse("a list of one step or more");
    }
    const std::filesystem::path folder = file.parent_path();
    for (const YAML::Node& node : steps.node) {
        YAML::Mark place;
        scenario.steps.push_back(readStep(node, board, folder, place));
        std::tie(scenario.steps.back().fileLine, scenario.steps.back().fileColumn) = placeOf(content, place);
    }
    return scenario;
}

std::string withoutByteOrderMark(const std::string& content)
{
    return content.rfind("\xEF\xBB\xBF", 0) == 0 ? content.substr(3) : content;
}

} // namespace

Scenario readScenario(const std::filesystem::path& file, const Board& board)
{
    std::ifstream stream(file, std::ios::binary);
    std::string content(largestScenario + 1, '\0');
    stream.read(content.data(), static_cast<std::streamsize>(content.size()));
    const int error = errno;
    content.resize(static_cast<std::size_t>(stream.gcount()));
    if (!stream.is_open() || stream.bad()) {
        throw ScenarioError(printable(file.string()) + ": cannot read: " + std::strerror(error));
    }
    if (content.size() > largestScenario) {
        throw ScenarioError(printable(file.string()) + ": a scenario is no larger than 1 MiB");
    }
    return parseScenario(content, file, board);
}

Scenario parseScenario(const std::string& given, const std::filesystem::path& file, const Board& board)
{
    const std::string content = withoutByteOrderMark(given);
    const auto fail = [&](const YAML::Mark& mark, const std::string& text) {
        const auto [line, column] = placeOf(content, mark);
        throw ScenarioError(printable(file.string()) + ":" + std::to_string(line) + ":" + std::to_string(column) +
                            ": " + text);
    };
    try {
        return read(content, file, board);
    } catch (const YAML::DeepRecursion& e) {
        fail(e.mark, "this is nested too deeply");
    } catch (const YAML::ParserException& e) {
        const bool isUnclosed = e.msg == YAML::ErrorMsg::DOC_IN_SCALAR;
        fail(e.mark, "this is not YAML: " + (isUnclosed ? "a quoted text does not end" : printable(e.msg)));
    } catch (const YAML::Exception& e) {
        fail(e.mark, e.msg);
    }
    return {};
}

} // namespace panelsim
