// Logging from the settings of the process.
#pragma once

#include <gds_helper/log.h>
#include <gds_helper/property_store.h>

namespace gds_shared {

// Levels, flush level and outputs from the store; a bad value falls back on its default. Never fails.
// `as_service` chooses between the keys of the library and those of the service.
void log_init(const gds_helper::property_store_ro& store, gds_helper::log::log_control& control, bool as_service);

} // namespace gds_shared
