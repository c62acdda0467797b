// A GigE Vision camera in software, on real sockets: control protocol on port 3956 of its own address, image stream,
// message channel. Runs in two threads of its own inside the calling process.
#pragma once

#include <camera_sim/shared_link.h>

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <system_error>
#include <vector>

namespace camera_sim {

// What goes wrong on purpose. Shares are 0..1, each decided by a generator seeded with `seed`: the same seed and the
// same sequence of packets give the same faults.
struct fault_options {
    uint64_t seed = 1;
    double loss = 0;                // of stream packets, originals only
    double burst_length = 1;        // mean number of packets lost in a row; `loss` stays the overall share
    double resend_request_loss = 0; // of resend requests: not seen
    double resend_loss = 0;         // of packets sent on request
    double resend_refuse = 0;       // of requested packets: answered "unavailable"
    double duplicate = 0;
    double reorder = 0; // a packet changes places with one up to 8 behind it
    double delay = 0;   // a packet is sent delay_ms late
    double delay_ms = 2;
    double truncate = 0;        // a packet loses its second half
    double garbage = 0;         // an extra datagram of noise in front of a packet
    double control_loss = 0;    // of control requests: half are not seen, half are done and not acknowledged
    double event_loss = 0;      // of events: half are not sent at first, of half the first acknowledge is not seen
    uint32_t pending_every = 0; // every n-th acknowledge is announced by PENDING_ACK and comes pending_ms later
    uint32_t pending_ms = 300;
    uint64_t reboot_after = 0;  // frames, 0 never
    uint64_t silence_after = 0; // frames, 0 never
    uint32_t silence_ms = 0;    // 0: for good
    uint64_t deaf_after = 0;    // frames, 0 never: control requests stay unanswered for good, the stream goes on
};

// What becomes of a packet size that is no multiple of the step.
enum class size_rounding { none, down, up };

// What the light is from a frame of the acquisition on. Level 1: a mean of 40 % at the start values.
struct light_change {
    uint64_t frame = 0;
    double level = 1, red = 1, blue = 1; // green is 1
};

// A scene in front of the camera, in place of the test picture, where the format is grey or a mosaic of 8 bits. The
// picture answers to ExposureTime, Gain, BlackLevelRaw and to features of its own: Iris, Focus, BalanceRatio.
enum class scene_kind { none, grey, colours };
struct scene_options {
    scene_kind what = scene_kind::none;
    std::vector<light_change> light{}; // by frame
    double flicker = 0;                // part of the light that swings
    double flicker_frequency = 100;    // Hz
    uint32_t sharp_at = 430;           // focus position, 0 to 1000; also the one at the start
};

struct camera_options {
    uint32_t address = 0x7F000001; // host order; must be an address of this host
    uint16_t port = 3956;
    std::string interface; // of this host, the camera's alone: given the camera's address whenever that changes
    uint64_t mac = 0;      // low 48 bits; 0: made of the address
    std::string vendor = "Orv";
    std::string model = "SimCam";
    std::string version = "1.0.0";
    std::string serial = "SIM0001"; // up to 15 characters
    std::string user_name;          // up to 15 bytes
    uint32_t sensor_width = 2448;
    uint32_t sensor_height = 2048;
    uint32_t width = 0; // 0: the sensor's
    uint32_t height = 0;
    uint32_t pixel_format = 0x01080001; // any PFNC value
    double frame_rate = 30;
    uint32_t line_padding = 0; // bytes behind each line, where lines end on a byte
    scene_options scene{};
    uint32_t packet_size = 1500;      // with IP and UDP headers, until the consumer sets another
    uint32_t max_packet_size = 16000; // what the register accepts, a multiple of the step or not
    uint32_t packet_size_step = 4;
    size_rounding packet_size_rounding = size_rounding::down;
    uint32_t mtu = 65535;                // larger datagrams vanish when they must not be fragmented
    double pacing = 0.5;                 // part of the frame period over which a frame's packets are spread, 0 at once
    std::shared_ptr<shared_link> link{}; // what all packets go through, at most at its rate; null: nothing limits
    bool segmentation = false;           // let the kernel cut the datagrams (UDP_SEGMENT)
    bool extended_ids = false;           // 64-bit block ids from the start
    bool resend = true;
    bool source_port = true; // stream source port register
    bool zipped_document = false;
    std::string document{};    // served in place of the camera's own, with a memory where its registers are not: any
                               // address that is not in use reads what was written there, at first zero
    bool plain_events = false; // EVENT instead of EVENTDATA
    uint32_t chunk_payload_type = 5; // standard ids with chunks: 4 or 5
    uint32_t ring_frames = 16;       // past frames kept for resends
    uint32_t reboot_ms = 500;
    uint32_t install_ms = 200;               // for new firmware
    uint64_t tick_frequency = 1'000'000'000; // of the timestamp, Hz
    uint32_t action_device_key = 0;
    fault_options faults;
    std::function<void(const std::string&)> log{}; // refusals, one line each; on the control thread
    // On the stream's thread, after each frame: its block id and when its last datagram was about to be sent, in
    // nanoseconds of the steady clock. With it that datagram is sent alone.
    std::function<void(uint64_t block_id, int64_t time)> frame_sent{};
};

struct statistics {
    uint64_t frames_sent = 0;
    uint64_t frames_skipped = 0; // came due while an earlier one was still being sent
    uint64_t packets_sent = 0;   // on the wire, resends included
    uint64_t packets_lost = 0;   // originals held back on purpose
    uint64_t packets_duplicated = 0;
    uint64_t packets_reordered = 0;
    uint64_t packets_delayed = 0;
    uint64_t packets_truncated = 0;
    uint64_t garbage_sent = 0;
    uint64_t resend_requests = 0;          // lost ones included
    uint64_t resend_requests_lost = 0;     // not seen on purpose
    uint64_t resend_packets_requested = 0; // packets that all requests named
    uint64_t packets_resent = 0;
    uint64_t resends_lost = 0;
    uint64_t resends_refused = 0;  // answered with a status instead of data
    uint64_t requests_refused = 0; // of all commands: answered with an error, or of one who may not ask
    uint64_t frames_refused = 0;   // frames of which a packet was refused for good
    uint64_t bytes_sent = 0;       // UDP payload of the stream
    uint64_t send_errors = 0;
    uint64_t test_packets = 0;
    uint64_t control_requests = 0;
    uint64_t control_writes = 0; // of registers and memory, refused ones included
    uint64_t control_lost = 0;
    uint64_t control_repeated = 0; // answered from memory
    uint64_t pending_acks = 0;
    uint64_t heartbeats_missed = 0;
    uint64_t events_sent = 0;
    uint64_t events_acknowledged = 0;
    uint64_t actions = 0;
    uint64_t reboots = 0;
    uint64_t link_dropped = 0; // stream packets that found the shared link's buffer full
};

// The statistics as one line of JSON, without the newline.
[[nodiscard]] std::string to_json(const statistics& counted, const camera_options& options, uint32_t address);

class camera {
public:
    // What is wrong with the options, with the range; empty when nothing is.
    [[nodiscard]] static std::string problem_with(const camera_options& options);
    // Binds the sockets and starts the threads; when it returns a camera it listens. std::errc::invalid_argument for
    // options with a problem, address_in_use when another camera has the address.
    [[nodiscard]] static std::expected<std::unique_ptr<camera>, std::error_code> start(camera_options options);
    ~camera(); // ends the threads and closes the sockets
    camera(const camera&) = delete;
    camera& operator=(const camera&) = delete;

    // All of these may be called from any thread.
    [[nodiscard]] statistics stats() const;
    [[nodiscard]] uint32_t address() const; // changes with FORCEIP
    [[nodiscard]] uint64_t mac() const;
    [[nodiscard]] std::string document() const; // the plain GenICam document
    void set_faults(const fault_options& faults);
    void set_silent(bool silent); // neither hears nor says anything
    void set_deaf(bool deaf);     // hears no control request and misses none, the stream goes on
    void reboot();                // silence for reboot_ms, then the start-up state; persistent settings stay
    void send_event(uint16_t id, std::span<const std::byte> data);
    [[nodiscard]] uint32_t peek(uint32_t register_address) const; // 0 for an address without a register
    [[nodiscard]] bool acquiring() const;

private:
    struct parts;
    explicit camera(std::unique_ptr<parts> all);
    std::unique_ptr<parts> p;
};

} // namespace camera_sim
