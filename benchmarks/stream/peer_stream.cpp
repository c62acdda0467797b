#include "peer_stream.h"

#ifdef ORV_WITH_ARAVIS

#include <arv.h>

namespace bench {

namespace {

void check(const GError* error, const char* what) {
    if (error != nullptr) fail(std::string{"peer, "} + what + ": " + error->message);
}

} // namespace

bool has_peer() noexcept { return true; }

struct peer_stream::objects {
    GInetAddress* own = nullptr;
    GInetAddress* camera = nullptr;
    ArvDevice* device = nullptr;
    ArvStream* stream = nullptr;
    ArvBuffer* held = nullptr;
};

peer_stream::peer_stream(const place& where, const stream_shape& stream, bool packet_socket, int buffers)
    : shape(stream), peer(std::make_unique<objects>()) {
    GError* error = nullptr;
    peer->own = g_inet_address_new_from_string(gige::to_string(where.consumer).c_str());
    peer->camera = g_inet_address_new_from_string(gige::to_string(where.camera).c_str());
    peer->device = arv_gv_device_new(peer->own, peer->camera, &error);
    check(error, "device");
    auto* gv_device = reinterpret_cast<ArvGvDevice*>(peer->device);
    arv_gv_device_set_packet_size_adjustment(gv_device, ARV_GV_PACKET_SIZE_ADJUSTMENT_NEVER);
    arv_gv_device_set_stream_options(gv_device, packet_socket ? ARV_GV_STREAM_OPTION_NONE
                                                              : ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
    arv_gv_device_set_packet_size(gv_device, static_cast<gint>(shape.packet_size), &error);
    check(error, "packet size");
    peer->stream = arv_device_create_stream(peer->device, nullptr, nullptr, &error);
    check(error, "stream");
    g_object_set(peer->stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size", socket_buffer,
                 nullptr);
    for (int i = 0; i < buffers; ++i) {
        arv_stream_push_buffer(peer->stream, arv_buffer_new(shape.payload_size(), nullptr));
    }
}

peer_stream::~peer_stream() {
    if (peer->held != nullptr) g_object_unref(peer->held);
    g_object_unref(peer->stream);
    g_object_unref(peer->device);
    g_object_unref(peer->own);
    g_object_unref(peer->camera);
}

void peer_stream::start() {
    GError* error = nullptr;
    for (const auto& [address, value] : start_registers(shape)) {
        arv_device_write_register(peer->device, address, value, &error);
        check(error, "start");
    }
}

std::optional<peer_stream::frame> peer_stream::next(std::chrono::microseconds wait) {
    if (peer->held != nullptr) arv_stream_push_buffer(peer->stream, peer->held);
    peer->held = arv_stream_timeout_pop_buffer(peer->stream, static_cast<guint64>(wait.count()));
    if (peer->held == nullptr) return std::nullopt;
    return frame{arv_buffer_get_frame_id(peer->held), arv_buffer_get_status(peer->held) == ARV_BUFFER_STATUS_SUCCESS};
}

} // namespace bench

#else

namespace bench {

bool has_peer() noexcept { return false; }
struct peer_stream::objects {};
peer_stream::peer_stream(const place&, const stream_shape& stream, bool, int) : shape(stream) {
    fail("built without libaravis-dev");
}
peer_stream::~peer_stream() = default;
void peer_stream::start() {}
std::optional<peer_stream::frame> peer_stream::next(std::chrono::microseconds) { return std::nullopt; }

} // namespace bench

#endif
