// Answers as JSON.
#include <nlohmann/json.hpp>

#include "Answers.h"

namespace katc {

namespace {

using Json = nlohmann::ordered_json;

std::string line(const Json& object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

}  // namespace

std::string jsonAnswer(std::string_view url, const katclient_answer& answer,
                       const tools::CategoryNames* names) {
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
    return line(object);
}

std::string jsonFailure(std::string_view url, std::string_view sentence) {
    return line({{"url", url}, {"error", sentence}});
}

}  // namespace katc
