// Names that katlist takes from the reader of lists.
#ifndef KATLIST_SHARED_H
#define KATLIST_SHARED_H

#include "listreader/Console.h"
#include "listreader/Entry.h"
#include "listreader/Failure.h"
#include "listreader/LineFile.h"
#include "listreader/OutputFile.h"
#include "listreader/Sources.h"

namespace katlist {

using listreader::badUsage;
using listreader::Entry;
using listreader::ExitStatus;
using listreader::failed;
using listreader::Failure;
using listreader::fileFailure;
using listreader::fine;
using listreader::LineFile;
using listreader::Notes;
using listreader::OutputFile;
using listreader::printable;
using listreader::Progress;
using listreader::Source;
using listreader::tell;
using listreader::wrong;

}  // namespace katlist

#endif
