#include "UmoNat/UmoNatModule.h"

namespace UmoNat {

const char* version() { return "0.1.0"; }

}  // namespace UmoNat
