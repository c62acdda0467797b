// The image stream: a thread that fills and sends frames while an acquisition runs, and the answers to resend
// requests, which the control thread sends itself so that they need not wait for the frame in progress.
#pragma once

#include "device_state.h"
#include "fault_plan.h"
#include "frame.h"
#include "optics.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <optional>
#include <thread>

namespace camera_sim {

struct resend_request {
    bool extended{};
    uint64_t block_id{};
    uint32_t first{};
    uint32_t last{};
};

// Thread-safe, but for what is marked.
class stream_sender {
public:
    // `raise_event(id, block id, timestamp, frame number)` is called on the stream's thread.
    using event_function = std::function<void(uint16_t, uint64_t, uint64_t, uint64_t)>;
    stream_sender(device_state& shared, event_function raise_event);
    ~stream_sender();

    // Not while frames are sent.
    [[nodiscard]] std::error_code open(uint32_t address);
    [[nodiscard]] uint16_t source_port() const { return socket.local().port; }

    void start_acquisition(); // frame numbers begin at 0 again
    void stop_acquisition();  // the frame in progress is finished
    void abort();             // it is not; returns when nothing is sent any more
    void trigger();
    void fire_test_packet();
    void answer(const resend_request& request); // control thread only
    void reseed(uint64_t seed);

    // Called by the stream's thread after each frame with the number of frames since start-up.
    std::function<void(uint64_t)> after_frame;

private:
    using clock = std::chrono::steady_clock;

    struct settings {
        std::shared_ptr<frame> next;
        fault_options faults;
        clock::duration period{};
        clock::duration packet_time{}; // from one packet's begin to the next's, of the registers and the link
        bool triggered{};
        bool events_frame_start{}, events_exposure_end{}, events_acquisition_end{};
        double exposure{}, gain{};
        sensor_settings sensor; // with a scene
        uint32_t pattern{};
        std::array<bool, 8> chunks{};
        uint64_t frames_wanted{};  // 0: no end
        clock::time_point start{}; // of the first packet, by the schedule
    };
    struct item {
        uint32_t id{};
        enum class kind : uint8_t { whole, half, noise, late, lost } what{}; // the last two only take their turn
    };
    struct late_packet {
        clock::time_point due;
        std::shared_ptr<frame> from;
        uint32_t id{};
    };

    void run();
    void acquire(uint64_t order);
    // The settings of now, with `reused` or else a frame out of the ring to fill.
    [[nodiscard]] settings snapshot(uint64_t number, std::shared_ptr<frame> reused);
    [[nodiscard]] bool wait_for_turn(const settings& current, clock::time_point due, uint64_t order);
    void fill(const settings& current);
    void append_chunks(const settings& current);
    void plan(const settings& current);
    // When the next frame's first packet may follow, by the schedule.
    clock::time_point send_planned(const settings& current);
    void send_late(clock::time_point now);
    void transmit(std::span<packet> packets, std::size_t count, const frame& from);
    // One packet of its own, which the shared link may drop.
    void transmit_unscheduled(packet& one, const frame& from);
    // From one packet's begin to the next's, as link and registers say. Under the device's mutex.
    [[nodiscard]] clock::duration packet_time_of(uint32_t packet_size) const;
    void set_fragmentation(bool forbidden);
    void count_refused_frame(uint64_t block_id);

    device_state& device;
    event_function raise;
    gige::udp_socket socket;
    frame_ring ring;
    shared_link* const link; // null: none
    const std::size_t link_sender;

    std::mutex mutex; // guards the members below it up to the atomics
    std::condition_variable changed;
    bool wanted = false;  // an acquisition is to run
    bool running = false; // the thread is inside one
    bool quit = false;
    uint64_t orders = 0; // acquisitions asked for
    uint32_t triggers = 0;

    std::atomic<bool> aborting{};
    std::atomic<int> fragmentation{-1}; // what the socket is set to

    // The stream's thread only.
    std::optional<optics> scene;
    dice stream_dice;
    loss_process losses;
    std::vector<item> planned;
    std::deque<late_packet> late;
    std::vector<packet> batch;
    uint64_t frames_since_start = 0;
    std::atomic<uint64_t> new_seed{};
    // The control thread only.
    dice resend_dice;
    std::array<uint64_t, 16> refused_blocks{}; // the last ones counted in frames_refused

    std::thread thread;
};

} // namespace camera_sim
