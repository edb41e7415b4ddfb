// katc why: says how katd comes to its answers.
#ifndef KATC_WHY_H
#define KATC_WHY_H

#include "ExitStatus.h"

namespace katc {

// argv[0] is "why". Looks the URLs up in the list files that katd's settings name, and runs katcatalog for
// those that katd would ask the engine.
ExitStatus whyMain(int argc, const char* const* argv);

}  // namespace katc

#endif
