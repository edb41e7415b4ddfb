#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

Ops ops;

}  // namespace KATD_SPACE
