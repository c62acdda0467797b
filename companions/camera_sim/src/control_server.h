// The camera's end of the control protocol: one thread that answers requests, watches the heartbeat and carries the
// message channel.
#pragma once

#include "device_state.h"
#include "fault_plan.h"
#include "firmware_slot.h"
#include "message_channel.h"
#include "stream_sender.h"

#include <gige/udp_socket.h>

#include <deque>
#include <map>
#include <optional>
#include <thread>

namespace camera_sim {

// Thread-bound, but for what is marked. Everything above the waker is the server's own thread's once it runs.
class control_server {
public:
    control_server(device_state& shared, stream_sender& stream);
    ~control_server();

    // Binds the sockets and starts the thread.
    [[nodiscard]] std::error_code start(uint32_t address);

    // From any thread.
    [[nodiscard]] uint32_t address() const noexcept { return own_address; }
    void queue_event(camera_event event);
    void ask_reboot();
    void ask_reseed();
    void end_silence_in(std::chrono::milliseconds wait);

private:
    using clock = std::chrono::steady_clock;
    using status = gige::gvcp::status;

    struct request {
        gige::gvcp::command_header header;
        std::span<const std::byte> body;
        gige::endpoint from;
        const gige::udp_socket* reply_socket{};
    };
    // What a handler puts behind the acknowledge's header.
    struct answer {
        status result{};
        gige::gvcp::command code{};
        std::array<std::byte, gige::gvcp::max_body> body;
        std::size_t size{};
    };
    struct remembered { // the last acknowledge to one consumer, for its repetitions
        uint16_t request_id{};
        gige::gvcp::command code{};
        std::vector<std::byte> datagram;
    };
    struct late_ack {
        clock::time_point due;
        gige::endpoint to;
        std::vector<std::byte> datagram;
        uint16_t request_id{};
    };
    struct scheduled_action {
        uint64_t at{}; // device time
    };

    [[nodiscard]] std::error_code bind(uint32_t address);
    void run();
    void receive_all(const gige::udp_socket& socket, bool broadcast);
    void handle(const request& what);
    // An undelivered acknowledge is remembered all the same: the work is done.
    void reply(const request& what, const answer& built, bool deliver);
    void send_later(clock::time_point due, const gige::endpoint& to, std::vector<std::byte> datagram, uint16_t id);
    void count_refusal(const request& what, status result);
    [[nodiscard]] gige::endpoint destination_of(const request& what) const;
    [[nodiscard]] std::optional<clock::time_point> next_deadline() const;
    void work_deadlines();

    void discovery(const request& what, answer& built);
    [[nodiscard]] bool force_ip(const request& what, answer& built); // false: another camera is meant
    void read_registers(const request& what, answer& built);
    void write_registers(const request& what, answer& built);
    void read_memory(const request& what, answer& built);
    void write_memory(const request& what, answer& built);
    [[nodiscard]] bool action(const request& what, answer& built); // false: of other cameras' keys
    void resend(const request& what);

    [[nodiscard]] bool is_holder(const gige::endpoint& from) const { return holder && *holder == from; }
    [[nodiscard]] status may_read(const gige::endpoint& from) const;
    // Checks, stores and acts on a write of whole words.
    [[nodiscard]] status write(const gige::endpoint& from, uint32_t address, std::span<const std::byte> data);
    [[nodiscard]] status write_privilege(const gige::endpoint& from, uint32_t value);
    [[nodiscard]] status validate(uint32_t address, uint32_t value) const; // under the device's mutex
    void after_write(uint32_t address, uint32_t value);
    void release_control();
    void begin_reboot();
    void finish_reboot();
    [[nodiscard]] uint32_t start_address();
    void change_address(uint32_t address);
    void run_action();

    device_state& device;
    stream_sender& stream;
    message_channel messages;
    firmware_slot firmware;

    gige::udp_socket unicast;
    std::vector<gige::udp_socket> broadcasts;
    std::atomic<uint32_t> own_address{};

    std::optional<gige::endpoint> holder;
    clock::time_point last_heard{}; // from the holder
    std::map<gige::endpoint, remembered> last_acks;
    std::deque<late_ack> late_acks; // by due time
    std::vector<scheduled_action> actions;
    std::optional<clock::time_point> reboot_ends;
    std::optional<uint32_t> next_address; // to change to when the acknowledge is out
    dice control_dice;
    uint64_t acks_built = 0;
    std::vector<std::byte> default_set; // the device registers at start-up, without the table
    std::vector<std::byte> saved_set;   // as UserSetSave found them

    gige::waker wakeup;
    mutable std::mutex queue_mutex; // guards the members below it up to the thread
    std::vector<camera_event> queued_events;
    bool reboot_asked = false;
    bool reseed_asked = false;
    std::optional<clock::time_point> silence_ends;
    bool quit = false;
    std::thread thread;
};

} // namespace camera_sim
