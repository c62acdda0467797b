// Addresses of the camera's own registers; the document and the device side both read this table.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace camera_sim::reg {

inline constexpr uint32_t base = 0x00010000;
inline constexpr uint32_t region_size = 0x1000;
inline constexpr uint32_t document_base = 0x00100000;
inline constexpr uint32_t firmware_control = 0x00020000; // gige/firmware.h
inline constexpr uint32_t firmware_region = 0x02000000;
inline constexpr uint32_t firmware_region_size = 0x00100000;

inline constexpr uint32_t sensor_width = base + 0x000;
inline constexpr uint32_t sensor_height = base + 0x004;
inline constexpr uint32_t width = base + 0x008;
inline constexpr uint32_t height = base + 0x00C;
inline constexpr uint32_t offset_x = base + 0x010;
inline constexpr uint32_t offset_y = base + 0x014;
inline constexpr uint32_t pixel_format = base + 0x018;
inline constexpr uint32_t payload_size = base + 0x01C;
inline constexpr uint32_t test_pattern = base + 0x020;
inline constexpr uint32_t reverse_x = base + 0x024;

inline constexpr uint32_t acquisition_mode = base + 0x040;    // 0 continuous, 1 single, 2 multi
inline constexpr uint32_t acquisition_control = base + 0x044; // 1 start, 0 stop
inline constexpr uint32_t acquisition_frame_count = base + 0x048;
inline constexpr uint32_t frame_rate_enable = base + 0x04C;
inline constexpr uint32_t frame_rate = base + 0x050;    // float, 4 bytes
inline constexpr uint32_t exposure_time = base + 0x058; // double, microseconds
inline constexpr uint32_t exposure_auto = base + 0x060;
inline constexpr uint32_t gain_auto = base + 0x064;
inline constexpr uint32_t acquisition_status = base + 0x068; // 1 while frames are sent

inline constexpr uint32_t trigger_mode = base + 0x080;
inline constexpr uint32_t trigger_source = base + 0x084; // 0 software, 1 action 1
inline constexpr uint32_t trigger_software = base + 0x088;

inline constexpr uint32_t gain_raw = base + 0x0C0; // [4] All, Red, Green, Blue; tenths of a decibel
inline constexpr uint32_t black_level_raw = base + 0x0D0;
inline constexpr uint32_t gamma = base + 0x0D4; // float
inline constexpr uint32_t gamma_enable = base + 0x0D8;

// With a scene only.
inline constexpr uint32_t iris = base + 0x0DC;
inline constexpr uint32_t focus = base + 0x0E0;
inline constexpr uint32_t balance_ratio = base + 0x0E4; // [3] float: Red, Green, Blue
inline constexpr uint32_t iris_most = 12800, iris_start = 800, focus_most = 1000;

inline constexpr uint32_t chunk_mode = base + 0x100;
inline constexpr uint32_t chunk_enable = base + 0x104; // [chunk_count]

inline constexpr uint32_t event_notification = base + 0x140; // [event_count]
inline constexpr uint32_t test_event = base + 0x15C;

inline constexpr uint32_t action_device_key = base + 0x180; // write only
inline constexpr uint32_t action_group_key = base + 0x184;
inline constexpr uint32_t action_group_mask = base + 0x188;

inline constexpr uint32_t device_reset = base + 0x1C0;
inline constexpr uint32_t temperature = base + 0x1C4; // [2] float: sensor, mainboard
inline constexpr uint32_t link_speed = base + 0x1CC;  // bytes per second
inline constexpr uint32_t user_set_load = base + 0x1D0;
inline constexpr uint32_t user_set_save = base + 0x1D4;
inline constexpr uint32_t user_set_selector = base + 0x1D8;
inline constexpr uint32_t line_status = base + 0x1DC; // bit per line
inline constexpr uint32_t line_inverter = base + 0x1E0;
inline constexpr uint32_t throughput_limit_mode = base + 0x1E4; // 1 on
inline constexpr uint32_t throughput_limit = base + 0x1E8;      // bytes of the link per second
inline constexpr uint32_t lut_content = base + 0x400;           // [256]

// What the float registers take, and what the document says of them.
struct limits {
    double min, max;
    // The ends belong to it, also rounded to the register's own precision. Not a number is outside.
    [[nodiscard]] constexpr bool holds(double value) const { return value >= min && value <= max; }
    [[nodiscard]] constexpr bool holds(float value) const {
        return value >= static_cast<float>(min) && value <= static_cast<float>(max);
    }
};
inline constexpr limits exposure_range{10, 1'000'000}; // microseconds
inline constexpr limits frame_rate_range{0.1, 10'000}; // Hz
inline constexpr limits gamma_range{0.25, 4};
inline constexpr limits balance_range{0.25, 4};

inline constexpr uint32_t throughput_smallest = 1'000'000; // bytes per second, up to the link's speed
inline constexpr uint32_t throughput_step = 1000;

struct named_id {
    std::string_view name;
    uint32_t id;
};

// Order of the enable registers and of the entries of ChunkSelector.
inline constexpr auto chunks = std::to_array<named_id>({
    {"Timestamp", 0x1001},
    {"FrameID", 0x1002},
    {"ExposureTime", 0x1003},
    {"Gain", 0x1004},
    {"Width", 0x1005},
    {"Height", 0x1006},
    {"PixelFormat", 0x1007},
});
inline constexpr uint32_t image_chunk_id = 0x0001;

inline constexpr auto events = std::to_array<named_id>({
    {"Test", 0x9000},
    {"ExposureEnd", 0x9001},
    {"FrameStart", 0x9002},
    {"AcquisitionEnd", 0x9003},
    {"Action1", 0x9004},
});

} // namespace camera_sim::reg
