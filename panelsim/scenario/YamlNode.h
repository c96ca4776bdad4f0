#pragma once

#include "panelsim/scenario/TextPlace.h"

#include <string>
#include <vector>

namespace panelsim {

/** A value of a YAML document, with its place in the file. */
struct YamlNode {
    enum class Kind { Null, Scalar, Sequence, Mapping };

    Kind kind = Kind::Null;
    TextPlace place = {};                ///< of the key, or the dash, when there is no value
    std::string text = {};               ///< of a scalar
    bool quoted = false;                 ///< whether a scalar is a text whatever it looks like
    std::string key = {};                ///< that it has in the mapping that it is a part of
    TextPlace keyPlace = {};             ///< of that key
    std::vector<YamlNode> children = {}; ///< values of a sequence or mapping, in the file's order
};

} // namespace panelsim
