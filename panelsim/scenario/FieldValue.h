#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>
#include <yaml-cpp/node/node.h>

namespace panelsim {

/**
 * A value of a scenario file, to be read as what is expected there. All operations throw YAML::Exception, with a text
 * of one line, for a value that is something else.
 */
struct FieldValue {
    using Fields = std::map<std::string, FieldValue, std::less<>>;

    std::string name;
    YAML::Node node;
    YAML::Mark place; ///< of the name when there is no value

    [[noreturn]] void refuse(const std::string& expected) const;

    /** @return the values of a mapping, empty when there is no value; each one of these names */
    Fields fields(const std::vector<std::string_view>& known) const;
    /** @return one line, perhaps empty */
    std::string text() const;
    /** @return one line that is not empty */
    std::string filledText() const;
    unsigned number(unsigned first, unsigned last) const;
    /** @return the index of one of so many equal parts, which may have names */
    unsigned part(unsigned count, const std::vector<std::string>& names = {}) const;
    /** @return what one of the words, in upper or lower case, stands for */
    bool choice(const std::vector<std::pair<std::string_view, bool>>& words) const;
    std::chrono::milliseconds duration() const;
};

/** @return the words with commas between them */
std::string listed(const std::vector<std::string_view>& words);

} // namespace panelsim
