#include "Pelo/String.h"

#include <ostream>

namespace Pelo {

std::ostream& operator<<(std::ostream& os, const String& s) { return os << s.str(); }

}  // namespace Pelo
