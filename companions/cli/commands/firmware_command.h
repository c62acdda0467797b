// firmware: a package to a camera, with a progress bar.
#pragma once

#include "../consumer/session.h"

#include <chrono>
#include <string>

namespace cli {

int upload_firmware(const common_options& common, const std::string& package, std::chrono::seconds longest);

} // namespace cli
