#pragma once

#include "panelsim/scenario/YamlNode.h"

#include <string>

namespace panelsim {

/**
 * Reads a file's content as one YAML document in UTF-8. Of YAML, anchors, aliases, tags, keys that are no scalars, keys
 * that are repeated and deep nesting are refused, so that any content takes bounded time and memory.
 * @throws PlacedError
 */
YamlNode parseYaml(const std::string& content);

} // namespace panelsim
