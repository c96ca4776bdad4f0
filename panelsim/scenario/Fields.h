#pragma once

#include "panelsim/scenario/YamlNode.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace panelsim {

/**
 * The values of a mapping, each checked as it is asked for. All operations throw PlacedError for a value that cannot be
 * and, where there is no fallback, for one that is missing.
 */
class Fields {
public:
    /** The least and the greatest number of those that are allowed. */
    struct Range {
        unsigned first;
        unsigned last;
    };

    /** A word that may be written, in upper or lower case. */
    struct Word {
        std::string_view text;
        bool meaning;
    };

    /**
     * @param owner   what the mapping says something about, for messages
     * @param place   what complaints about missing fields point to
     * @param mapping may be missing, as if it was empty; must outlive this object
     * @param known   the fields that it may have
     * @throws PlacedError when it is no mapping or has other fields
     */
    Fields(std::string owner, TextPlace place, const YamlNode& mapping, const std::vector<std::string_view>& known);

    /** @return empty when it is missing */
    const YamlNode* find(std::string_view field) const;
    const YamlNode& get(std::string_view field) const;
    unsigned number(std::string_view field, Range range, std::optional<unsigned> fallback = {}) const;
    /** @return one line, perhaps empty */
    std::string text(std::string_view field) const;
    /** @return one line that is not empty */
    std::string filledText(std::string_view field) const;
    bool word(std::string_view field, const std::vector<Word>& words, std::optional<bool> fallback = {}) const;
    std::chrono::milliseconds duration(std::string_view field, std::chrono::milliseconds fallback) const;

private:
    std::string owner;
    TextPlace place;
    const YamlNode& mapping;
};

/** @throws PlacedError for a value that is none, naming it in the message */
std::chrono::milliseconds toDuration(const YamlNode& value, std::string_view name);

/** @throws PlacedError with a text that says what was expected of what, and what is there instead */
[[noreturn]] void refuseValue(const YamlNode& value, std::string_view name, const std::string& expected);

/** @return the words with commas between them */
std::string listed(const std::vector<std::string_view>& words);

} // namespace panelsim
