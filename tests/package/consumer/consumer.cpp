#include <cstdio>
#include <cstring>

#include "Mox/Ptr.h"
#include "UmoNat/UmoNatModule.h"

int main() {
  std::printf("UmoNat %s\n", UmoNat::version());
  return std::strlen(UmoNat::version()) > 0 && !Mox::threadSafePtr() ? 0 : 1;
}
