// The start-up configuration chain that library and service read alike.
#pragma once

#include <gds_helper/property_store.h>
#include <gds_helper/property_store_chain.h>
#include <gds_shared/product_constants.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace gds_shared {

// For whoever asked for a log and finds none.
struct settings_report {
    std::vector<std::filesystem::path> files; // that are used, those asked first at the end
    std::vector<std::string> problems;        // a sentence for each file, variable or value that is not used
};

// Fills the store, later steps overriding earlier ones: the environment settings, the setup files
// "<producer_name>_setup*.json" of `own_directory` (where the library or program itself lies) in the order of their
// names, the file named by the environment.
settings_report prop_store_init(gds_helper::property_store_rw& store, const product_constants& product,
                                const std::filesystem::path& own_directory);

// The complete chain in lookup order: a map filled as above (the chain's backing store), then the settings of the
// user, then those of the machine. Adds to `report`.
[[nodiscard]] std::shared_ptr<gds_helper::property_store_chain>
make_property_chain(const product_constants& product, const std::filesystem::path& own_directory,
                    settings_report& report);

// True when buffer tracing is asked for; then the level of the GenTL call logger has been set to "trace" in the
// store's backing store.
[[nodiscard]] bool apply_buffer_tracing_setting(const gds_helper::property_store_ro& store);

} // namespace gds_shared
