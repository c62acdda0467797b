#include "exercise.h"

#include <gevdrv_streamchannel/packet_recv/gvsp_recv_copy_packets.h>
#include <gevdrv_streamchannel/packet_recv/gvsp_recv_resend.h>
#include <gevdrv_streamchannel/packet_recv/gvsp_recv_simple.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>

namespace fuzz {

namespace {

using namespace gev::streamchannel;

constexpr uint32_t packet_size = 136;
constexpr uint32_t payload_size = 400;
// Blocks of the pool, and entries of each that may fall due in one call.
constexpr size_t most_requests_at_once = 5 * (64 + 1);

void require(bool held, const char* what) {
    if (held) return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

class harness {
public:
    explicit harness(uint8_t choices) {
        const size_t sizes[] = {payload_size, 150, 0, 3 * payload_size};
        buffer_size = sizes[choices & 3];
        most_buffers = (choices & 4) != 0 ? 2 : SIZE_MAX;
        parameters.max_open_blocks = choices >> 3 & 7;
        parameters.max_retries = choices >> 6;
        functions.get_frame = [this]() -> frame_context {
            if (taken.size() >= most_buffers) return {};
            // A heap block of exact size: the address sanitizer watches its borders.
            void* memory = std::malloc(std::max<size_t>(buffer_size, 1));
            require(memory != nullptr, "memory");
            taken.push_back(memory);
            return {memory, static_cast<std::byte*>(memory), buffer_size};
        };
        functions.deliver = [this](const frame_info& info, const frame_receive_stats& stats) {
            if (info.context.buffer == nullptr) return;
            release(info.context.buffer);
            require(info.filled_size <= buffer_size, "filled within the buffer");
            ++delivered;
            require(buffer_size == 0 || stats.complete_frames + stats.incomplete_frames == delivered,
                    "delivered frames are counted");
        };
        functions.send_resend = [this](uint64_t block_id, uint32_t first, uint32_t last, bool) {
            require(block_id != 0, "block id of a request");
            require(first <= last && last <= 0xFFFFFF, "range of a request");
            require(++requests <= most_requests_at_once, "requests at once");
        };
    }
    ~harness() {
        for (void* memory : taken) std::free(memory);
    }
    harness(const harness&) = delete;
    harness& operator=(const harness&) = delete;

    void run(impl::gvsp_recv_interface& receiver, std::span<const std::byte> records) {
        receiver.set_resend_params(parameters);
        receiver.setup(packet_size, payload_size);
        uint64_t now = 1;
        const auto byte_at = [&](size_t at) { return std::to_integer<uint8_t>(records[at]); };
        while (records.size() >= 4) {
            now += byte_at(0) + byte_at(1) * 256U;
            const uint8_t what = byte_at(2);
            const auto bytes = records.subspan(4, std::min<size_t>(byte_at(3), records.size() - 4));
            requests = 0;
            command(receiver, what, bytes, now);
            std::byte datagram[256 + 16] = {};
            std::ranges::copy(bytes, datagram);
            if (receiver.receive_packet(now, {datagram, bytes.size()})) {
                require(receiver.check_timers(now) >= -1, "wait");
            }
            records = records.subspan(4 + bytes.size());
        }
        receiver.flush(now);
        require(taken.empty(), "all buffers are back");
    }

private:
    void release(void* buffer) {
        const auto found = std::ranges::find(taken, buffer);
        require(found != taken.end(), "a buffer that was taken");
        taken.erase(found);
        std::free(buffer);
    }
    void command(impl::gvsp_recv_interface& receiver, uint8_t what, std::span<const std::byte> bytes, uint64_t& now) {
        switch (what) {
        case 1:
            receiver.reset();
            break;
        case 2:
            receiver.flush(now);
            require(taken.empty(), "all buffers are back after a flush");
            break;
        case 3:
            if (taken.empty() || !receiver.revoke_frame(taken.front())) break;
            release(taken.front());
            break;
        case 4: {
            std::byte raw[21] = {};
            std::ranges::copy(bytes.first(std::min(bytes.size(), sizeof raw)), raw);
            std::memcpy(&parameters.time_per_frame, raw, 8);
            std::memcpy(&parameters.max_open_blocks, raw + 8, 4);
            std::memcpy(&parameters.max_retries, raw + 12, 4);
            std::memcpy(&parameters.resend_delay_factor, raw + 16, 4);
            parameters.resend_enabled = raw[20] != std::byte{0};
            parameters.auto_time_per_frame = (raw[20] & std::byte{2}) != std::byte{0};
            receiver.set_resend_params(parameters);
            break;
        }
        case 5:
            now += 3'600'000'000;
            break;
        case 6:
            now /= 2;
            break;
        case 7:
            receiver.flush(now);
            receiver.setup(packet_size, payload_size);
            delivered = 0;
            break;
        default:
            break;
        }
    }

    std::deque<void*> taken; // oldest first
    size_t buffer_size = 0;
    size_t most_buffers = 0;
    size_t requests = 0;
    uint64_t delivered = 0;
    resend_parameters parameters;

public:
    stream_functions functions;
};

template <class Receiver>
void drive(std::span<const std::byte> input) {
    if (input.empty()) return;
    harness around{std::to_integer<uint8_t>(input[0])};
    Receiver receiver{around.functions};
    around.run(receiver, input.subspan(1));
}

} // namespace

void exercise_simple(std::span<const std::byte> input) { drive<impl::gvsp_recv_simple>(input); }
void exercise_resend(std::span<const std::byte> input) { drive<impl::gvsp_recv_resend>(input); }
void exercise_copy(std::span<const std::byte> input) { drive<impl::gvsp_recv_copy_packets>(input); }

} // namespace fuzz
