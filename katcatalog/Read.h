// The commands that read a catalogue.
#ifndef KATCATALOG_READ_H
#define KATCATALOG_READ_H

#include "Arguments.h"
#include "listreader/Failure.h"

namespace katcatalog {

listreader::ExitStatus find(const Arguments& arguments);
void stat(const Arguments& arguments);
listreader::ExitStatus check(const Arguments& arguments);
void dump(const Arguments& arguments);

}  // namespace katcatalog

#endif
