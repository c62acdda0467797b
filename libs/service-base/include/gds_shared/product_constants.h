// What this product calls itself, in one table; library and service agree by it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace gds_shared {

struct product_constants {
    std::string_view producer_name;
    std::string_view version_text;
    std::string_view display_name;
    std::string_view tl_type;
    std::string_view vendor_name;
    std::array<std::uint32_t, 4> version_numbers;
    std::string_view service_name;
    std::string_view service_short_name;
    std::string_view build_label;
};

inline constexpr product_constants gev_product{
    .producer_name = "orv-gentl-gev",
    .version_text = "1.3.1.860",
    .display_name = "ORV GenTL Driver for GigEVision Devices",
    .tl_type = "GEV",
    .vendor_name = "Quillon Optics GmbH",
    .version_numbers = {1, 3, 1, 860},
    .service_name = "orv-gentl-gev-service",
    .service_short_name = "orv-gevsrv",
    .build_label = "rel",
};

// "{}_service_pipe_{}_{}": the name under which the service of this very version is reached.
[[nodiscard]] std::string service_pipe_name(const product_constants& product);
// "Software\{}\{}\service": key of the product in the system's settings store.
[[nodiscard]] std::string settings_key(const product_constants& product);

} // namespace gds_shared
