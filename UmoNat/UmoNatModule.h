#pragma once

#include "UmoNat/UmoNatExport.h"

namespace UmoNat {

// The plug-in's version, "major.minor.patch". The state machines, the hardware
// helper interface and the show command are added to this library beside it.
UMONAT_EXPORT const char* version();

}  // namespace UmoNat
