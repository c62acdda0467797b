#include "latency.h"

#include <cli/consumer/gentl_library.h>
#include <cli/consumer/node_map.h>
#include <cli/consumer/session.h>
#include <gige/gvsp.h>

#include <sys/socket.h>

#include <array>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace bench {

namespace {

// Frames from a reading thread to a waiting one.
class hand_over {
public:
    void put(uint64_t block_id) {
        {
            const std::lock_guard guard{mutex};
            waiting.push_back(block_id);
        }
        came.notify_one();
    }
    void end() {
        const std::lock_guard guard{mutex};
        ended = true;
        came.notify_one();
    }
    std::optional<uint64_t> take() {
        std::unique_lock held{mutex};
        came.wait(held, [&] { return ended || !waiting.empty(); });
        if (waiting.empty()) return std::nullopt;
        const uint64_t block_id = waiting.front();
        waiting.pop_front();
        return block_id;
    }

private:
    std::mutex mutex; // guards all
    std::condition_variable came;
    std::deque<uint64_t> waiting;
    bool ended = false;
};

// Puts payload to its place in one of eight frames, as somebody has to who hands frames on.
class frame_copies {
public:
    explicit frame_copies(const stream_shape& shape) : step(shape.payload_per_packet()) {
        for (auto& frame : frames) frame.resize(shape.payload_size());
    }
    void take(const std::byte* datagram, size_t size) {
        auto& frame = frames[gige::load16(datagram + 2) % frames.size()];
        const size_t at = ((gige::load32(datagram + 4) & 0xFFFFFF) - 1) * step;
        const size_t length = size - gige::gvsp::standard_header;
        if (at < frame.size() && length <= frame.size() - at) {
            std::memcpy(frame.data() + at, datagram + gige::gvsp::standard_header, length);
        }
    }

private:
    size_t step;
    std::array<std::vector<std::byte>, 8> frames;
};

// Until so many trailers have come, or nothing comes any more.
void read_trailers(int handle, const stream_shape& shape, frame_copies* copies,
                   const std::function<void(uint64_t block_id)>& came) {
    constexpr size_t batch = 64;
    const size_t size = shape.packet_size + 100;
    std::vector<std::byte> memory(batch * size);
    std::vector<iovec> vectors(batch);
    std::vector<mmsghdr> messages(batch);
    for (size_t i = 0; i < batch; ++i) {
        vectors[i] = {memory.data() + i * size, size};
        messages[i].msg_hdr.msg_iov = &vectors[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    for (uint32_t ended = 0; ended < shape.frames;) {
        const int count = ::recvmmsg(handle, messages.data(), batch, MSG_WAITFORONE, nullptr);
        if (count <= 0) return;
        for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
            const std::byte* datagram = memory.data() + i * size;
            if (messages[i].msg_len < gige::gvsp::standard_header) continue;
            const unsigned format = std::to_integer<unsigned>(datagram[4]) & 0xF;
            if (copies != nullptr && format == static_cast<unsigned>(gige::gvsp::format::payload)) {
                copies->take(datagram, messages[i].msg_len);
            }
            if (format != static_cast<unsigned>(gige::gvsp::format::trailer)) continue;
            came(gige::load16(datagram + 2));
            ++ended;
        }
    }
}

} // namespace

arrivals frames_by_bare_reads(const place& where, const stream_shape& shape, bool copied, bool handed_over) {
    const gige::udp_socket socket = open_stream_socket(where.consumer);
    const int handle = socket.native();
    const timeval silence{.tv_sec = 1, .tv_usec = 0};
    ::setsockopt(handle, SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof silence);
    camera_control camera{where.camera, where.consumer};
    camera.open_stream(socket.local(), shape);
    arrivals seen(shape.frames + 1);
    std::optional<frame_copies> copies;
    if (copied) copies.emplace(shape);
    frame_copies* const into = copies ? &*copies : nullptr;
    hand_over frames;
    std::jthread reader;
    if (handed_over) {
        reader = std::jthread{[&] {
            read_trailers(handle, shape, into, [&](uint64_t block_id) { frames.put(block_id); });
            frames.end();
        }};
    }
    camera.start(shape);
    if (handed_over) {
        while (const auto block_id = frames.take()) note(seen, *block_id, steady_ns());
    } else {
        read_trailers(handle, shape, into, [&](uint64_t block_id) { note(seen, block_id, steady_ns()); });
    }
    return seen;
}

arrivals frames_by_library(const std::string& cti, const stream_shape& shape) {
    using namespace GenTL;
    const auto lib = std::make_shared<const cli::gentl_library>(cti);
    const auto system = cli::open_system(lib);
    std::shared_ptr<const cli::tl_device> device;
    for (const auto& entry : cli::list_interfaces(*system)) {
        const auto interface = cli::open_interface(system, entry.id);
        for (const auto& each : cli::list_devices(*lib, *interface, entry.id, 1000)) {
            device = cli::open_device(*lib, interface, each.id, DEVICE_ACCESS_CONTROL);
        }
    }
    if (!device) fail("the camera was not found");
    const cli::node_map remote{*lib, cli::remote_port(*lib, *device)};
    for (const auto& [feature, value] : {std::pair<const char*, std::string>{"AcquisitionMode", "MultiFrame"},
                                         {"AcquisitionFrameCount", std::to_string(shape.frames)},
                                         {"TestPattern", "GreyHorizontalRamp"},
                                         {"AcquisitionFrameRateEnable", "1"},
                                         {"AcquisitionFrameRate", std::to_string(shape.frame_rate)}}) {
        cli::set_from_text(cli::require_node(remote, feature), value);
    }
    const auto stream = cli::open_stream(*lib, device);
    for (int i = 0; i < 16; ++i) {
        BUFFER_HANDLE buffer = nullptr;
        lib->check("DSAllocAndAnnounceBuffer",
                   lib->DSAllocAndAnnounceBuffer(stream->get(), shape.payload_size(), nullptr, &buffer));
    }
    EVENT_HANDLE new_buffer = nullptr;
    lib->check("GCRegisterEvent", lib->GCRegisterEvent(stream->get(), EVENT_NEW_BUFFER, &new_buffer));
    lib->check("DSFlushQueue", lib->DSFlushQueue(stream->get(), ACQ_QUEUE_ALL_TO_INPUT));
    lib->check("DSStartAcquisition", lib->DSStartAcquisition(stream->get(), ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    cli::execute(cli::require_node(remote, "AcquisitionStart"));
    arrivals seen(shape.frames + 1);
    for (uint32_t ended = 0; ended < shape.frames; ++ended) {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof data;
        if (lib->EventGetData(new_buffer, &data, &size, 1000) != GC_ERR_SUCCESS) break;
        const int64_t now = steady_ns();
        const auto info = [&]<class T>(BUFFER_INFO_CMD command, T value) {
            size_t length = sizeof value;
            INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
            lib->check("DSGetBufferInfo",
                       lib->DSGetBufferInfo(stream->get(), data.BufferHandle, command, &type, &value, &length));
            return value;
        };
        if (info(BUFFER_INFO_IS_INCOMPLETE, bool8_t{}) == 0) note(seen, info(BUFFER_INFO_FRAMEID, uint64_t{}), now);
        lib->check("DSQueueBuffer", lib->DSQueueBuffer(stream->get(), data.BufferHandle));
    }
    lib->check("DSStopAcquisition", lib->DSStopAcquisition(stream->get(), ACQ_STOP_FLAGS_DEFAULT));
    lib->check("GCUnregisterEvent", lib->GCUnregisterEvent(stream->get(), EVENT_NEW_BUFFER));
    return seen;
}

} // namespace bench
