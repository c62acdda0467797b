// The message channel's end on this host: receives a camera's events, acknowledges them and hands them over.
#pragma once

#include "device_control.h"

#include <bitset>
#include <chrono>
#include <vector>

namespace gvcp_master {

// The header of an EVENT or EVENTDATA datagram with at least one record.
[[nodiscard]] std::optional<gige::gvcp::command_header> parse_event(std::span<const std::byte> datagram);

// Request ids for as long as a camera may repeat one: a camera that starts over sends the same ones again soon after.
// At most 8192, far fewer than there are, so that an id is forgotten before it comes again by right at any rate.
class latest_ids {
public:
    using clock = std::chrono::steady_clock;
    explicit latest_ids(clock::duration repeated_for) : horizon{repeated_for} {}
    [[nodiscard]] bool insert(uint16_t id, clock::time_point now); // false for one that is there already

private:
    struct entry {
        uint16_t id{};
        clock::time_point since{};
    };
    const clock::duration horizon;
    std::bitset<65536> known;
    std::vector<entry> ring = std::vector<entry>(8192);
    std::size_t oldest = 0;
    std::size_t count = 0;
};

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
    message_receiver(device_control& from, gige::udp_socket opened, milliseconds repeated_for, event_function on_event);
    void run();
    void receive_all();

    device_control& camera;
    gige::udp_socket socket;
    event_function deliver;
    latest_ids seen; // repetitions are acknowledged, not delivered
    gige::waker wakeup;
    std::atomic<bool> quit{};
    std::thread thread;
};

} // namespace gvcp_master
