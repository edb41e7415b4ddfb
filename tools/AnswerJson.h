// Answers of katd as JSON. The schema is that of katc --json, which katc(1) documents under JSON.
#ifndef KATD_TOOLS_ANSWERJSON_H
#define KATD_TOOLS_ANSWERJSON_H

#include <string>
#include <string_view>

#include "katclient.h"
#include "tools/CategoryNames.h"

namespace tools {

// Each function returns one object on one line, without a line feed. Bytes of a URL that are not UTF-8 become
// U+FFFD.

// The object of an answer with status KATCLIENT_OK. It has "names" unless `names` is null.
std::string answerJson(std::string_view url, const katclient_answer& answer, const CategoryNames* names);
// The object of a URL without an answer. `reason` is a sentence without its full stop.
std::string failureJson(std::string_view url, std::string_view reason);

}  // namespace tools

#endif
