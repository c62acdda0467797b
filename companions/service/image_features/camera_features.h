// The software functions of one open camera: its settings, the document that offers them, and what brings results to
// the camera.
#pragma once

#include "auto_value_writer.h"
#include "camera_settings.h"

#include "../gvcp/device_control.h"

#include <gds_helper/line_budget.h>

#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

namespace image_features {

// Thread-safe, but for prepare, which comes first and takes turns with itself. `control` must outlive the object and be
// cancelled before its end.
class camera_features final {
public:
    camera_features(gvcp_master::device_control& control, std::shared_ptr<camera_settings> settings,
                    std::shared_ptr<gds_helper::log::line_budget> log_lines);
    ~camera_features();
    camera_features(const camera_features&) = delete;
    camera_features& operator=(const camera_features&) = delete;

    // The camera's document with the software features, after a look at the camera's values. None, and one warning,
    // when it has to be served as it is. Blocks while the camera is read.
    [[nodiscard]] std::optional<std::string> prepare(std::string_view document);

    // Of addresses above first_address. Nobody writes who may not write to the camera.
    [[nodiscard]] std::error_code read(uint64_t address, std::span<std::byte> to) const;
    [[nodiscard]] std::error_code write(uint64_t address, std::span<const std::byte> from);

    // None waits.
    void write_results();
    void camera_written();

private:
    class camera_port;

    gvcp_master::device_control& camera;
    const std::shared_ptr<camera_settings> settings;
    const std::shared_ptr<gds_helper::log::line_budget> lines;
    const std::unique_ptr<camera_port> port;
    mutable std::mutex mutex;                  // guards what follows
    std::shared_ptr<auto_value_writer> writer; // none before prepare, and for one who only reads
    [[nodiscard]] std::shared_ptr<auto_value_writer> current_writer() const;
};

} // namespace image_features
