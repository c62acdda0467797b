// What the camera's threads share.
#pragma once

#include "register_file.h"

#include <camera_sim/camera.h>

#include <atomic>
#include <chrono>
#include <mutex>

namespace camera_sim {

// Every counter of `statistics`, written by both threads.
struct counters {
    std::atomic<uint64_t> frames_sent, frames_skipped, packets_sent, packets_lost, packets_duplicated,
        packets_reordered, packets_delayed, packets_truncated, garbage_sent, resend_requests, resend_requests_lost,
        resend_packets_requested, packets_resent, resends_lost, resends_refused, requests_refused, frames_refused,
        bytes_sent, send_errors, test_packets, control_requests, control_writes, control_lost, control_repeated,
        pending_acks, heartbeats_missed, events_sent, events_acknowledged, actions, reboots, link_dropped;
    [[nodiscard]] statistics snapshot() const;
};

// Thread-safe in its atomics; who uses the rest holds the mutex.
struct device_state {
    explicit device_state(camera_options chosen)
        : options{std::move(chosen)}, faults{options.faults}, firmware_version{options.version} {}

    const camera_options options;

    mutable std::mutex mutex; // guards the members up to the next gap
    register_file memory;
    fault_options faults;
    std::string firmware_version; // outlives a restart

    counters counted{};
    std::atomic<bool> silent{};
    std::atomic<bool> deaf{};
    std::atomic<bool> acquiring{};
    std::atomic<int64_t> clock_origin{}; // of the timestamp, steady nanoseconds

    [[nodiscard]] static int64_t steady_ns() {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }
    [[nodiscard]] uint64_t timestamp() const { // in ticks
        return scaled(static_cast<uint64_t>(steady_ns() - clock_origin.load()), options.tick_frequency, 1'000'000'000);
    }
    [[nodiscard]] std::chrono::nanoseconds time_of(uint64_t ticks) const {
        return std::chrono::nanoseconds{scaled(ticks, 1'000'000'000, options.tick_frequency)};
    }

private:
    // Whole seconds apart, so that the product stays far from the largest number.
    [[nodiscard]] static uint64_t scaled(uint64_t count, uint64_t to, uint64_t from) {
        return count / from * to + count % from * to / from;
    }
};

// Bootstrap and device registers in their start-up state. `keep_persistent` leaves the persistent address, the IP
// configuration and the user-defined name as they are. Under the mutex.
void reset_registers(device_state& device, uint32_t address, bool keep_persistent);

// Adds the regions and their access modes, the document among them; once, in front of the first reset.
void build_address_space(device_state& device, const std::string& document);

// Bytes behind each line of such a picture.
[[nodiscard]] uint32_t line_padding(const camera_options& options, uint32_t width, uint32_t height, uint32_t format);

// Stores what follows from other registers: PayloadSize. Under the mutex.
void update_derived(device_state& device);

[[nodiscard]] uint64_t mac_of(const camera_options& options);

} // namespace camera_sim
