// Which device the user meant.
#pragma once

#include "session.h"

#include <memory>
#include <utility>

namespace cli {

// Fills in what the interfaces' features tell of their devices: addresses, reachability. A producer without those
// features leaves the texts empty.
void add_places(found_devices& found);

// An exact match wins over texts that merely hold the words. Throws failure(cause::no_camera) when none fits, and
// failure(cause::ambiguous) with the list when several fit equally.
[[nodiscard]] const std::pair<device_entry, std::shared_ptr<const tl_interface>>&
choose_device(const found_devices& found, const common_options& options);

// Leaves those that the words of --device may mean: by what add_places filled in, too. Throws like choose_device when
// there is none.
void keep_meant(found_devices& found, const common_options& options);

} // namespace cli
