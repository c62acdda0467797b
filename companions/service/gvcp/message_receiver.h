// The message channel's end on this host: receives a camera's events, acknowledges them and hands them over.
#pragma once

#include "device_control.h"

#include <deque>

namespace gvcp_master {

// The header of an EVENT or EVENTDATA datagram with at least one record.
[[nodiscard]] std::optional<gige::gvcp::command_header> parse_event(std::span<const std::byte> datagram);

class message_receiver {
public:
    // A whole EVENT or EVENTDATA datagram, header included, each once. Called on the receiver's thread.
    using event_function = std::function<void(std::span<const std::byte>)>;

    // Binds on the address the control channel uses, and tells the camera where to send. Fails with not_implemented
    // for a camera without a message channel. `camera` must outlive it.
    [[nodiscard]] static std::expected<std::unique_ptr<message_receiver>, std::error_code>
    open(device_control& camera, uint32_t local_address, event_function on_event);
    ~message_receiver(); // closes the camera's channel, unless the camera is lost

private:
    message_receiver(device_control& from, gige::udp_socket opened, event_function on_event);
    void run();
    void receive_all();

    device_control& camera;
    gige::udp_socket socket;
    event_function deliver;
    std::deque<uint16_t> seen; // latest request ids: repetitions are acknowledged, not delivered
    gige::waker wakeup;
    std::atomic<bool> quit{};
    std::thread thread;
};

} // namespace gvcp_master
