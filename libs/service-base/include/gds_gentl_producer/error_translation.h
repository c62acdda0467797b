// From the errors of calls, cameras and documents to those of the C interface. One table of translators by category.
#pragma once

#include <gentl_producer/Error.h>

#include <string_view>
#include <system_error>

namespace gds_producer {

// `doing` says what failed; it stands in front of the code's own text. Camera status values speak for themselves.
[[nodiscard]] GenTL::Error to_gentl_error(const std::error_code& code, std::string_view doing = {});

// For a port under a GenICam document.
[[nodiscard]] std::error_code to_genicam_error(const std::error_code& code) noexcept;

} // namespace gds_producer
