// JSON as the programs beside the daemon write and read it.
#ifndef TOOLS_JSON_H
#define TOOLS_JSON_H

#include <nlohmann/json.hpp>
#include <string>

namespace tools {

// Objects keep the order in which their members were added.
using Json = nlohmann::ordered_json;

// The functions below are no templates: those take the compiler seconds in every file that uses them.

// With `indent` blanks for each level, or in one line if it is negative. Bytes that are not UTF-8 are
// replaced.
std::string jsonText(const Json& json, int indent = -1);
// json.is_discarded() if `text` is not JSON.
Json parseJson(const std::string& text);

}  // namespace tools

#endif
