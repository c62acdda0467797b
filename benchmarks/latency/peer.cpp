#include "latency.h"

#ifdef ORV_WITH_ARAVIS

#include <arv.h>

namespace bench {

bool has_latency_peer() noexcept { return true; }

arrivals frames_by_peer(const place& where, const stream_shape& shape, bool packet_socket) {
    GError* error = nullptr;
    const auto check = [&](const char* what) {
        if (error != nullptr) fail(std::string{what} + ": " + error->message);
    };
    GInetAddress* own = g_inet_address_new_from_string(gige::to_string(where.consumer).c_str());
    GInetAddress* camera = g_inet_address_new_from_string(gige::to_string(where.camera).c_str());
    ArvDevice* device = arv_gv_device_new(own, camera, &error);
    check("peer, device");
    auto* gv_device = reinterpret_cast<ArvGvDevice*>(device);
    arv_gv_device_set_packet_size_adjustment(gv_device, ARV_GV_PACKET_SIZE_ADJUSTMENT_NEVER);
    arv_gv_device_set_stream_options(gv_device, packet_socket ? ARV_GV_STREAM_OPTION_NONE
                                                              : ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
    arv_gv_device_set_packet_size(gv_device, static_cast<gint>(shape.packet_size), &error);
    check("peer, packet size");
    ArvStream* stream = arv_device_create_stream(device, nullptr, nullptr, &error);
    check("peer, stream");
    g_object_set(stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size", socket_buffer,
                 nullptr);
    for (int i = 0; i < 16; ++i) arv_stream_push_buffer(stream, arv_buffer_new(shape.payload_size(), nullptr));
    for (const auto& [address, value] : start_registers(shape)) {
        arv_device_write_register(device, address, value, &error);
        check("peer, start");
    }
    arrivals seen(shape.frames + 1);
    for (uint32_t ended = 0; ended < shape.frames; ++ended) {
        ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream, ended == 0 ? 5'000'000 : 500'000);
        if (buffer == nullptr) break;
        const int64_t now = steady_ns();
        if (arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS) {
            note(seen, arv_buffer_get_frame_id(buffer), now);
        }
        arv_stream_push_buffer(stream, buffer);
    }
    g_object_unref(stream);
    g_object_unref(device);
    g_object_unref(own);
    g_object_unref(camera);
    return seen;
}

} // namespace bench

#else

namespace bench {

bool has_latency_peer() noexcept { return false; }
arrivals frames_by_peer(const place&, const stream_shape&, bool) { fail("built without libaravis-dev"); }

} // namespace bench

#endif
