// The command that fills a shared store.
#ifndef KATCATALOG_PUSH_H
#define KATCATALOG_PUSH_H

#include "Arguments.h"

namespace katcatalog {

// Makes the store hold what the inputs say, and writes only the differences. Throws listreader::Failure; the
// next push then completes what this one has begun.
void push(const Arguments& arguments);

}  // namespace katcatalog

#endif
