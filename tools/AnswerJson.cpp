#include "tools/AnswerJson.h"

#include "tools/Json.h"

namespace tools {

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
    return jsonText(object);
}

std::string failureJson(std::string_view url, std::string_view reason) {
    return jsonText({{"url", url}, {"error", reason}});
}

}  // namespace tools
