// The parts of bench_stream: one camera process, receivers in child processes, one after the other.
#pragma once

#include "cable.h"

#include <gige/udp_socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace bench {

[[noreturn]] void fail(const std::string& what);

struct stream_shape {
    uint32_t width = 2448;
    uint32_t height = 2048; // Mono8
    uint32_t packet_size = 1500;
    uint32_t frames = 200;
    double frame_rate = 80;
    uint32_t cameras = 1;   // on consecutive addresses, each with frames of its own
    bool segmented = false; // the camera lets the kernel cut its datagrams, so that reception can coalesce

    [[nodiscard]] uint32_t payload_size() const { return width * height; }
    [[nodiscard]] uint32_t payload_per_packet() const { return packet_size - 36; }
    [[nodiscard]] uint64_t datagrams_per_frame() const {
        return (payload_size() + payload_per_packet() - 1) / payload_per_packet() + 2;
    }
};

// What one receiver saw. Plain bytes: it crosses a pipe.
struct reception {
    uint64_t payload_bytes = 0; // of the pictures
    uint64_t datagrams = 0;
    uint64_t frames_complete = 0;
    uint64_t frames_other = 0; // incomplete or lost
    uint64_t reads = 0;        // system calls that brought something; 0 where not known
    uint64_t allocations = 0;  // by the process, from the tenth frame to the last
    double cpu_seconds = 0;    // user and system time of the process, from before the first datagram
    uint64_t wakes = 0;        // of the process's threads, from sleep or wait; over the same time
    double wall_seconds = 0;   // between the first frame and the last
    double camera_seconds = 0; // CPU time of the camera's process meanwhile
    double kernel_seconds = 0; // of the cable's receiving end meanwhile; 0 on loopback, where it is the camera's

    [[nodiscard]] double receiving_seconds() const { return cpu_seconds + kernel_seconds; }

    [[nodiscard]] double per_gigabyte(double seconds) const {
        return payload_bytes == 0 ? 0 : seconds / (static_cast<double>(payload_bytes) * 1e-9);
    }
    [[nodiscard]] double cpu_per_gigabyte() const { return per_gigabyte(receiving_seconds()); }
    [[nodiscard]] double megabytes_per_second() const {
        return wall_seconds <= 0 ? 0 : static_cast<double>(payload_bytes) * 1e-6 / wall_seconds;
    }
};

// Control of the camera, from the receiver's process: registers only, no discovery.
class camera_control {
public:
    camera_control(uint32_t camera, uint32_t local);
    ~camera_control(); // gives the camera back
    camera_control(const camera_control&) = delete;
    camera_control& operator=(const camera_control&) = delete;
    void write(uint32_t address, uint32_t value);
    void open_stream(gige::endpoint destination, const stream_shape& shape);
    void start(const stream_shape& shape);
    void request_resend(uint64_t block, uint32_t first, uint32_t last);

private:
    gige::udp_socket socket;
    gige::endpoint camera;
    uint16_t next_id = 0;
};

// The camera's registers that begin so many frames, for those who write them through another library.
struct register_value {
    uint32_t address;
    uint32_t value;
};
[[nodiscard]] std::vector<register_value> start_registers(const stream_shape& shape);

// orv-gev-camera-sim as a child process on an address of its own: of loopback, or at the cable's other end.
class camera_process {
public:
    explicit camera_process(const stream_shape& shape, const cable* joined = nullptr);
    ~camera_process();
    camera_process(const camera_process&) = delete;
    camera_process& operator=(const camera_process&) = delete;

    [[nodiscard]] uint32_t address() const noexcept { return own; }
    [[nodiscard]] uint32_t consumer() const noexcept { return other; }
    [[nodiscard]] double cpu_seconds() const;

private:
    uint32_t own;
    uint32_t other;
    int pid = -1;
};

struct place {
    uint32_t camera;
    uint32_t consumer;
};

[[nodiscard]] double cpu_seconds(); // of this process
[[nodiscard]] uint64_t wakes();     // voluntary context switches of this process
[[nodiscard]] double wall_seconds();
[[nodiscard]] uint64_t allocation_count() noexcept;

constexpr int socket_buffer = 10 << 20;                               // the same for all
[[nodiscard]] gige::udp_socket open_stream_socket(uint32_t consumer); // with that buffer; on a free port
constexpr uint64_t warm_frames = 10;                                  // before allocations count

// The floors: batched reads into a ring of buffers; optionally each datagram's payload is copied to a frame, and a read
// that did not fill the buffers is followed by a pause.
[[nodiscard]] reception receive_bare(const place& where, const stream_shape& shape, bool copy, bool coalesce,
                                     std::chrono::microseconds pause = {});
// The same from a packet ring, whose blocks are handed over when full or after a millisecond.
[[nodiscard]] bool has_packet_ring() noexcept; // it takes a privilege
[[nodiscard]] reception receive_from_ring(const place& where, const stream_shape& shape, bool copy);
// This project's receive thread with the resend receiver; without prediction it pauses for a fixed time.
[[nodiscard]] reception receive_with_thread(const place& where, const stream_shape& shape, bool coalesce,
                                            bool predict = true);
// The peer; packet_socket: its packet-mmap reception, where the process may use it.
[[nodiscard]] bool has_peer() noexcept;
[[nodiscard]] reception receive_with_peer(const place& where, const stream_shape& shape, bool packet_socket);

// The floors of so many cameras, at the shape's frame rate in all.
void many_table(stream_shape shape, const std::vector<uint32_t>& numbers);

// Datagrams of a prepared frame through a socket of this process and the receiver, for instruction counts.
void replay(uint64_t frames, const stream_shape& shape, bool read_only);

} // namespace bench
