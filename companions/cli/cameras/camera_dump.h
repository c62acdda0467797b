// A camera for one who has not got it: registers, document, features.
#pragma once

#include "../consumer/session.h"
#include "../output/archive_file.h"

namespace cli {

// The standard registers of a GigE Vision camera, one on a line; "not readable" where it has none.
[[nodiscard]] std::string bootstrap_registers(const gentl_library& lib, void* port);

// Files below `folder`; what cannot be had goes to `missing` with its reason.
void dump_camera(const gentl_library& lib, const tl_device& device, const std::string& folder,
                 std::vector<named_content>& files, std::vector<std::pair<std::string, std::string>>& missing);

} // namespace cli
