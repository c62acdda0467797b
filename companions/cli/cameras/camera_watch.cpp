#include "camera_watch.h"

#include "../consumer/stream_buffers.h"
#include "../failure/first_failure.h"

#include <fmt/format.h>

#include <array>

namespace cli {

using namespace GenTL;

camera_watch::camera_watch(const found_devices& found, const device_entry& chosen,
                           const std::shared_ptr<const tl_interface>& interface, DEVICE_ACCESS_FLAGS access)
    : library(found.lib), lib(*library), name(chosen.id) {
    try {
        device = open_chosen(found, chosen, interface, access);
    } catch (const failure& refused) {
        if (refused.why() != cause::busy || access == DEVICE_ACCESS_READONLY) throw;
        why = refused.what();
        why = why.substr(0, why.find('\n'));
        device = open_device(lib, interface, chosen.id, DEVICE_ACCESS_READONLY);
        now = state::held;
    }
    if (access == DEVICE_ACCESS_READONLY) now = state::held;
    remote = std::make_unique<node_map>(lib, remote_port(lib, *device));
    try {
        if (now == state::streaming) start();
    } catch (...) {
        try {
            stop();
        } catch (const std::exception&) {
            // What kept it from starting is the reason to tell.
        }
        throw;
    }
    look();
}

camera_watch::~camera_watch() {
    try {
        stop();
    } catch (const std::exception&) {
        // Nobody asks any more.
    }
}

void camera_watch::start() {
    constexpr size_t buffers = 20;
    stream = open_stream(lib, device);
    stream_nodes = std::make_unique<node_map>(lib, stream->get());
    announce_buffers(lib, *stream, *remote, buffers);
    lib.check("GCRegisterEvent", lib.GCRegisterEvent(stream->get(), EVENT_NEW_BUFFER, &new_buffer));
    lib.check("DSStartAcquisition", lib.DSStartAcquisition(stream->get(), ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    acquiring = true;
    if (remote->document().find_node("TLParamsLocked") != nullptr)
        set_from_text(require_node(*remote, "TLParamsLocked"), "1");
    receiver = std::thread{[this] { receive(); }};
    started = true;
    execute(require_node(*remote, "AcquisitionStart"));
}

void camera_watch::receive() {
    constexpr uint64_t slice_ms = 100;
    while (!ending) {
        EVENT_NEW_BUFFER_DATA event{};
        size_t size = sizeof event;
        const GC_ERROR code = lib.EventGetData(new_buffer, &event, &size, slice_ms);
        if (code == GC_ERR_TIMEOUT) continue;
        bool8_t is_incomplete = 0;
        size_t filled = 0;
        const auto ask = [&](BUFFER_INFO_CMD command, auto& value) {
            INFO_DATATYPE type = 0;
            size_t bytes_of_value = sizeof value;
            return lib.DSGetBufferInfo(stream->get(), event.BufferHandle, command, &type, &value, &bytes_of_value);
        };
        GC_ERROR failed = code;
        if (failed == GC_ERR_SUCCESS) failed = ask(BUFFER_INFO_IS_INCOMPLETE, is_incomplete);
        if (failed == GC_ERR_SUCCESS) failed = ask(BUFFER_INFO_SIZE_FILLED, filled);
        if (failed == GC_ERR_SUCCESS) failed = lib.DSQueueBuffer(stream->get(), event.BufferHandle);
        if (failed != GC_ERR_SUCCESS) {
            if (!ending) receive_error = failed;
            return;
        }
        if (is_incomplete != 0) ++incomplete;
        bytes += filled;
        ++frames;
    }
}

void camera_watch::look() {
    if (now == state::lost) return;
    std::array<std::byte, 4> word{};
    size_t size = word.size();
    GC_ERROR code = receive_error;
    if (code == GC_ERR_SUCCESS) code = lib.GCReadPort(remote_port(lib, *device), 0, word.data(), &size);
    if (code != GC_ERR_SUCCESS) {
        now = state::lost;
        why = fmt::format("gone after {} frames: {}", frames.load(), lib.last_error(code));
        return;
    }
    celsius = feature_number(*remote, "DeviceTemperature");
    rate_set = feature_number(*remote, "AcquisitionFrameRate");
    if (!stream) return;
    INFO_DATATYPE type = 0;
    size = sizeof lost_frames;
    // Of our producer; another's number of this command means something else or nothing.
    if (lib.DSGetInfo(stream->get(), STREAM_INFO_KRV_NUM_TRANSMISSION_DROP, &type, &lost_frames, &size) !=
        GC_ERR_SUCCESS)
        lost_frames = 0;
    resends = static_cast<int64_t>(feature_number(*stream_nodes, "StreamResendRequestedPackets").value_or(0));
}

camera_watch::figures camera_watch::counted() const { return {frames, incomplete, bytes, lost_frames, resends}; }

void camera_watch::stop() {
    first_failure failures;
    if (started) failures.attempt([&] { execute(require_node(*remote, "AcquisitionStop")); });
    ending = true;
    if (receiver.joinable()) receiver.join();
    if (started && remote->document().find_node("TLParamsLocked") != nullptr)
        failures.attempt([&] { set_from_text(require_node(*remote, "TLParamsLocked"), "0"); });
    if (started) failures.attempt([&] { look(); });
    if (acquiring)
        failures.attempt(
            [&] { lib.check("DSStopAcquisition", lib.DSStopAcquisition(stream->get(), ACQ_STOP_FLAGS_DEFAULT)); });
    if (new_buffer != nullptr)
        failures.attempt(
            [&] { lib.check("GCUnregisterEvent", lib.GCUnregisterEvent(stream->get(), EVENT_NEW_BUFFER)); });
    if (stream)
        failures.attempt([&] { lib.check("DSFlushQueue", lib.DSFlushQueue(stream->get(), ACQ_QUEUE_ALL_DISCARD)); });
    started = acquiring = false;
    new_buffer = nullptr;
    // Of a camera that has gone each step fails, which is known.
    if (now != state::lost) failures.rethrow();
}

} // namespace cli
