// Why no frame comes, as far as camera and stream can tell.
#pragma once

#include "../consumer/node_map.h"

#include <chrono>
#include <string>
#include <vector>

namespace cli {

// Sentences, the likeliest first; never empty. Asked while the stream runs and nothing comes; `had_frames` when some
// came before. Reads the camera and walks its trigger selector.
[[nodiscard]] std::vector<std::string> why_no_frames(const node_map& camera, const node_map& stream,
                                                     std::chrono::milliseconds waited, uint64_t had_frames,
                                                     int64_t packet_size);

} // namespace cli
