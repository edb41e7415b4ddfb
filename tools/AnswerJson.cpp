#include "tools/AnswerJson.h"

#include <nlohmann/json.hpp>

namespace tools {

namespace {

using Json = nlohmann::ordered_json;

std::string dump(const Json& object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

std::string answerJson(std::string_view url, const katclient_answer& answer, const CategoryNames* names) {
    Json object = {{"url", url}, {"known", answer.known != 0}, {"categories", Json::array()}};
    for (unsigned i = 0; i < answer.count; ++i)
        object["categories"].push_back(answer.categories[i]);
    if (names != nullptr) {
        Json& list = object["names"] = Json::array();
        for (unsigned i = 0; i < answer.count; ++i) {
            const std::string& name = names->nameOf(answer.categories[i]);
            list.push_back(name.empty() ? Json() : Json(name));
        }
    }
    return dump(object);
}

std::string failureJson(std::string_view url, std::string_view reason) {
    return dump({{"url", url}, {"error", reason}});
}

}  // namespace tools
