// The source positions of the library's exceptions.
#ifndef QOR_THROWPOSITIONS_H
#define QOR_THROWPOSITIONS_H

#include "Exception.h"

namespace QOR_SPACE {
namespace throwPosition {

constexpr ThrowPosition logStreamAllocation{"util/Log", 258};

constexpr ThrowPosition canonicalPathMemory{"io/File", 151};
constexpr ThrowPosition directoryListMemory{"io/File", 391};

constexpr ThrowPosition octNumber{"Utils", 109};
constexpr ThrowPosition hexNumber{"Utils", 114};
constexpr ThrowPosition decNumber{"Utils", 124};

constexpr ThrowPosition fileStreamOpen{"io/OutputStream", 68};
constexpr ThrowPosition fileStreamClose{"io/OutputStream", 94};
constexpr ThrowPosition fileStreamWriteChar{"io/OutputStream", 105};
constexpr ThrowPosition fileStreamWrite{"io/OutputStream", 113};

constexpr const char* streamHeader = "../../../modules/common-stl/include/io/OutputStream";
constexpr ThrowPosition streamClosed{streamHeader, 58};
constexpr ThrowPosition unimplementedClose{streamHeader, 66};
constexpr ThrowPosition unimplementedWriteChar{streamHeader, 73};
constexpr ThrowPosition unimplementedWrite{streamHeader, 91};

constexpr const char* outOfMemory = "Out of memory";

}  // namespace throwPosition
}  // namespace QOR_SPACE

#endif
