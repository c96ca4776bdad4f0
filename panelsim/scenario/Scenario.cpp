#include "panelsim/scenario/Scenario.h"

#include "panelsim/board/Duration.h"
#include "panelsim/board/LcdChip.h"
#include "panelsim/board/Utf8.h"
#include "panelsim/scenario/Screenshot.h"
#include "panelsim/scenario/StepKind.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <strings.h>
#include <system_error>
#include <utility>
#include <yaml-cpp/depthguard.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

namespace panelsim {

namespace {

using namespace std::chrono_literals;
using Words = std::vector<std::string_view>;
using YAML::Mark;

constexpr std::size_t longestWord = 40; ///< bytes of a value that stands for itself in messages
constexpr auto usualWait = 5s;
constexpr auto usualTap = 100ms;
constexpr unsigned highestStatus = 255;
constexpr unsigned mostFailingCalls = 1'000'000;
constexpr unsigned highestGpio = std::numeric_limits<unsigned>::max();

[[noreturn]] void refuse(const Mark& place, const std::string& text)
{
    throw YAML::Exception(place, text);
}

/** Refuses a second document, which YAML::Load would leave out. */
class DocumentCounter final : public YAML::EventHandler {
public:
    void OnDocumentStart(const Mark& mark) override
    {
        if (std::exchange(begun, true)) {
            refuse(mark, "a second document begins here: a scenario is one, check the indentation if none is meant");
        }
    }
    void OnDocumentEnd() override {}
    void OnNull(const Mark& /*mark*/, YAML::anchor_t /*anchor*/) override {}
    void OnAlias(const Mark& /*mark*/, YAML::anchor_t /*anchor*/) override {}
    void OnScalar(const Mark& /*mark*/, const std::string& /*tag*/, YAML::anchor_t /*anchor*/,
                  const std::string& /*text*/) override
    {
    }
    void OnSequenceStart(const Mark& /*mark*/, const std::string& /*tag*/, YAML::anchor_t /*anchor*/,
                         YAML::EmitterStyle::value /*style*/) override
    {
    }
    void OnSequenceEnd() override {}
    void OnMapStart(const Mark& /*mark*/, const std::string& /*tag*/, YAML::anchor_t /*anchor*/,
                    YAML::EmitterStyle::value /*style*/) override
    {
    }
    void OnMapEnd() override {}

private:
    bool begun = false;
};

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

/** Refuses what is not UTF-8, and control codes: some of them have a meaning of their own to the parser. */
void checkCharacters(const std::string& text)
{
    const auto isControl = [](char byte) {
        return (static_cast<unsigned char>(byte) < 0x20 && std::strchr("\n\r\t", byte) == nullptr) || byte == '\x7F';
    };
    const auto control = std::find_if(text.begin(), text.end(), isControl) - text.begin();
    const auto valid = static_cast<std::ptrdiff_t>(validUtf8(text));
    Mark mark;
    mark.pos = static_cast<int>(std::min(control, valid));
    if (control < valid) {
        const std::string code = std::to_string(text[static_cast<std::size_t>(control)]);
        refuse(mark, "a control character, code " + code + ", cannot stand in a scenario");
    }
    if (valid < static_cast<std::ptrdiff_t>(text.size())) {
        refuse(mark, "this is not UTF-8");
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

std::string listed(const Words& words)
{
    std::string list;
    for (const std::string_view word : words) {
        list.append(list.empty() ? "" : ", ").append(word);
    }
    return list;
}

std::string numbers(unsigned first, unsigned last)
{
    return first == last ? std::to_string(last)
                         : "a whole number from " + std::to_string(first) + " to " + std::to_string(last);
}

/** A value of a scenario file, to be read as what is expected there. What is something else is refused. */
struct Field {
    using Fields = std::map<std::string_view, Field>;

    std::string name;
    YAML::Node node;
    Mark place; ///< of the name when there is no value

    [[noreturn]] void refuse(const std::string& expected) const
    {
        const std::string kind = node.IsSequence() ? "not a list" : node.IsMap() ? "not a mapping" : "";
        const bool isWord = node.Tag() != "!" && node.IsScalar() && node.Scalar().size() <= longestWord;
        const std::string scalar = !node.IsScalar() ? "but nothing is there"
                                   : isWord         ? "not " + printable(node.Scalar())
                                                    : "not " + excerpt(node.Scalar());
        panelsim::refuse(place, name + ": expected " + expected + ", " + (kind.empty() ? scalar : kind));
    }

    /** @return the values of a mapping, empty when there is no value; each one of these names, and all those required
     */
    Fields fields(const Words& required, const Words& optional, const Mark& missing) const
    {
        Words known = required;
        known.insert(known.end(), optional.begin(), optional.end());
        if (!node.IsMap() && !node.IsNull()) {
            refuse(known.empty() ? "no value" : "a mapping with " + listed(known));
        }
        Fields found;
        for (const auto& entry : node) {
            const YAML::Node& key = entry.first;
            const YAML::Node& value = entry.second;
            const std::string text = key.IsScalar() ? key.Scalar() : "";
            const auto field = std::find(known.begin(), known.end(), text);
            if (field == known.end()) {
                panelsim::refuse(key.Mark(), name + " has no field " + (key.IsScalar() ? excerpt(text) : "like this") +
                                                 "; it has " + (known.empty() ? "none" : listed(known)));
            }
            if (!found.emplace(*field, Field{text, value, value.IsNull() ? key.Mark() : value.Mark()}).second) {
                panelsim::refuse(key.Mark(), inQuotes(text) + " is given twice");
            }
        }
        for (const std::string_view each : required) {
            if (found.count(each) == 0) {
                panelsim::refuse(missing, name + ": the field " + inQuotes(each) + " is missing");
            }
        }
        return found;
    }

    /** @return one line */
    std::string text(bool mayBeEmpty = false) const
    {
        if (!node.IsScalar() || node.Scalar().find_first_of(std::string_view("\n\r\0", 3)) != std::string::npos) {
            refuse("a text of one line");
        }
        if (!mayBeEmpty && node.Scalar().empty()) {
            refuse("a text that is not empty");
        }
        return node.Scalar();
    }

    bool isNumber() const
    {
        return node.IsScalar() && node.Tag() != "!" && !node.Scalar().empty() &&
               node.Scalar().find_first_not_of("0123456789") == std::string::npos;
    }

    unsigned number(unsigned first, unsigned last) const
    {
        unsigned number = 0;
        const std::string digits = isNumber() ? node.Scalar() : "";
        const auto error = std::from_chars(digits.data(), digits.data() + digits.size(), number).ec;
        if (error != std::errc() || number < first || number > last) {
            refuse(numbers(first, last));
        }
        return number;
    }

    /** @return the index of one of so many equal parts, which may have names */
    unsigned part(unsigned count, const std::vector<std::string>& names = {}) const
    {
        if (count == 0) {
            panelsim::refuse(place, "this panel has no " + name);
        }
        if (names.empty() || isNumber()) {
            return number(0, count - 1);
        }
        const auto found = std::find(names.begin(), names.end(), node.IsScalar() ? node.Scalar() : "");
        if (found == names.end()) {
            refuse(numbers(0, count - 1) + " or one of " + listed({names.begin(), names.end()}));
        }
        return static_cast<unsigned>(found - names.begin());
    }

    /** @return whether it is a word with an even index, in upper or lower case */
    bool choice(const Words& words) const
    {
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (node.IsScalar() && strcasecmp(node.Scalar().c_str(), words[i].data()) == 0) {
                return i % 2 == 0;
            }
        }
        refuse("one of " + listed(words));
    }

    std::chrono::milliseconds duration() const
    try {
        if (!node.IsScalar() || node.Scalar().size() > longestWord) {
            refuse("a duration such as 300ms, 1.5s or 2m");
        }
        return parseDuration(node.Scalar());
    } catch (const std::invalid_argument& e) {
        panelsim::refuse(place, name + ": " + printable(e.what()));
    }
};

/** What fields are read for. */
struct Target {
    Step& step;
    const Board& board;
    const BoardConfig& config;
    const std::filesystem::path& folder;
};

/** Refuses what can never be on the display: its codes are Latin-1. */
std::string shownText(const Field& field)
{
    std::string text = field.text(true);
    if (std::any_of(text.begin(), text.end(), [](unsigned char byte) { return byte > 0xC3; })) {
        refuse(field.place, "text: the display has no characters but those of Latin-1");
    }
    if (characters(text) > LcdChip::columns) {
        refuse(field.place, "text: a line has " + std::to_string(LcdChip::columns) + " characters at most");
    }
    return text;
}

unsigned gpioOf(const Field& field, const Board& board)
{
    const unsigned gpio = field.number(0, highestGpio);
    try {
        board.lineLevel(gpio);
    } catch (const std::system_error&) {
        refuse(field.place, "gpio: this board has no GPIO " + std::to_string(gpio));
    }
    return gpio;
}

std::filesystem::path pictureOf(const Field& field, const std::filesystem::path& folder)
{
    std::filesystem::path file = folder / field.text();
    if (file.extension() != ".svg" && file.extension() != ".txt") {
        field.refuse("the name of a file that ends in .svg or .txt");
    }
    std::error_code ignored;
    const std::filesystem::path parent = file.parent_path();
    if (!parent.empty() && !std::filesystem::is_directory(parent, ignored)) {
        refuse(field.place, field.name + ": there is no folder " + printable(parent.string()));
    }
    return file;
}

std::filesystem::path goldenOf(const Field& field, const std::filesystem::path& folder)
try {
    std::filesystem::path file = pictureOf(field, folder);
    readPictureFile(file);
    return file;
} catch (const std::system_error& e) {
    refuse(field.place, "compare-with: " + printable(e.what()));
}

using ReadField = void (*)(const Field& field, const Target& to);

void readTime(const Field& field, const Target& to)
{
    to.step.time = field.duration();
}

// clang-format off
/** A field means the same in each step that has it; the one without a name is the value of delay. */
const std::map<std::string_view, ReadField> fieldReaders = {
    {"", readTime},
    {"for", readTime},
    {"within", readTime},
    {"key", [](const Field& field, const Target& to) { to.step.part = field.part(to.config.keyCount, to.config.keyNames); }},
    {"led", [](const Field& field, const Target& to) { to.step.part = field.part(to.config.ledCount, to.config.ledNames); }},
    {"line", [](const Field& field, const Target& to) { to.step.line = field.part(LcdChip::rows); }},
    {"from", [](const Field& field, const Target& to) { to.step.from = field.part(LcdChip::columns); }},
    {"to", [](const Field& field, const Target& to) { to.step.to = field.part(LcdChip::columns); }},
    {"text", [](const Field& field, const Target& to) { to.step.text = to.step.kind->needsDisplay ? shownText(field) : field.text(); }},
    {"whole", [](const Field& field, const Target& to) { to.step.whole = field.choice({"true", "false"}); }},
    {"is", [](const Field& field, const Target& to) { to.step.is = field.choice({"on", "off", "true", "false"}); }},
    {"status", [](const Field& field, const Target& to) { to.step.status = field.number(0, highestStatus); }},
    {"gpio", [](const Field& field, const Target& to) { to.step.fault.gpio = gpioOf(field, to.board); }},
    {"calls", [](const Field& field, const Target& to) { to.step.fault.calls = field.number(1, mostFailingCalls); }},
    {"with", [](const Field& field, const Target& to) {
         to.step.fault.kind = field.choice({"throw", "false"}) ? PinFault::Kind::Throw : PinFault::Kind::False; }},
    {"save-to", [](const Field& field, const Target& to) { to.step.saveTo = pictureOf(field, to.folder); }},
    {"compare-with", [](const Field& field, const Target& to) { to.step.compareWith = goldenOf(field, to.folder); }},
};
// clang-format on

/** Refuses fields that do not go together. */
void checkFields(const Field::Fields& fields, const Step& step, const Mark& place)
{
    if (step.text.empty() && !step.whole && fields.count("text") != 0) {
        fields.at("text").refuse("a text that is not empty");
    }
    if (step.from > step.to) {
        refuse(fields.at(fields.count("from") != 0 ? "from" : "to").place,
               "from: " + std::to_string(step.from) + " is greater than to, " + std::to_string(step.to));
    }
    if (step.name == "take-screenshot" && fields.empty()) {
        refuse(place, "take-screenshot: save-to or compare-with is missing");
    }
    if (!step.saveTo.empty() && step.saveTo.lexically_normal() == step.compareWith.lexically_normal()) {
        refuse(fields.at("compare-with").place, "compare-with: this is the file that save-to writes");
    }
}

/** @return the step of that name, with what its fields are when they are not given */
Step stepOf(const std::string& name, const Mark& place)
{
    std::string names;
    for (const StepKind& kind : stepKinds) {
        const bool observes = kind.form == StepKind::Form::Observation;
        for (const char* const prefix : observes ? std::vector{"expect-", "wait-"} : std::vector{""}) {
            const std::string full = prefix + std::string(kind.name);
            if (full == name) {
                Step step;
                step.kind = &kind;
                step.name = name;
                step.fileLine = static_cast<unsigned>(place.line + 1);
                step.fileColumn = static_cast<unsigned>(place.column + 1);
                step.waits = *prefix == 'w';
                step.time = step.waits ? std::chrono::milliseconds(usualWait) : usualTap;
                step.whole = !step.waits;
                step.to = LcdChip::columns - 1;
                return step;
            }
            names += (names.empty() ? "" : ", ") + full;
        }
    }
    refuse(place, "there is no step " + excerpt(name) + "; the steps are " + names);
}

/** @param value of the step, with the place of its name */
Step readNamed(Field value, const Board& board, const std::filesystem::path& folder)
{
    const Mark place = value.place;
    Step step = stepOf(value.name, place);
    const StepKind& kind = *step.kind;
    const Target target{step, board, board.getConfig(), folder};
    if (kind.needsDisplay && !board.getConfig().hasLcd) {
        refuse(place, value.name + ": this panel has no display");
    }
    value.place = value.node.IsMap() || value.node.IsNull() ? place : value.node.Mark();
    if (kind.required == Words{""}) {
        readTime(value, target);
        return step;
    }
    Words optional = kind.optional;
    if (step.waits) {
        optional.emplace_back("within");
    }
    const auto fields = value.fields(kind.required, optional, place);
    for (const auto& [name, field] : fields) {
        fieldReaders.at(name)(field, target);
    }
    checkFields(fields, step, place);
    return step;
}

/** Reads a step: a mapping of its name to what it needs, or the name alone. */
Step readStep(const YAML::Node& node, const Board& board, const std::filesystem::path& folder)
{
    if (node.IsScalar()) {
        return readNamed({node.Scalar(), YAML::Node(), node.Mark()}, board, folder);
    }
    if (!node.IsMap() || node.size() == 0) {
        Field{"steps", node, node.Mark()}.refuse("a step such as press: {key: 0}");
    }
    const auto entry = node.begin();
    const YAML::Node name = entry->first;
    if (node.size() > 1) {
        const YAML::Node second = (++node.begin())->first;
        refuse(second.Mark(), excerpt(second.IsScalar() ? second.Scalar() : "") +
                                  " follows in the same step: a step begins with a dash of its own, and its fields are "
                                  "indented further");
    }
    return readNamed({name.IsScalar() ? name.Scalar() : "", entry->second, name.Mark()}, board, folder);
}

Scenario read(const std::string& content, const std::filesystem::path& file, const Board& board)
{
    const YAML::Node root = parse(content);
    const auto fields = Field{"a scenario", root, root.Mark()}.fields({"name", "version", "steps"}, {}, root.Mark());
    const Field& steps = fields.at("steps");
    Scenario scenario{printable(file.string()), printable(fields.at("name").text()), {}};
    fields.at("version").number(1, 1);
    if (!steps.node.IsSequence() || steps.node.size() == 0) {
        steps.refuse("a list of one step or more");
    }
    for (const YAML::Node& node : steps.node) {
        scenario.steps.push_back(readStep(node, board, file.parent_path()));
    }
    return scenario;
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
        throw std::runtime_error(printable(file.string()) + ": cannot read: " + std::strerror(error));
    }
    if (content.size() > largestScenario) {
        throw std::runtime_error(printable(file.string()) + ": a scenario is no larger than 1 MiB");
    }
    return parseScenario(content, file, board);
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
                                 (isDeep       ? "this is nested too deeply"
                                  : !isSyntax  ? e.msg
                                  : isUnclosed ? "this is not YAML: a quoted text does not end"
                                               : "this is not YAML: " + printable(e.msg)));
    }
}

} // namespace panelsim
