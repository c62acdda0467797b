// The product's receive thread, with buffers that come back at once.
#include "bench_stream.h"

#include <gevdrv_streamchannel/stream_asio_thread.h>
#include <gige/gvcp.h>

#include <condition_variable>
#include <mutex>

namespace bench {

namespace {

constexpr size_t frame_count = 8;
constexpr auto silence = std::chrono::milliseconds{500};

} // namespace

reception receive_with_thread(const place& where, const stream_shape& shape, bool coalesce, bool predict) {
    using namespace gev::streamchannel;
    std::vector<std::vector<std::byte>> frames(frame_count, std::vector<std::byte>(shape.payload_size()));
    std::vector<frame_context> free_frames;
    for (auto& each : frames) free_frames.push_back({&each, each.data(), each.size()});

    camera_control camera{where.camera, where.consumer};
    std::mutex mutex;
    std::condition_variable changed;
    reception seen;
    uint64_t ended = 0;
    double first = 0;
    double last = 0;
    uint64_t allocations_before = 0;
    frame_receive_stats totals;

    stream_functions functions;
    functions.get_frame = [&]() -> frame_context { // both functions run on the receive thread
        if (free_frames.empty()) return {};
        const frame_context taken = free_frames.back();
        free_frames.pop_back();
        return taken;
    };
    functions.deliver = [&](const frame_info& info, const frame_receive_stats& stats) {
        if (info.context.buffer != nullptr) free_frames.push_back(info.context);
        const std::lock_guard guard{mutex};
        last = wall_seconds();
        if (first == 0) first = last;
        totals = stats;
        seen.payload_bytes += info.received_bytes;
        if (++ended == warm_frames) allocations_before = allocation_count();
        if (ended >= warm_frames) seen.allocations = allocation_count() - allocations_before;
        changed.notify_all();
    };
    functions.send_resend = [&](uint64_t block, uint32_t first_packet, uint32_t last_packet, bool) {
        camera.request_resend(block, first_packet, last_packet);
    };
    impl::stream_asio_thread thread{{.copy_packets = false,
                                     .coalesce = coalesce,
                                     .predict = predict,
                                     .functions = std::move(functions),
                                     .reception_ended = {}}};
    const auto local = thread.open_stream_socket(asio::ip::address_v4{where.consumer},
                                                 {asio::ip::address_v4{where.camera}, gige::gvcp::port});
    if (!local) fail("no stream socket: " + local.error().message());
    camera.open_stream({local->address().to_v4().to_uint(), local->port()}, shape);
    if (const auto error = thread.start(shape.packet_size, shape.payload_size())) fail(error.message());
    thread.set_resend_params({.time_per_frame = static_cast<uint64_t>(1e6 / shape.frame_rate)});
    const double cpu = cpu_seconds();
    const uint64_t wakes_before = wakes();
    camera.start(shape);
    {
        std::unique_lock lock{mutex};
        while (ended + totals.skipped_frames < shape.frames) {
            const uint64_t before = ended;
            const auto wait = before == 0 ? 10 * silence : silence;
            if (!changed.wait_for(lock, wait, [&] { return ended != before; })) break;
        }
        seen.cpu_seconds = cpu_seconds() - cpu;
        seen.wakes = wakes() - wakes_before;
    }
    thread.stop();
    seen.wall_seconds = last - first;
    seen.frames_complete = totals.complete_frames;
    seen.frames_other = shape.frames - totals.complete_frames;
    seen.datagrams = seen.frames_complete * shape.datagrams_per_frame();
    return seen;
}

} // namespace bench
