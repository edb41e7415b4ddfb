// The lines in which squid is answered.
#ifndef KATC_HELPER_ANSWERLINE_H
#define KATC_HELPER_ANSWERLINE_H

#include <string>

#include "helper/HelperOptions.h"
#include "helper/RequestLine.h"
#include "katclient.h"

namespace katc {

// Appends the answer to a line whose URL katd was asked about, with its line feed.
void appendAnswer(const HelperOptions& options, const RequestLine& line, const katclient_answer& answer,
                  std::string* out);

// Appends BH with the problem, a sentence without its full stop: the answer to a line that cannot be asked.
void appendProblem(const RequestLine& line, const char* problem, std::string* out);

}  // namespace katc

#endif
