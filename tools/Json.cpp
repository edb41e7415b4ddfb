#include "tools/Json.h"

namespace tools {

std::string jsonText(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

Json parseJson(const std::string& text) {
    return Json::parse(text, nullptr, false);
}

}  // namespace tools
