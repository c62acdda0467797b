// One run of a camera: start, frames, stop, and what there is to tell about it, whatever ends it.
#pragma once

#include "../consumer/device_errors.h"
#include "../consumer/session.h"
#include "../consumer/setting.h"
#include "../consumer/software_trigger.h"
#include "../losses/loss_watch.h"
#include "../pictures/frame_check.h"
#include "../pictures/picture_saver.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>

namespace cli {

struct grab_options {
    uint64_t frames = 10;
    size_t buffers = 20;
    bool verify = false;
    bool quiet = false;
    std::filesystem::path output; // folder for pictures; empty: none
    uint64_t save = 3;            // pictures to keep, spread over the run
    std::string format;           // of the files, PFNC name; empty: the camera's, or the nearest that the file holds
    file_kind kind = file_kind::png;
    uint64_t frame_timeout_ms = 5000;
    std::vector<setting> set; // of the camera, before the start, in this order
    bool chunks = false;      // report the chunks of the last frame
    bool explain = false;     // where packets were lost
    double trigger_hz = 0;    // 0: the camera's own triggers
    bool reconnect = false;   // wait for a camera or service that goes
    uint64_t reconnect_s = 0; // for how long; 0: for ever
    uint64_t hold_ms = 0;     // keep each buffer for so long, as a slow application does
};

// Everything open between the library and one camera; goes with the camera or its service.
struct camera_session {
    explicit camera_session(const common_options& common);
    found_devices found;
    const gentl_library& lib;
    const std::pair<device_entry, std::shared_ptr<const tl_interface>>& chosen;
    std::shared_ptr<const tl_device> device;
    node_map remote;
    std::shared_ptr<const tl_stream> stream;
    node_map stream_nodes;
};

// Thread-bound.
class grabber final {
public:
    grabber(const common_options& common, const grab_options& options);
    ~grabber();
    grabber(const grabber&) = delete;
    grabber& operator=(const grabber&) = delete;

    // Until all frames came, or something ended it; the camera is stopped and what waits is written in any case.
    // Throws the first reason; result() tells what came nevertheless.
    void run();

    [[nodiscard]] nlohmann::json result() const;
    // The same for a person. Empty when the camera never started.
    [[nodiscard]] std::string summary() const;
    // With `explain`: where packets were lost, for a person. Empty when the camera never started.
    [[nodiscard]] std::string explanation() const;

private:
    struct frame {
        std::span<const std::byte> data;
        uint32_t width = 0, height = 0;
        uint64_t id = 0;
        uint64_t timestamp_ns = 0;
        uint32_t pixel_format = 0;
        size_t line_padding = 0; // bytes
        bool incomplete = false;
    };
    template <class T>
    [[nodiscard]] T stream_info(GenTL::STREAM_INFO_CMD command) const;
    template <class T>
    [[nodiscard]] T buffer_info(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const;
    template <class T>
    [[nodiscard]] T optional_info(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const; // else 0
    [[nodiscard]] frame frame_of(GenTL::BUFFER_HANDLE buffer) const;
    // Its bytes without padding; valid until the next call.
    [[nodiscard]] std::span<const std::byte> picture_of(const frame& got);
    void announce_buffers();
    void run_once(std::exception_ptr& first);
    void start();
    void stop();
    void receive();
    // Waits for what went, and opens it again; throws `reason` when it does not come back.
    void open_again(const failure& reason);
    void watch_losses();
    void explain_losses();
    [[nodiscard]] GenTL::EVENT_NEW_BUFFER_DATA next_buffer();
    void throw_if_lost() const;
    [[noreturn]] void throw_time_out();
    void handle(const frame& got);
    void save(const frame& got);
    void throw_if_wrong() const;
    void show_progress(bool last);
    void read_counters();
    [[nodiscard]] int64_t stream_packet_size() const;
    [[nodiscard]] int64_t stream_feature(const char* name) const;
    [[nodiscard]] nlohmann::json chunks_of(GenTL::BUFFER_HANDLE buffer) const;
    [[nodiscard]] uint64_t frames() const noexcept { return complete + incomplete; }
    [[nodiscard]] double seconds_of_stream() const;
    [[nodiscard]] double frame_rate() const;
    [[nodiscard]] double megabytes_per_second() const;
    [[nodiscard]] double jitter_ms() const;

    // Constant after construction.
    const common_options& common;
    const grab_options& options;

    std::unique_ptr<camera_session> session; // none between two
    std::string device_id;
    std::unique_ptr<software_trigger> trigger; // while the camera runs
    GenTL::EVENT_HANDLE new_buffer = nullptr;
    std::optional<device_errors> errors;
    bool acquiring = false;
    bool camera_started = false, ever_started = false;
    std::unique_ptr<picture_saver> saver;

    size_t payload_size = 0, announced = 0;
    frame first_frame;             // without its data
    std::vector<std::byte> joined; // a picture whose lines had padding
    uint64_t complete = 0, incomplete = 0, bytes = 0;
    uint64_t offered = 0, skipped = 0; // pictures, to the saver
    nlohmann::json last_chunks;
    frame_check check;
    std::chrono::steady_clock::time_point first_time, last_time, shown_time, looked_time;
    double interval_mean = 0, interval_squares = 0; // of arrivals, seconds: running mean and sum of squared deviations
    double longest_interval = 0;
    bool is_first_of_stream = true;
    double cpu_at_start = 0, cpu_used = 0;
    int64_t packet_size = 0;
    // Of the stream as it is, and of those that ended before.
    struct counters {
        int64_t resend_packets = 0;
        uint64_t lost = 0, underruns = 0;
    } current, former;
    uint64_t reconnects = 0, triggers_sent = 0, triggers_left_out = 0;
    bool timed_out = false, interrupted = false;

    // Of the last stream.
    uint32_t stream_address = 0;
    std::optional<loss_watch> watch;
    uint64_t complete_before = 0, incomplete_before = 0;
    std::optional<loss_evidence> evidence;
};

} // namespace cli
