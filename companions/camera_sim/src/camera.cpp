#include <camera_sim/camera.h>
#include <camera_sim/registers.h>

#include "control_server.h"
#include "document.h"

#include <gige/test_picture.h>

#include <fmt/format.h>

namespace camera_sim {

struct camera::parts {
    explicit parts(camera_options chosen)
        : device{std::move(chosen)},
          document{device.options.document.empty() ? make_document(device.options) : device.options.document},
          stream{device,
                 [this](uint16_t id, uint64_t block, uint64_t timestamp, uint64_t number) {
                     camera_event event{id, block, timestamp, std::vector<std::byte>(16)};
                     gige::store64(event.data.data(), timestamp);
                     gige::store64(event.data.data() + 8, block != 0 ? block : number);
                     control.queue_event(std::move(event));
                 }},
          control{device, stream} {
        stream.after_frame = [this](uint64_t frames) { act_on_frame_count(frames); };
        device.clock_origin = device_state::steady_ns();
        const std::lock_guard guard{device.mutex};
        build_address_space(device, document);
        reset_registers(device, device.options.address, false);
    }

    // The control thread must be gone before the stream it talks to; the stream's thread talks to the control too.
    ~parts() { stream.abort(); }

    void act_on_frame_count(uint64_t frames) {
        fault_options faults;
        {
            const std::lock_guard guard{device.mutex};
            faults = device.faults;
        }
        if (faults.reboot_after != 0 && frames == faults.reboot_after) control.ask_reboot();
        if (faults.deaf_after != 0 && frames == faults.deaf_after) device.deaf = true;
        if (faults.silence_after != 0 && frames == faults.silence_after) {
            device.silent = true;
            if (faults.silence_ms != 0) control.end_silence_in(std::chrono::milliseconds{faults.silence_ms});
        }
    }

    device_state device;
    const std::string document;
    stream_sender stream;
    control_server control;
};

camera::camera(std::unique_ptr<parts> all) : p{std::move(all)} {}
camera::~camera() = default;

std::string camera::problem_with(const camera_options& options) {
    const auto outside = [](std::string_view what, auto value, auto min, auto max) {
        return value >= min && value <= max ? std::string{} // which NaN is not
                                            : fmt::format("{} is {}; it must be {} to {}", what, value, min, max);
    };
    constexpr uint32_t largest_sensor = 65536;
    for (const auto& problem :
         {outside("the sensor's width", options.sensor_width, 1U, largest_sensor),
          outside("the sensor's height", options.sensor_height, 1U, largest_sensor),
          outside("the width", options.width, 0U, options.sensor_width),
          outside("the height", options.height, 0U, options.sensor_height),
          outside("the frame rate", options.frame_rate, reg::frame_rate_range.min, reg::frame_rate_range.max),
          outside("the position of the sharp focus", options.scene.sharp_at, 0U, reg::focus_most),
          outside("the part of the light that flickers", options.scene.flicker, 0.0, 1.0),
          outside("the frequency of the flicker", options.scene.flicker_frequency, 1.0, 1e5),
          outside("the largest packet size", options.max_packet_size, 576U, 65532U),
          outside("the step of the packet size", options.packet_size_step, 1U, 65532U),
          outside("the frequency of the timestamps", options.tick_frequency, uint64_t{1}, uint64_t{10'000'000'000}),
          outside("the packet size", options.packet_size, 576U, options.max_packet_size),
          outside("the number of frames kept for resends", options.ring_frames, 1U, 65536U),
          outside("the length of the serial number", options.serial.size(), std::size_t{0}, std::size_t{15}),
          outside("the length of the user-defined name", options.user_name.size(), std::size_t{0}, std::size_t{15})})
        if (!problem.empty()) return problem;
    for (const light_change& light : options.scene.light)
        for (const double each : {light.level, light.red, light.blue})
            if (!(each >= 0 && each <= 1e4)) return fmt::format("a light is {}; it must be 0 to 10000", each);
    if (options.width % 8 != 0) return fmt::format("the width is {}; it must be a multiple of 8", options.width);
    if (gige::test_picture_size(8, 8, options.pixel_format) == 0)
        return fmt::format("the pixel format is 0x{:08X}, which has no picture", options.pixel_format);
    return {};
}

std::expected<std::unique_ptr<camera>, std::error_code> camera::start(camera_options options) {
    if (!problem_with(options).empty()) return std::unexpected(std::make_error_code(std::errc::invalid_argument));
    const uint32_t address = options.address;
    auto all = std::make_unique<parts>(std::move(options));
    if (const auto error = all->control.start(address)) return std::unexpected(error);
    return std::unique_ptr<camera>{new camera{std::move(all)}};
}

statistics camera::stats() const { return p->device.counted.snapshot(); }
uint32_t camera::address() const { return p->control.address(); }
uint64_t camera::mac() const { return mac_of(p->device.options); }
std::string camera::document() const { return p->document; }
bool camera::acquiring() const { return p->device.acquiring; }
void camera::set_silent(bool silent) { p->device.silent = silent; }
void camera::set_deaf(bool deaf) { p->device.deaf = deaf; }
void camera::reboot() { p->control.ask_reboot(); }

void camera::set_faults(const fault_options& faults) {
    {
        const std::lock_guard guard{p->device.mutex};
        p->device.faults = faults;
    }
    p->control.ask_reseed();
}

void camera::send_event(uint16_t id, std::span<const std::byte> data) {
    p->control.queue_event({id, 0, p->device.timestamp(), {data.begin(), data.end()}});
}

uint32_t camera::peek(uint32_t register_address) const {
    const std::lock_guard guard{p->device.mutex};
    return p->device.memory.get(register_address);
}

} // namespace camera_sim
