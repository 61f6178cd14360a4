#pragma once

namespace Mox {

// A duration in seconds; fractions express sub-second intervals.
using Seconds = double;

}  // namespace Mox
