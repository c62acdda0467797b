#include "latency.h"

#include <cli/consumer/gentl_library.h>
#include <cli/consumer/node_map.h>
#include <cli/consumer/session.h>
#include <gige/gvsp.h>

#include <sys/socket.h>

#include <cerrno>

namespace bench {

arrivals frames_by_bare_reads(const place& where, const stream_shape& shape) {
    auto socket = gige::udp_socket::open({where.consumer, 0});
    if (!socket) fail("no stream socket");
    const int handle = socket->native();
    const int bytes = socket_buffer;
    if (::setsockopt(handle, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0) {
        ::setsockopt(handle, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }
    const timeval silence{.tv_sec = 1, .tv_usec = 0};
    ::setsockopt(handle, SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof silence);
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
    camera_control camera{where.camera, where.consumer};
    camera.open_stream(socket->local(), shape);
    camera.start(shape);
    arrivals seen(shape.frames + 1);
    for (uint32_t ended = 0; ended < shape.frames;) {
        const int count = ::recvmmsg(handle, messages.data(), batch, MSG_WAITFORONE, nullptr);
        if (count <= 0) break;
        const int64_t now = steady_ns();
        for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
            const std::byte* datagram = memory.data() + i * size;
            if (messages[i].msg_len < gige::gvsp::standard_header) continue;
            if ((std::to_integer<unsigned>(datagram[4]) & 0xF) != static_cast<unsigned>(gige::gvsp::format::trailer)) {
                continue;
            }
            note(seen, gige::load16(datagram + 2), now);
            ++ended;
        }
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
