#include "panelsim/scenario/FieldValue.h"

#include "panelsim/board/Duration.h"
#include "panelsim/board/Utf8.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <strings.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/node/impl.h>
#include <yaml-cpp/node/iterator.h>

namespace panelsim {

namespace {

constexpr std::size_t longestWord = 40; ///< bytes of a value that stands for itself in messages

bool isQuoted(const YAML::Node& node)
{
    return node.Tag() == "!";
}

bool isNumber(const YAML::Node& node)
{
    return node.IsScalar() && !isQuoted(node) && !node.Scalar().empty() &&
           node.Scalar().find_first_not_of("0123456789") == std::string::npos;
}

std::string kindOfNode(const YAML::Node& node)
{
    if (!node.IsScalar()) {
        return node.IsSequence() ? "not a list" : node.IsMap() ? "not a mapping" : "but nothing is there";
    }
    const bool isWord = !isQuoted(node) && node.Scalar().size() <= longestWord;
    return "not " + (isWord ? printable(node.Scalar()) : excerpt(node.Scalar()));
}

std::string numbers(unsigned first, unsigned last)
{
    return first == last ? std::to_string(last)
                         : "a whole number from " + std::to_string(first) + " to " + std::to_string(last);
}

} // namespace

void FieldValue::refuse(const std::string& expected) const
{
    throw YAML::Exception(place, name + ": expected " + expected + ", " + kindOfNode(node));
}

FieldValue::Fields FieldValue::fields(const std::vector<std::string_view>& known) const
{
    if (!node.IsMap() && !node.IsNull()) {
        refuse(known.empty() ? "no value" : "a mapping with " + listed(known));
    }
    Fields found;
    for (const auto& child : node) {
        const YAML::Node& key = child.first;
        if (!key.IsScalar() || std::find(known.begin(), known.end(), key.Scalar()) == known.end()) {
            throw YAML::Exception(key.Mark(), name + " has no field " +
                                                  (key.IsScalar() ? excerpt(key.Scalar()) : "like this") + "; it has " +
                                                  (known.empty() ? "none" : listed(known)));
        }
        const FieldValue value{key.Scalar(), child.second, child.second.IsNull() ? key.Mark() : child.second.Mark()};
        if (!found.emplace(key.Scalar(), value).second) {
            throw YAML::Exception(key.Mark(), inQuotes(key.Scalar()) + " is given twice");
        }
    }
    return found;
}

std::string FieldValue::text() const
{
    constexpr std::string_view lineEnds("\n\r\0", 3);
    if (!node.IsScalar() || node.Scalar().find_first_of(lineEnds) != std::string::npos) {
        refuse("a text of one line");
    }
    return node.Scalar();
}

std::string FieldValue::filledText() const
{
    if (text().empty()) {
        refuse("a text that is not empty");
    }
    return text();
}

unsigned FieldValue::number(unsigned first, unsigned last) const
{
    unsigned number = 0;
    const std::string digits = isNumber(node) ? node.Scalar() : std::string();
    const auto error = std::from_chars(digits.data(), digits.data() + digits.size(), number).ec;
    if (error != std::errc() || number < first || number > last) {
        refuse(numbers(first, last));
    }
    return number;
}

unsigned FieldValue::part(unsigned count, const std::vector<std::string>& names) const
{
    if (count == 0) {
        throw YAML::Exception(place, "this panel has no " + name);
    }
    if (names.empty() || isNumber(node)) {
        return number(0, count - 1);
    }
    const auto found = std::find(names.begin(), names.end(), node.IsScalar() ? node.Scalar() : "");
    if (found == names.end()) {
        refuse(numbers(0, count - 1) + " or one of " + listed({names.begin(), names.end()}));
    }
    return static_cast<unsigned>(found - names.begin());
}

bool FieldValue::choice(const std::vector<std::pair<std::string_view, bool>>& words) const
{
    std::vector<std::string_view> texts;
    for (const auto& [text, meaning] : words) {
        if (node.IsScalar() && strcasecmp(node.Scalar().c_str(), text.data()) == 0) {
            return meaning;
        }
        texts.push_back(text);
    }
    refuse("one of " + listed(texts));
}

std::chrono::milliseconds FieldValue::duration() const
{
    if (!node.IsScalar() || node.Scalar().size() > longestWord) {
        refuse("a duration such as 300ms, 1.5s or 2m");
    }
    try {
        return parseDuration(node.Scalar());
    } catch (const std::invalid_argument& e) {
        throw YAML::Exception(place, name + ": " + printable(e.what()));
    }
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
