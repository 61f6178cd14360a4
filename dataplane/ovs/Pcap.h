#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Ovs {

// One captured frame: its bytes as they left the port (a capture is never truncated here).
using Frame = std::vector<std::uint8_t>;

// Reads the frames of a classic pcap capture (either byte order, micro- or nanosecond
// timestamps). A missing or empty file holds no frames; a record cut short at the end (a frame
// still being written) is left out. Throws Ovs::Error on a file that is not a pcap capture.
std::vector<Frame> readPcap(const std::string& path);

}  // namespace Ovs
