// The commands that make or change a catalogue.
#ifndef KATCATALOG_WRITE_H
#define KATCATALOG_WRITE_H

#include "Arguments.h"
#include "listreader/Failure.h"

namespace katcatalog {

// Each throws listreader::Failure and leaves the catalogue as it was then.
void import(const Arguments& arguments);
void update(const Arguments& arguments);
void sync(const Arguments& arguments);

}  // namespace katcatalog

#endif
