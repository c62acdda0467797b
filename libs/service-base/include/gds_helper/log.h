// The loggers of this process: one main logger and one per concern.
#pragma once

#include <spdlog/logger.h>

#include <memory>

namespace gds_helper::log {

// Numbers under which settings and start-up refer to a logger.
enum class logger_id : int {
    main = 0,      // "def"
    ipc = 10,      // "IPC"
    gtlprod = 11,  // "GTLProd"
    gvsp = 12,     // "GVSP"
};

// The logger of this id, created on first use with no sinks and the level "critical" (extra loggers: "off").
// Never null. Thread-safe; callers on a hot path keep the pointer.
[[nodiscard]] std::shared_ptr<spdlog::logger> get(logger_id id);

} // namespace gds_helper::log
