#include "camera_features.h"

#include "feature_document.h"

#include <gds_helper/log.h>
#include <gds_shared/gigecam_error.h>
#include <gige/udp_socket.h>

#include <spdlog/logger.h>

namespace image_features {

using gds_shared::gigecam_errc;

namespace {

using gds_helper::log::main_logger;
constexpr gvcp_master::milliseconds access_time{1000};
// For the look at the camera before its document is served, which others wait for.
constexpr gvcp_master::milliseconds look_time{30'000};

} // namespace

// The camera as its document reaches it. Used by one thread at a time.
class camera_features::camera_port final : public GenICam::IDevicePort {
public:
    explicit camera_port(gvcp_master::device_control& control) : camera(control) {}
    // All accesses together take no longer than one long transfer; those that come later are not made.
    void begin() { give_up = clock::now() + gvcp_master::longest_transfer; }
    void end() { give_up = clock::time_point::max(); }

    GenICam::result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        if (clock::now() > give_up) return std::unexpected(make_error_code(gigecam_errc::timeout));
        if (const auto error = camera.read_memory(static_cast<uint64_t>(address), data, access_time))
            return std::unexpected(error);
        return data.size();
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        if (clock::now() > give_up) return make_error_code(gigecam_errc::timeout);
        return camera.write_memory(static_cast<uint64_t>(address), data, access_time);
    }

private:
    using clock = std::chrono::steady_clock;
    gvcp_master::device_control& camera;
    clock::time_point give_up = clock::time_point::max();
};

camera_features::camera_features(gvcp_master::device_control& control, std::shared_ptr<camera_settings> shared,
                                 std::shared_ptr<gds_helper::log::line_budget> log_lines)
    : camera(control),
      settings(std::move(shared)),
      lines(std::move(log_lines)),
      port(std::make_unique<camera_port>(control)) {}

camera_features::~camera_features() { writer.reset(); }

std::optional<std::string> camera_features::prepare(std::string_view document) {
    {
        std::shared_ptr<auto_value_writer> before; // its end waits for the camera: without the lock
        const std::lock_guard guard{mutex};
        before.swap(writer);
    }
    const std::string name = gige::to_string(camera.device().address);
    const auto as_it_is = [&](std::string_view reason) {
        main_logger().warn("The document of {} is served without software features: {}.", name, reason);
        return std::nullopt;
    };
    if (document.size() > most_document_bytes) return as_it_is("it is too large");
    const bool reads_only = camera.access() == gvcp_master::access_mode::read_only;
    port->begin();
    const auto until = camera_nodes::clock::now() + look_time;
    auto nodes = camera_nodes::create(document, *port, reads_only, until);
    if (!nodes) return as_it_is("it cannot be used");
    camera_abilities found = nodes->abilities();
    // A camera that stops answering in between seems to lack whatever was not asked for yet, and the document is made
    // once: it gets a second chance.
    if (nodes->is_silent() && camera_nodes::clock::now() < until) {
        nodes->look_again(until);
        found = nodes->abilities();
    }
    if (nodes->is_silent())
        main_logger().warn("{} does not answer in time: software features may be missing until it is opened again.",
                           name);
    merge_result merged = merge_features(document, found);
    if (!merged.text) return as_it_is(merged.reason);

    auto made = std::make_shared<auto_value_writer>(settings, std::move(nodes), name, lines);
    if (!reads_only || !settings->has_controller_values()) made->read_camera();
    port->end();
    if (!reads_only) {
        made->start();
        const std::lock_guard guard{mutex};
        writer = std::move(made);
    }
    return std::move(merged.text);
}

std::shared_ptr<auto_value_writer> camera_features::current_writer() const {
    const std::lock_guard guard{mutex};
    return writer;
}

std::error_code camera_features::read(uint64_t address, std::span<std::byte> to) const {
    return settings->read(address, to);
}

std::error_code camera_features::write(uint64_t address, std::span<const std::byte> from) {
    if (camera.access() == gvcp_master::access_mode::read_only) return make_error_code(gigecam_errc::access_denied);
    if (const auto error = settings->write(address, from)) return error;
    const register_entry& entry = *find_register(address - first_address);
    const bool switches = entry.type == value_type::flag || entry.offset == own_register::white_balance_mode ||
                          entry.offset == own_register::focus_start;
    if (switches && settings->automatic_function_is_on()) {
        if (const auto live = current_writer()) live->settings_changed();
    }
    return {};
}

void camera_features::write_results() {
    if (const auto live = current_writer()) live->write_results();
}

void camera_features::camera_written() {
    if (const auto live = current_writer()) live->camera_written();
}

} // namespace image_features
