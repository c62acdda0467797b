#include "frame_reader.h"

#include <gige/test_picture.h>

#include <algorithm>
#include <cstring>

namespace test_support {

using namespace GenTL;

namespace {

constexpr std::byte untouched{0xA5};
constexpr size_t margin = 64;

} // namespace

struct frame_reader::memory {
    explicit memory(size_t capacity) : size(capacity), bytes(capacity + margin, untouched) {}
    size_t size;
    std::vector<std::byte> bytes;
    BUFFER_HANDLE handle = nullptr;
};

frame_reader::frame_reader(open_camera& camera, size_t count, bool extended_ids, size_t buffer_size)
    : from(camera), extended(extended_ids) {
    const cli::gentl_library& lib = *from.lib;
    if (!from.stream) {
        DS_HANDLE handle = nullptr;
        lib.check("DevOpenDataStream", lib.DevOpenDataStream(from.device->get(), "Stream0", &handle));
        from.stream = std::make_shared<cli::tl_stream>(from.device, handle, lib.DSClose);
        lib.check("GCRegisterEvent", lib.GCRegisterEvent(from.stream->get(), EVENT_NEW_BUFFER, &from.new_buffer));
    }
    if (buffer_size == 0) buffer_size = static_cast<size_t>(from.integer("PayloadSize"));
    for (size_t i = 0; i < count; ++i) {
        memory& buffer = *buffers.emplace_back(std::make_unique<memory>(buffer_size));
        lib.check("DSAnnounceBuffer",
                  lib.DSAnnounceBuffer(from.stream->get(), buffer.bytes.data(), buffer.size, &buffer, &buffer.handle));
        queue(buffer);
    }
}

frame_reader::~frame_reader() {
    const cli::gentl_library& lib = *from.lib;
    // Where a test ended early. Memory that the library could still write must not go before the stream is quiet.
    static_cast<void>(lib.DSStopAcquisition(from.stream->get(), ACQ_STOP_FLAGS_KILL));
    static_cast<void>(lib.DSFlushQueue(from.stream->get(), ACQ_QUEUE_ALL_DISCARD));
    for (const auto& buffer : buffers)
        static_cast<void>(lib.DSRevokeBuffer(from.stream->get(), buffer->handle, nullptr, nullptr));
}

void frame_reader::queue(memory& buffer) {
    std::fill_n(buffer.bytes.begin(), buffer.size, untouched);
    from.lib->check("DSQueueBuffer", from.lib->DSQueueBuffer(from.stream->get(), buffer.handle));
}

void frame_reader::allow_pauses() {
    cli::set_from_text(cli::require_node(features(), "StreamPacketResendAutoTimePerFrame"), "false");
    cli::set_from_text(cli::require_node(features(), "StreamPacketResendTimePerFrame"), "2000000");
}

void frame_reader::start(uint64_t frames) {
    from.set("AcquisitionMode", frames == 0 ? "Continuous" : "MultiFrame");
    if (frames != 0) from.set("AcquisitionFrameCount", std::to_string(frames));
    from.lib->check("DSStartAcquisition", from.lib->DSStartAcquisition(from.stream->get(), 0, GENTL_INFINITE));
    packet_bytes = from.integer("GevSCPSPacketSize");
    last_number = 0;
    from.execute("AcquisitionStart");
}

void frame_reader::stop() {
    from.execute("AcquisitionStop");
    from.lib->check("DSStopAcquisition", from.lib->DSStopAcquisition(from.stream->get(), 0));
}

std::optional<read_frame> frame_reader::next(uint64_t timeout_ms) {
    const cli::gentl_library& lib = *from.lib;
    EVENT_NEW_BUFFER_DATA event{};
    size_t size = sizeof event;
    const GC_ERROR code = lib.EventGetData(from.new_buffer, &event, &size, timeout_ms);
    if (code == GC_ERR_TIMEOUT) return std::nullopt;
    lib.check("EventGetData", code);
    const auto of = [&]<class T>(T, BUFFER_INFO_CMD command) {
        return cli::ask_value<T>(lib, "DSGetBufferInfo", [&](INFO_DATATYPE* type, void* value, size_t* length) {
            return lib.DSGetBufferInfo(from.stream->get(), event.BufferHandle, command, type, value, length);
        });
    };
    read_frame frame;
    frame.block_id = of(uint64_t{}, BUFFER_INFO_FRAMEID);
    frame.timestamp = of(uint64_t{}, BUFFER_INFO_TIMESTAMP);
    frame.width = of(size_t{}, BUFFER_INFO_WIDTH);
    frame.height = of(size_t{}, BUFFER_INFO_HEIGHT);
    frame.filled = of(size_t{}, BUFFER_INFO_SIZE_FILLED);
    frame.data_size = of(size_t{}, BUFFER_INFO_DATA_SIZE);
    frame.pixel_format = static_cast<uint32_t>(of(uint64_t{}, BUFFER_INFO_PIXELFORMAT));
    frame.incomplete = of(bool8_t{}, BUFFER_INFO_IS_INCOMPLETE) != 0;
    frame.too_large = of(bool8_t{}, BUFFER_INFO_DATA_LARGER_THAN_BUFFER) != 0;
    frame.has_chunks = of(bool8_t{}, BUFFER_INFO_CONTAINS_CHUNKDATA) != 0;
    auto& buffer = *static_cast<memory*>(event.pUserPointer);
    compare(frame, buffer);
    queue(buffer);
    return frame;
}

void frame_reader::compare(read_frame& frame, const memory& buffer) {
    const uint64_t number = last_number = gige::frame_of_block(frame.block_id, extended, last_number);
    const auto width = static_cast<uint32_t>(frame.width);
    const auto height = static_cast<uint32_t>(frame.height);
    expected.resize(gige::test_picture_size(width, height, frame.pixel_format));
    gige::fill_test_picture(number, width, height, frame.pixel_format, expected);
    const size_t end = std::min(expected.size(), buffer.size);
    const auto each = static_cast<size_t>(packet_bytes) - (extended ? 48 : 36);
    for (size_t at = 0; at < end; at += each) {
        const size_t length = std::min(each, end - at);
        if (std::memcmp(&buffer.bytes[at], &expected[at], length) == 0) {
            frame.data_end = at + length;
        } else if (std::all_of(&buffer.bytes[at], &buffer.bytes[at] + length,
                               [](std::byte each_byte) { return each_byte == untouched; })) {
            ++frame.missing_packets;
        } else {
            ++frame.foreign_packets;
        }
    }
}

uint64_t frame_reader::info(STREAM_INFO_CMD command) const {
    return cli::ask_value<uint64_t>(*from.lib, "DSGetInfo", [&](INFO_DATATYPE* type, void* value, size_t* size) {
        return from.lib->DSGetInfo(from.stream->get(), command, type, value, size);
    });
}

size_t frame_reader::size_info(STREAM_INFO_CMD command) const {
    return cli::ask_value<size_t>(*from.lib, "DSGetInfo", [&](INFO_DATATYPE* type, void* value, size_t* size) {
        return from.lib->DSGetInfo(from.stream->get(), command, type, value, size);
    });
}

cli::node_map& frame_reader::features() {
    if (!stream_nodes) stream_nodes = std::make_unique<cli::node_map>(*from.lib, from.stream->get());
    return *stream_nodes;
}

bool frame_reader::margins_untouched() const {
    return std::ranges::all_of(buffers, [](const auto& buffer) {
        return std::all_of(buffer->bytes.begin() + static_cast<std::ptrdiff_t>(buffer->size), buffer->bytes.end(),
                           [](std::byte each) { return each == untouched; });
    });
}

} // namespace test_support
