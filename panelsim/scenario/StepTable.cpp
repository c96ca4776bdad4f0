#include "panelsim/scenario/StepTable.h"

#include "panelsim/board/LcdChip.h"
#include "panelsim/board/Utf8.h"
#include "panelsim/scenario/Fields.h"
#include "panelsim/scenario/NearestWord.h"
#include "panelsim/scenario/PlacedError.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace panelsim {

namespace {

constexpr std::chrono::milliseconds usualWait = std::chrono::seconds(5);
constexpr std::chrono::milliseconds usualTap = std::chrono::milliseconds(100);
constexpr unsigned mostFailingCalls = 1'000'000;
constexpr unsigned highestExitStatus = 255;

/** What a step says, and what it says it about. */
struct Body {
    TextPlace place; ///< of the step's name
    const YamlNode& value;
    const Fields& fields;
    const Board& board;
    const std::filesystem::path& directory;
};

/** Reads the index of one of so many equal parts. */
unsigned readIndex(const Body& body, std::string_view field, unsigned count, std::optional<unsigned> fallback = {})
{
    if (count == 0) {
        throw PlacedError(body.fields.get(field).keyPlace, "this panel has no " + std::string(field));
    }
    return body.fields.number(field, {0, count - 1}, fallback);
}

unsigned readKey(const Body& body)
{
    return readIndex(body, "key", body.board.getConfig().keyCount);
}

unsigned readLed(const Body& body)
{
    return readIndex(body, "led", body.board.getConfig().ledCount);
}

unsigned readLine(const Body& body)
{
    return readIndex(body, "line", LcdChip::rows);
}

std::optional<unsigned> readLineOrAny(const Body& body)
{
    return body.fields.find("line") == nullptr ? std::nullopt : std::optional(readLine(body));
}

unsigned readFrom(const Body& body)
{
    return readIndex(body, "from", LcdChip::columns, 0);
}

unsigned readTo(const Body& body)
{
    const unsigned from = readFrom(body);
    const unsigned to = readIndex(body, "to", LcdChip::columns, LcdChip::columns - 1);
    if (from > to) {
        throw PlacedError(body.fields.get("from").place,
                          "from: " + std::to_string(from) + " is greater than to, " + std::to_string(to));
    }
    return to;
}

/** Refuses what can never be on the display: its codes are Latin-1. */
std::string displayable(const Body& body, std::string text)
{
    const auto isFirstByte = [](unsigned char byte) { return (byte & 0xC0U) != 0x80U; };
    const auto isBeyondLatin1 = [](unsigned char byte) { return byte > 0xC3; };
    const YamlNode& value = body.fields.get("text");
    if (std::any_of(text.begin(), text.end(), isBeyondLatin1)) {
        throw PlacedError(value.place, "text: the display has no characters but those of Latin-1");
    }
    if (static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isFirstByte)) > LcdChip::columns) {
        throw PlacedError(value.place, "text: a line has " + std::to_string(LcdChip::columns) + " characters at most");
    }
    return text;
}

std::string readShownText(const Body& body)
{
    return displayable(body, body.fields.filledText("text"));
}

std::string readLineText(const Body& body)
{
    return displayable(body, body.fields.text("text"));
}

std::string readOutputText(const Body& body)
{
    return body.fields.filledText("text");
}

const std::vector<Fields::Word> switchWords = {{"on", true}, {"off", false}, {"true", true}, {"false", false}};

bool readIs(const Body& body)
{
    return body.fields.word("is", switchWords);
}

bool readIsOrTrue(const Body& body)
{
    return body.fields.word("is", switchWords, true);
}

std::chrono::milliseconds readDelay(const Body& body)
{
    return toDuration(body.value, "delay");
}

std::chrono::milliseconds readFor(const Body& body)
{
    return body.fields.duration("for", usualTap);
}

std::chrono::milliseconds readWithin(const Body& body)
{
    return body.fields.duration("within", usualWait);
}

int readStatus(const Body& body)
{
    return static_cast<int>(body.fields.number("status", {0, highestExitStatus}, 0));
}

unsigned readGpio(const Body& body)
{
    const unsigned gpio = body.fields.number("gpio", {0, std::numeric_limits<unsigned>::max()});
    try {
        body.board.lineLevel(gpio);
    } catch (const std::system_error&) {
        throw PlacedError(body.fields.get("gpio").place, "gpio: this board has no GPIO " + std::to_string(gpio));
    }
    return gpio;
}

PinFault readPinFault(const Body& body)
{
    PinFault fault;
    fault.gpio = readGpio(body);
    fault.calls = body.fields.number("calls", {1, mostFailingCalls}, 1);
    const bool throws = body.fields.word("with", {{"throw", true}, {"false", false}}, true);
    fault.kind = throws ? PinFault::Kind::Throw : PinFault::Kind::False;
    return fault;
}

std::optional<std::filesystem::path> readPicture(const Body& body, std::string_view field)
{
    if (body.fields.find(field) == nullptr) {
        return std::nullopt;
    }
    const std::filesystem::path file = body.fields.filledText(field);
    if (file.extension() != ".svg" && file.extension() != ".txt") {
        refuseValue(body.fields.get(field), field, "the name of a file that ends in .svg or .txt");
    }
    return body.directory / file;
}

/** At least one of the two files is to be there. */
std::optional<std::filesystem::path> readSaveTo(const Body& body)
{
    if (body.fields.find("compare-with") == nullptr && body.fields.find("save-to") == nullptr) {
        throw PlacedError(body.place, "take-screenshot: save-to or compare-with is missing");
    }
    auto file = readPicture(body, "save-to");
    std::error_code ignored;
    if (file && file->has_parent_path() && !std::filesystem::is_directory(file->parent_path(), ignored)) {
        throw PlacedError(body.fields.get("save-to").place,
                          "save-to: there is no folder " + printable(file->parent_path().string()));
    }
    return file;
}

void checkReadable(const std::filesystem::path& file, const YamlNode& value)
{
    std::error_code error;
    const bool isFile = std::filesystem::is_regular_file(file, error);
    if (isFile && access(file.c_str(), R_OK) != 0) {
        error.assign(errno, std::generic_category());
    }
    if (!isFile || error) {
        throw PlacedError(value.place, value.key + ": cannot read " + printable(file.string()) + ": " +
                                           (error ? error.message() : "it is no file"));
    }
}

std::optional<std::filesystem::path> readCompareWith(const Body& body)
{
    auto file = readPicture(body, "compare-with");
    if (file) {
        const YamlNode& value = body.fields.get("compare-with");
        const auto written = readPicture(body, "save-to");
        if (written && written->lexically_normal() == file->lexically_normal()) {
            throw PlacedError(value.place, value.key + ": this is the file that save-to writes");
        }
        checkReadable(*file, value);
    }
    return file;
}

/** How a step is written. */
enum class Form {
    Value,        ///< a value without fields
    Mapping,      ///< a mapping of fields
    DisplaysOnly, ///< a mapping too, for panels with a display only
};

struct StepKind {
    std::string_view name;
    Form form;
    std::vector<std::string_view> fields;
    StepAction (*read)(const Body& body);
};

/** Reads an action's members, in their order. */
template <typename Action, auto... readMember>
StepAction read(const Body& body)
{
    return Action{readMember(body)...};
}

const std::vector<StepKind> stepKinds = {
    {"delay", Form::Value, {}, read<steps::Delay, readDelay>},
    {"press", Form::Mapping, {"key"}, read<steps::Press, readKey>},
    {"release", Form::Mapping, {"key"}, read<steps::Release, readKey>},
    {"tap", Form::Mapping, {"key", "for"}, read<steps::Tap, readKey, readFor>},
    {"wait-text",
     Form::DisplaysOnly,
     {"text", "line", "within"},
     read<steps::WaitText, readShownText, readLineOrAny, readWithin>},
    {"expect-text", Form::DisplaysOnly, {"line", "text"}, read<steps::ExpectText, readLine, readLineText>},
    {"expect-inverted",
     Form::DisplaysOnly,
     {"line", "from", "to", "is"},
     read<steps::ExpectInverted, readLine, readFrom, readTo, readIsOrTrue>},
    {"expect-led", Form::Mapping, {"led", "is"}, read<steps::ExpectLed, readLed, readIs>},
    {"wait-led", Form::Mapping, {"led", "is", "within"}, read<steps::WaitLed, readLed, readIs, readWithin>},
    {"expect-backlight", Form::DisplaysOnly, {"is"}, read<steps::ExpectBacklight, readIs>},
    {"wait-output", Form::Mapping, {"text", "within"}, read<steps::WaitOutput, readOutputText, readWithin>},
    {"wait-exit", Form::Mapping, {"status", "within"}, read<steps::WaitExit, readStatus, readWithin>},
    {"expect-no-bus-faults", Form::Mapping, {}, read<steps::ExpectNoBusFaults>},
    {"fail-pin", Form::Mapping, {"gpio", "calls", "with"}, read<steps::FailPin, readPinFault>},
    {"take-screenshot",
     Form::Mapping,
     {"save-to", "compare-with"},
     read<steps::TakeScreenshot, readSaveTo, readCompareWith>},
};

const StepKind& kindOf(std::string_view name, TextPlace place)
{
    std::vector<std::string_view> names;
    for (const StepKind& kind : stepKinds) {
        if (kind.name == name) {
            return kind;
        }
        names.push_back(kind.name);
    }
    const std::optional<std::string_view> nearest = nearestWord(name, names);
    throw PlacedError(place, "there is no step " + excerpt(name) +
                                 (nearest ? ", perhaps " + std::string(*nearest) + " is meant" : "") +
                                 "; the steps are " + listed(names));
}

/** Reads a step whose value may be missing. */
Step readNamed(const std::string& name, TextPlace place, const YamlNode& value, const Board& board,
               const std::filesystem::path& directory)
{
    const StepKind& kind = kindOf(name, place);
    if (kind.form == Form::DisplaysOnly && !board.getConfig().hasLcd) {
        throw PlacedError(place, name + ": this panel has no display");
    }
    const YamlNode nothing;
    const Fields fields(name, place, kind.form == Form::Value ? nothing : value, kind.fields);
    return {place, name, kind.read({place, value, fields, board, directory})};
}

} // namespace

Step readStep(const YamlNode& node, const Board& board, const std::filesystem::path& directory)
{
    if (node.kind == YamlNode::Kind::Scalar) {
        YamlNode nothing;
        nothing.place = node.place;
        return readNamed(node.text, node.place, nothing, board, directory);
    }
    if (node.kind != YamlNode::Kind::Mapping || node.children.empty()) {
        refuseValue(node, "steps", "a step such as press: {key: 0}");
    }
    if (node.children.size() > 1) {
        const YamlNode& second = node.children[1];
        throw PlacedError(second.keyPlace, excerpt(second.key) + " follows in the same step: a step begins with a dash "
                                                                 "of its own, and its fields are indented further");
    }
    const YamlNode& value = node.children.front();
    return readNamed(value.key, value.keyPlace, value, board, directory);
}

} // namespace panelsim
