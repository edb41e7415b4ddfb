// A line in which squid is answered.
#ifndef KATC_HELPERANSWER_H
#define KATC_HELPERANSWER_H

#include <string>

#include "HelperLine.h"
#include "HelperOptions.h"
#include "katclient.h"

namespace katc {

// Adds the answer to a line that was asked, line feed included.
void appendAnswer(const HelperOptions& options, const HelperLine& line, const katclient_answer& answer,
                  std::string* out);

// Adds the answer to a line that cannot be asked: BH with the problem, a sentence without its end.
void appendProblem(const HelperLine& line, const char* problem, std::string* out);

}  // namespace katc

#endif
