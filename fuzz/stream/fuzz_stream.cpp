// Any sequence of datagrams at any times: a receiver writes inside the frame's buffer only, and hands every buffer
// back by the time it is flushed.
//
// Input: one byte of choices, then records of a time step (4 bytes), a length (1 byte) and so many bytes.
#include "gevdrv_streamchannel/packet_recv/gvsp_recv_resend.h"
#include "gevdrv_streamchannel/packet_recv/gvsp_recv_simple.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <set>

namespace {

using namespace gev::streamchannel;

constexpr size_t frame_size = 400;

void require(bool held) {
    if (!held) std::abort();
}

template <class Receiver>
void drive(const uint8_t* data, size_t size, uint8_t choices) {
    std::set<void*> taken;
    stream_functions functions;
    functions.get_frame = [&]() -> frame_context {
        if ((choices & 2) != 0 && taken.size() >= 2) return {};
        // A heap block of exact size: the address sanitizer watches its borders.
        void* memory = std::malloc(frame_size);
        require(memory != nullptr);
        taken.insert(memory);
        return {memory, static_cast<std::byte*>(memory), frame_size};
    };
    functions.deliver = [&](const frame_info& info, const frame_receive_stats&) {
        require(taken.erase(info.context.buffer) == 1);
        std::free(info.context.buffer);
    };
    functions.send_resend = [](uint64_t, uint32_t first, uint32_t last, bool) { require(first <= last); };

    Receiver receiver{functions};
    receiver.setup(136, frame_size);
    uint64_t now = 1;
    while (size >= 5) {
        uint32_t step = 0;
        std::memcpy(&step, data, sizeof step);
        // Now and then an hour, and a clock that went back.
        now += (step & 0x80000000U) != 0 ? step : step & 0xFFFF;
        if (step == 0xFFFFFFFFU) now = 0;
        const size_t length = std::min<size_t>(data[4], size - 5);
        std::byte datagram[256 + 16] = {};
        std::memcpy(datagram, data + 5, length);
        if (receiver.receive_packet(now, {datagram, length})) receiver.check_timers(now);
        if ((step & 0xFF0000) == 0xFF0000) receiver.reset();
        data += 5 + length;
        size -= 5 + length;
    }
    receiver.flush(now);
    require(taken.empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    if ((data[0] & 1) != 0) {
        drive<impl::gvsp_recv_simple>(data + 1, size - 1, data[0]);
    } else {
        drive<impl::gvsp_recv_resend>(data + 1, size - 1, data[0]);
    }
    return 0;
}
