#include "panelsim/scenario/Scenario.h"

#include "panelsim/board/LcdChip.h"
#include "panelsim/board/Text.h"
#include "panelsim/scenario/StepKind.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <strings.h>
#include <system_error>
#include <utility>
#include <yaml-cpp/depthguard.h>
#include <yaml-cpp/yaml.h>

namespace panelsim {

namespace {

using namespace std::chrono_literals;
using Words = std::vector<std::string>;
using YAML::Mark;

constexpr auto usualWait = 5s;
constexpr auto usualTap = 100ms;
constexpr unsigned endOfStatuses = 256;
constexpr unsigned endOfGpios = 1'000'000'000;
constexpr unsigned endOfFailingCalls = 1'000'001;

[[noreturn]] void refuse(const Mark& place, const std::string& text)
{
    throw YAML::Exception(place, text);
}

std::size_t characters(std::string_view text)
{
    const auto isFirstByte = [](unsigned char byte) { return (byte & 0xC0U) != 0x80U; };
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isFirstByte));
}

/** @return "LINE:COLUMN", the latter in characters; behind the end of the content, where its last line ends */
std::string placeOf(std::string_view content, const Mark& mark)
{
    const std::string_view before = content.substr(0, static_cast<std::size_t>(std::max(mark.pos, 0)));
    const auto lines = std::count(before.begin(), before.end(), '\n');
    return std::to_string(lines + 1) + ":" +
           std::to_string(characters(before.substr(before.find_last_of('\n') + 1)) + 1);
}

/** Refuses a second document, which YAML::Load would leave out. YAML::LoadAll never returns on ")". */
void checkDocuments(const std::string& content)
{
    std::istringstream lines(content);
    Mark mark;
    mark.pos = 0;
    bool begun = false;
    bool ended = false;
    for (std::string line; std::getline(lines, line); mark.pos += static_cast<int>(line.size()) + 1) {
        const bool isMarker = line.rfind("---", 0) == 0 || line.rfind("...", 0) == 0;
        ended = isMarker ? begun : ended;
        const std::size_t first = line.find_first_not_of(" \t\r", isMarker ? 3 : 0);
        if (first == std::string::npos || line[first] == '#' || line[first] == '%') {
            continue;
        }
        if (ended) {
            refuse(mark, "a second document begins here: a scenario is one, check the indentation if none is meant");
        }
        begun = true;
    }
}

YAML::Node parse(const std::string& content)
{
    // Some control codes have a meaning of their own to the parser.
    const auto isControl = [](unsigned char byte) {
        return (byte < 0x20 && std::strchr("\n\r\t", byte) == nullptr) || byte == '\x7F';
    };
    const auto control = std::find_if(content.begin(), content.end(), isControl) - content.begin();
    Mark wrong;
    wrong.pos = static_cast<int>(std::min(static_cast<std::size_t>(control), validUtf8(content)));
    if (wrong.pos < static_cast<int>(content.size())) {
        refuse(wrong, "this is a control character, or not UTF-8");
    }
    checkDocuments(content);
    // Without an end mark the parser takes the end of the content for the end of a quoted text.
    return YAML::Load(content + "\n...\n");
}

/** @return what is in a file @throws std::system_error when it cannot be read or is too large */
std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::string content(largestScenario + 1, '\0');
    stream.read(content.data(), static_cast<std::streamsize>(content.size()));
    const int error = errno;
    content.resize(static_cast<std::size_t>(stream.gcount()));
    const bool isRead = stream.is_open() && !stream.bad();
    if (!isRead || content.size() > largestScenario) {
        throw std::system_error(isRead ? EFBIG : error, std::generic_category(),
                                "cannot read " + printable(file.string()));
    }
    return content;
}

std::string listed(const Words& words)
{
    std::string list;
    for (const std::string& word : words) {
        list += (list.empty() ? "" : ", ") + word;
    }
    return list;
}

/** A value of a scenario file, to be read as what is expected there. What is something else is refused. */
struct Field {
    using Fields = std::map<std::string, Field>;

    Field(std::string itsName, const Mark& namePlace, const YAML::Node& value)
        : name(std::move(itsName)), node(value), place(value.IsNull() ? namePlace : value.Mark()),
          scalar(value.IsScalar() ? value.Scalar() : "")
    {
    }

    [[noreturn]] void refuse(const std::string& expected) const
    {
        panelsim::refuse(place, name + ": expected " + expected + (node.IsScalar() ? ", not " + excerpt(scalar) : ""));
    }

    /** @return the values of a mapping, empty when there is no value; each one of these names, and the first ones all
     */
    Fields fields(const Words& known, std::size_t required) const
    {
        const std::string what = known.empty() ? "no value" : "a mapping with " + listed(known);
        if (!node.IsMap() && !node.IsNull()) {
            refuse(what);
        }
        Fields found;
        for (const auto& entry : node) {
            const YAML::Node& key = entry.first;
            const std::string text = key.IsScalar() ? key.Scalar() : "";
            if (std::find(known.begin(), known.end(), text) == known.end()) {
                panelsim::refuse(key.Mark(), name + " has no field " + excerpt(text) + ": expected " + what);
            }
            if (!found.emplace(text, Field(text, key.Mark(), entry.second)).second) {
                panelsim::refuse(key.Mark(), inQuotes(text) + " is given twice");
            }
        }
        for (std::size_t i = 0; i < required; ++i) {
            if (found.count(known[i]) == 0) {
                panelsim::refuse(place, name + ": the field " + inQuotes(known[i]) + " is missing");
            }
        }
        return found;
    }

    /** @return one line */
    std::string text(bool mayBeEmpty = false) const
    {
        const bool isLine = scalar.find_first_of(std::string_view("\n\r\0", 3)) == std::string::npos;
        if (!node.IsScalar() || !isLine || (scalar.empty() && !mayBeEmpty)) {
            refuse("a text of one line that is not empty");
        }
        return scalar;
    }

    /** @return a number from the first one to the one before the end, or the index of one of the names */
    unsigned number(unsigned first, unsigned end, const Words& names = {}) const
    {
        if (first == end) {
            panelsim::refuse(place, name + ": this panel has none");
        }
        unsigned number = 0;
        const char* const last = scalar.data() + scalar.size();
        const auto [rest, error] = std::from_chars(scalar.data(), last, number);
        if (rest == last && error == std::errc() && node.Tag() != "!" && number >= first && number < end) {
            return number;
        }
        const auto named = std::find(names.begin(), names.end(), scalar);
        if (named == names.end()) {
            refuse((end - first == 1 ? "" : "a whole number from " + std::to_string(first) + " to ") +
                   std::to_string(end - 1) + (names.empty() ? "" : " or one of " + listed(names)));
        }
        return static_cast<unsigned>(named - names.begin());
    }

    /** @return whether it is a word with an even index, in upper or lower case */
    bool choice(const Words& words) const
    {
        const auto isIt = [this](const std::string& word) { return strcasecmp(scalar.c_str(), word.c_str()) == 0; };
        const auto found = std::find_if(words.begin(), words.end(), isIt);
        if (found == words.end()) {
            refuse("one of " + listed(words));
        }
        return (found - words.begin()) % 2 == 0;
    }

    std::chrono::milliseconds duration() const
    try {
        return parseDuration(scalar);
    } catch (const std::invalid_argument&) {
        refuse("a duration up to 24 hours, such as 300ms, 1.5s or 2m");
    }

    /** @return a text that can be on the display, whose codes are Latin-1 */
    std::string shown() const
    {
        const bool isLatin1 =
            std::all_of(scalar.begin(), scalar.end(), [](unsigned char byte) { return byte <= 0xC3; });
        if (!isLatin1 || characters(scalar) > LcdChip::columns) {
            refuse("Latin-1 characters only, " + std::to_string(LcdChip::columns) + " at most");
        }
        return text(true);
    }

    std::filesystem::path picture(const std::filesystem::path& folder) const
    {
        std::filesystem::path file = folder / text();
        const bool isPicture = file.extension() == ".svg" || file.extension() == ".txt";
        if (!isPicture || !std::filesystem::is_directory(file.parent_path() / ".")) {
            refuse("the name of a file that ends in .svg or .txt, in a folder that is there");
        }
        return file;
    }

    std::string name;
    YAML::Node node;
    Mark place; ///< of the name when there is no value
    std::string scalar;
};

/** What fields are read for. */
struct Target {
    Step& step;
    const Board& board;
    const BoardConfig& config;
    const std::filesystem::path folder;
};

using ReadField = void (*)(const Field& field, const Target& to);

// clang-format off
/** A field means the same in each step that has it; the one without a name is the value of delay. */
const std::map<std::string, ReadField> fieldReaders = {
    {"", [](const Field& field, const Target& to) { to.step.time = field.duration(); }},
    {"for", [](const Field& field, const Target& to) { to.step.time = field.duration(); }},
    {"within", [](const Field& field, const Target& to) { to.step.time = field.duration(); }},
    {"key", [](const Field& field, const Target& to) { to.step.part = field.number(0, to.config.keyCount, to.config.keyNames); }},
    {"led", [](const Field& field, const Target& to) { to.step.part = field.number(0, to.config.ledCount, to.config.ledNames); }},
    {"line", [](const Field& field, const Target& to) { to.step.line = field.number(0, LcdChip::rows); }},
    {"from", [](const Field& field, const Target& to) { to.step.from = field.number(0, LcdChip::columns); }},
    {"to", [](const Field& field, const Target& to) { to.step.to = field.number(0, LcdChip::columns); }},
    {"text", [](const Field& field, const Target& to) { to.step.text = to.step.kind->needsDisplay ? field.shown() : field.text(); }},
    {"whole", [](const Field& field, const Target& to) { to.step.whole = field.choice({"true", "false"}); }},
    {"is", [](const Field& field, const Target& to) { to.step.is = field.choice({"on", "off", "true", "false"}); }},
    {"status", [](const Field& field, const Target& to) { to.step.status = field.number(0, endOfStatuses); }},
    {"gpio", [](const Field& field, const Target& to) {
         to.step.fault.gpio = field.number(0, endOfGpios);
         to.board.lineLevel(*to.step.fault.gpio); }},
    {"calls", [](const Field& field, const Target& to) { to.step.fault.calls = field.number(1, endOfFailingCalls); }},
    {"with", [](const Field& field, const Target& to) {
         to.step.fault.kind = field.choice({"throw", "false"}) ? PinFault::Kind::Throw : PinFault::Kind::False; }},
    {"save-to", [](const Field& field, const Target& to) { to.step.saveTo = field.picture(to.folder); }},
    {"compare-with", [](const Field& field, const Target& to) {
         to.step.compareWith = field.picture(to.folder);
         if (!std::filesystem::is_regular_file(to.step.compareWith)) {
             field.refuse("the name of a regular file");
         }
         to.step.expected = contentOf(to.step.compareWith); }},
};
// clang-format on

/** @return what is wrong with values that do not go together, null if nothing is */
const char* mistakeIn(const Step& step)
{
    if (step.kind->name == "take-screenshot") {
        return step.saveTo.empty() && step.compareWith.empty() ? "save-to or compare-with is missing"
               : step.saveTo.lexically_normal() == step.compareWith.lexically_normal()
                   ? "compare-with is the file that save-to writes"
                   : nullptr;
    }
    return step.kind->name == "text" && step.text.empty() && !step.whole ? "the text is empty"
           : step.from > step.to                                         ? "from is greater than to"
                                                                         : nullptr;
}

/** @return the step of that name, with what its fields are when they are not given */
Step stepOf(const std::string& name, const Mark& place)
{
    Words names;
    for (const StepKind& kind : stepKinds) {
        const bool observes = kind.form == StepKind::Form::Observation;
        for (const std::string& prefix : observes ? Words{"expect-", "wait-"} : Words{""}) {
            names.push_back(prefix + kind.name);
            if (names.back() == name) {
                Step step;
                step.kind = &kind;
                step.waits = prefix == "wait-";
                step.time = step.waits ? std::chrono::milliseconds(usualWait) : usualTap;
                step.whole = !step.waits;
                step.to = LcdChip::columns - 1;
                return step;
            }
        }
    }
    refuse(place, "there is no step " + excerpt(name) + "; the steps are " + listed(names));
}

/** Reads a step: a mapping of its name to what it needs, or the name alone. */
Step readStep(const YAML::Node& node, const Board& board, const std::filesystem::path& file)
{
    if (!node.IsScalar() && (!node.IsMap() || node.size() != 1)) {
        refuse(node.Mark(),
               "expected a step such as press: {key: 0}, each with a dash of its own, its fields indented");
    }
    const YAML::Node name = node.IsScalar() ? node : YAML::Node(node.begin()->first);
    const Field value(name.IsScalar() ? name.Scalar() : "", name.Mark(),
                      node.IsScalar() ? YAML::Node() : YAML::Node(node.begin()->second));
    Step step = stepOf(value.name, name.Mark());
    const StepKind& kind = *step.kind;
    YAML::Emitter written;
    written << YAML::Flow << value.node;
    step.place = printable(file.string()) + ":" + std::to_string(name.Mark().line + 1) + ":" +
                 std::to_string(name.Mark().column + 1);
    step.said = printable(value.name + (value.node.IsNull() ? "" : std::string(": ") + written.c_str()));
    if (kind.needsDisplay && !board.getConfig().hasLcd) {
        refuse(name.Mark(), value.name + ": this panel has no display");
    }
    Words known = kind.fields;
    if (step.waits) {
        known.emplace_back("within");
    }
    const bool hasFields = known != Words{""};
    for (const auto& [each, field] : hasFields ? value.fields(known, kind.required) : Field::Fields{{"", value}}) {
        try {
            fieldReaders.at(each)(field, {step, board, board.getConfig(), file.parent_path()});
        } catch (const std::system_error& error) {
            refuse(field.place, field.name + ": " + printable(error.what()));
        }
    }
    if (const char* const mistake = mistakeIn(step)) {
        refuse(value.place, value.name + ": " + mistake);
    }
    return step;
}

Scenario read(const std::string& content, const std::filesystem::path& file, const Board& board)
{
    const YAML::Node root = parse(content);
    const auto fields = Field("a scenario", root.Mark(), root).fields({"name", "version", "steps"}, 3);
    const YAML::Node& steps = fields.at("steps").node;
    Scenario scenario{printable(file.string()), printable(fields.at("name").text()), {}};
    fields.at("version").number(1, 2);
    if (!steps.IsSequence() || steps.size() == 0) {
        fields.at("steps").refuse("a list of one step or more");
    }
    for (const YAML::Node& node : steps) {
        scenario.steps.push_back(readStep(node, board, file));
    }
    return scenario;
}

} // namespace

Scenario readScenario(const std::filesystem::path& file, const Board& board)
{
    return parseScenario(contentOf(file), file, board);
}

Scenario parseScenario(const std::string& given, const std::filesystem::path& file, const Board& board)
{
    const bool hasByteOrderMark = given.rfind("\xEF\xBB\xBF", 0) == 0;
    const std::string content = given.substr(hasByteOrderMark ? 3 : 0);
    try {
        return read(content, file, board);
    } catch (const YAML::Exception& e) {
        const bool isDeep = dynamic_cast<const YAML::DeepRecursion*>(&e) != nullptr;
        const bool isSyntax = dynamic_cast<const YAML::ParserException*>(&e) != nullptr;
        const bool isUnclosed = e.msg == YAML::ErrorMsg::DOC_IN_SCALAR;
        throw std::runtime_error(printable(file.string()) + ":" + placeOf(content, e.mark) + ": " +
                                 (isSyntax ? "this is not YAML: " : "") +
                                 (isDeep       ? "it is nested too deeply"
                                  : isUnclosed ? "a quoted text does not end"
                                               : printable(e.msg)));
    }
}

} // namespace panelsim
