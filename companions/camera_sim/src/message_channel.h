// Events to the consumer: sent, repeated until acknowledged. Control thread only.
#pragma once

#include "device_state.h"
#include "fault_plan.h"

#include <gige/udp_socket.h>

#include <optional>
#include <vector>

namespace camera_sim {

struct camera_event {
    uint16_t id{};
    uint64_t block_id{};
    uint64_t timestamp{};
    std::vector<std::byte> data;
};

class message_channel {
public:
    explicit message_channel(device_state& shared) : device{shared}, losses{shared.options.faults.seed * 17 + 5} {}
    [[nodiscard]] std::error_code open(uint32_t address);
    [[nodiscard]] int native() const noexcept { return socket.native(); }
    [[nodiscard]] uint16_t source_port() const { return socket.local().port; }

    void send(const camera_event& event); // nothing while the channel is closed
    void receive();                       // acknowledges
    void repeat_overdue();
    void close() { waiting.clear(); }
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> next_deadline() const;

private:
    struct unacknowledged {
        std::vector<std::byte> datagram;
        std::chrono::steady_clock::time_point due;
        uint32_t retries_left{};
        bool unheard{}; // its next acknowledge is lost on purpose
    };
    [[nodiscard]] gige::endpoint destination() const;
    device_state& device;
    gige::udp_socket socket;
    std::vector<unacknowledged> waiting;
    uint16_t last_id = 0;
    dice losses;
};

} // namespace camera_sim
