#include <gds_shared/product_constants.h>

#include <fmt/format.h>

namespace gds_shared {

std::string service_pipe_name(const product_constants& product) {
    return fmt::format("{}_service_pipe_{}_{}", product.producer_name, product.version_text, product.build_label);
}

std::string settings_key(const product_constants& product) {
    return fmt::format("Software\\{}\\{}\\service", product.vendor_name, product.producer_name);
}

} // namespace gds_shared
