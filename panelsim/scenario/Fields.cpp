#include "panelsim/scenario/Fields.h"

#include "panelsim/board/Duration.h"
#include "panelsim/board/Utf8.h"
#include "panelsim/scenario/PlacedError.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace panelsim {

namespace {

constexpr std::size_t longestWord = 40; ///< bytes of a value that stands for itself in messages

bool isScalar(const YamlNode& value)
{
    return value.kind == YamlNode::Kind::Scalar;
}

std::string describe(Fields::Range range)
{
    const std::string last = std::to_string(range.last);
    return range.first == range.last ? last : "a whole number from " + std::to_string(range.first) + " to " + last;
}

std::string describe(const YamlNode& value)
{
    switch (value.kind) {
    case YamlNode::Kind::Null:
        return "but nothing is there";
    case YamlNode::Kind::Sequence:
        return "not a list";
    case YamlNode::Kind::Mapping:
        return "not a mapping";
    case YamlNode::Kind::Scalar:
        break;
    }
    const bool isWord = !value.quoted && value.text.size() <= longestWord;
    return "not " + (isWord ? printable(value.text) : excerpt(value.text));
}

char toLower(char character)
{
    return static_cast<char>(character >= 'A' && character <= 'Z' ? character - 'A' + 'a' : character);
}

bool equalIgnoringCase(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return toLower(x) == toLower(y); });
}

} // namespace

Fields::Fields(std::string itsOwner, TextPlace itsPlace, const YamlNode& itsMapping,
               const std::vector<std::string_view>& known)
    : owner(std::move(itsOwner)), place(itsPlace), mapping(itsMapping)
{
    if (mapping.kind != YamlNode::Kind::Mapping && mapping.kind != YamlNode::Kind::Null) {
        refuseValue(mapping, owner, known.empty() ? "no value" : "a mapping with " + listed(known));
    }
    for (const YamlNode& child : mapping.children) {
        if (std::find(known.begin(), known.end(), child.key) == known.end()) {
            throw PlacedError(child.keyPlace, owner + " has no field " + excerpt(child.key) + "; it has " +
                                                  (known.empty() ? "none" : listed(known)));
        }
    }
}

const YamlNode* Fields::find(std::string_view field) const
{
    const auto found = std::find_if(mapping.children.begin(), mapping.children.end(),
                                    [&](const YamlNode& child) { return child.key == field; });
    return found == mapping.children.end() ? nullptr : &*found;
}

const YamlNode& Fields::get(std::string_view field) const
{
    const YamlNode* const value = find(field);
    if (value == nullptr) {
        throw PlacedError(place, owner + ": the field " + inQuotes(field) + " is missing");
    }
    return *value;
}

unsigned Fields::number(std::string_view field, Range range, std::optional<unsigned> fallback) const
{
    if (fallback && find(field) == nullptr) {
        return *fallback;
    }
    const YamlNode& value = get(field);
    unsigned number = 0;
    const char* const end = value.text.data() + value.text.size();
    const auto [rest, error] = std::from_chars(value.text.data(), end, number);
    const bool isNumber = isScalar(value) && !value.quoted && error == std::errc() && rest == end;
    if (!isNumber || number < range.first || number > range.last) {
        refuseValue(value, field, describe(range));
    }
    return number;
}

std::string Fields::text(std::string_view field) const
{
    const YamlNode& value = get(field);
    constexpr std::string_view lineEnds("\n\r\0", 3);
    if (!isScalar(value) || value.text.find_first_of(lineEnds) != std::string::npos) {
        refuseValue(value, field, "a text of one line");
    }
    return value.text;
}

std::string Fields::filledText(std::string_view field) const
{
    std::string given = text(field);
    if (given.empty()) {
        refuseValue(get(field), field, "a text that is not empty");
    }
    return given;
}

bool Fields::word(std::string_view field, const std::vector<Word>& words, std::optional<bool> fallback) const
{
    if (fallback && find(field) == nullptr) {
        return *fallback;
    }
    const YamlNode& value = get(field);
    std::vector<std::string_view> texts;
    for (const Word& word : words) {
        if (isScalar(value) && equalIgnoringCase(value.text, word.text)) {
            return word.meaning;
        }
        texts.push_back(word.text);
    }
    refuseValue(value, field, "one of " + listed(texts));
}

std::chrono::milliseconds Fields::duration(std::string_view field, std::chrono::milliseconds fallback) const
{
    const YamlNode* const value = find(field);
    return value == nullptr ? fallback : toDuration(*value, field);
}

std::chrono::milliseconds toDuration(const YamlNode& value, std::string_view name)
{
    if (!isScalar(value) || value.text.size() > longestWord) {
        refuseValue(value, name, "a duration such as 300ms, 1.5s or 2m");
    }
    try {
        return parseDuration(value.text);
    } catch (const std::invalid_argument& e) {
        throw PlacedError(value.place, std::string(name) + ": " + printable(e.what()));
    }
}

void refuseValue(const YamlNode& value, std::string_view name, const std::string& expected)
{
    throw PlacedError(value.place, std::string(name) + ": expected " + expected + ", " + describe(value));
}

std::string listed(const std::vector<std::string_view>& words)
{
    std::string list;
    for (const std::string_view word : words) {
        list.append(list.empty() ? "" : ", ").append(word);
    }
    return list;
}

} // namespace panelsim
