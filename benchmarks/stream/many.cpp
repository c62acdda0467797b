// What many sockets cost at the least, read by a thread each or by one thread for all: reads, one copy per datagram,
// and a pause after reads that did not fill their buffers.
#include "floor.h"

#include <fmt/format.h>

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <thread>

namespace bench {

namespace {

constexpr size_t batch = 64;
constexpr size_t frames_in_all = 32; // more than the caches hold, however many sockets share them
constexpr int silence_ms = 1000;

class stream_socket {
public:
    stream_socket(uint32_t consumer, const stream_shape& shape)
        : socket(open_stream_socket(consumer)),
          buffer_size(shape.packet_size + 100),
          memory(batch * buffer_size),
          vectors(batch),
          messages(batch),
          frames(std::max(frames_in_all / shape.cameras, size_t{2}), shape.payload_size()) {
        for (size_t i = 0; i < batch; ++i) {
            vectors[i] = {memory.data() + i * buffer_size, buffer_size};
            messages[i].msg_hdr.msg_iov = &vectors[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
    }
    [[nodiscard]] gige::endpoint local() const { return socket.local(); }
    [[nodiscard]] int native() const { return socket.native(); }

    // The datagrams that one read brought.
    size_t read() {
        const int count = ::recvmmsg(socket.native(), messages.data(), batch, MSG_DONTWAIT, nullptr);
        for (int i = 0; i < count; ++i) {
            const size_t length = messages[static_cast<size_t>(i)].msg_len;
            frames.take(memory.data() + static_cast<size_t>(i) * buffer_size, length);
        }
        return static_cast<size_t>(std::max(count, 0));
    }

    [[nodiscard]] const payload_copy& taken() const { return frames; }

private:
    gige::udp_socket socket;
    size_t buffer_size;
    std::vector<std::byte> memory;
    std::vector<iovec> vectors;
    std::vector<mmsghdr> messages;
    payload_copy frames;
};

// Until each has had so many datagrams, or nothing comes any more.
void read_all(std::span<stream_socket> sockets, uint64_t expected, std::chrono::microseconds pause) {
    std::vector<pollfd> waits;
    for (const stream_socket& each : sockets) waits.push_back({each.native(), POLLIN, 0});
    const auto done = [&] {
        return std::ranges::all_of(sockets,
                                   [&](const stream_socket& each) { return each.taken().datagrams >= expected; });
    };
    bool begun = false;
    while (!done()) {
        size_t most = 0;
        for (stream_socket& each : sockets) most = std::max(most, each.read());
        if (most == 0) {
            if (::poll(waits.data(), waits.size(), silence_ms) == 0 && begun) return;
            begun = true;
        } else if (most < batch) {
            std::this_thread::sleep_for(pause);
        }
    }
}

void measure_many(const stream_shape& shape, bool one_thread, std::chrono::microseconds pause,
                  const camera_process& cameras) {
    std::vector<stream_socket> sockets;
    std::vector<std::unique_ptr<camera_control>> controls;
    for (uint32_t i = 0; i < shape.cameras; ++i) {
        sockets.emplace_back(cameras.consumer(), shape);
        controls.push_back(std::make_unique<camera_control>(cameras.address() + i, cameras.consumer()));
        controls.back()->open_stream(sockets.back().local(), shape);
    }
    const uint64_t expected = shape.datagrams_per_frame() * shape.frames;
    rusage before{};
    ::getrusage(RUSAGE_SELF, &before);
    const double cpu = cpu_seconds();
    const double begin = wall_seconds();
    {
        std::vector<std::jthread> threads;
        const size_t each = one_thread ? sockets.size() : 1;
        for (size_t first = 0; first < sockets.size(); first += each) {
            threads.emplace_back([&, first] { read_all(std::span{sockets}.subspan(first, each), expected, pause); });
        }
        for (auto& camera : controls) {
            camera->start(shape);
            std::this_thread::sleep_for(std::chrono::milliseconds{7}); // or all would send at once
        }
    }
    const double used = cpu_seconds() - cpu;
    const double wall = wall_seconds() - begin;
    rusage after{};
    ::getrusage(RUSAGE_SELF, &after);
    uint64_t datagrams = 0;
    uint64_t payload = 0;
    for (const stream_socket& each : sockets) {
        datagrams += each.taken().datagrams;
        payload += each.taken().payload_bytes;
    }
    const double frames = static_cast<double>(shape.frames) * shape.cameras;
    fmt::print("| {} | {} | {} | {:.3f} | {:.0f} | {:.0f} | {} |\n", shape.cameras,
               one_thread ? "one for all" : "one each", pause.count(), used / (static_cast<double>(payload) * 1e-9),
               static_cast<double>(after.ru_nvcsw - before.ru_nvcsw) / frames,
               static_cast<double>(payload) * 1e-6 / wall, expected * shape.cameras - datagrams);
    std::fflush(stdout);
}

} // namespace

void many_table(stream_shape shape, const std::vector<uint32_t>& numbers) {
    const double rate = shape.frame_rate;
    const uint32_t frames = shape.frames;
    fmt::print(
        "\nFloors of many sockets, packets of {} bytes sent one by one, {:.0f} frames of {}x{} a second in all\n\n"
        "| sockets | threads | pause, us | CPU s/GB | wakes per frame | MB/s | datagrams lost |\n"
        "|---|---|---|---|---|---|---|\n",
        shape.packet_size, rate, shape.width, shape.height);
    for (const uint32_t number : numbers) {
        shape.cameras = number;
        shape.frame_rate = rate / number;
        shape.frames = std::max(frames / number, 1U);
        const camera_process cameras{shape};
        for (const int pause : {200, 1000, 2000}) {
            for (const bool one_thread : {false, true}) {
                if (number == 1 && one_thread) continue;
                measure_many(shape, one_thread, std::chrono::microseconds{pause}, cameras);
            }
        }
    }
}

} // namespace bench
