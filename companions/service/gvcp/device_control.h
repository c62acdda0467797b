// One open camera: privilege, heartbeat, memory access of any length and alignment, loss detection.
#pragma once

#include "control_channel.h"

#include <condition_variable>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

namespace gvcp_master {

enum class access_mode : uint32_t { read_only = 1, control = 2, exclusive = 3 };

inline constexpr milliseconds default_timeout{3000};
inline constexpr milliseconds longest_transfer{120'000};

// Thread-safe; requests to the camera take turns.
class device_control {
public:
    struct options {
        gige::endpoint device{};
        // Of the camera that is meant: another one at its address is not opened, std::errc::host_unreachable.
        std::optional<uint64_t> mac{};
        uint32_t local_address = 0; // 0: by the routing table
        // Of a session that ended without giving control back: a camera knows its controller by address and port, and
        // takes the one for the other. 0, or one that is taken: any.
        uint16_t port = 0;
        access_mode access = access_mode::control;
        bool patient = false; // waits one heartbeat time-out, at most longest_patience, while another has control
        milliseconds heartbeat_timeout{0}; // 0 leaves the camera's own
        milliseconds attempt{250};
        milliseconds pending{60'000}; // the longest that PENDING_ACK can make a request
        // The longest for one transfer, unless its time-out is longer, and beyond that 50 ms for each of its requests
        // when it reads, the time-out, at least default_timeout, when it writes. No request begins later.
        milliseconds transfer = longest_transfer;
        // Requests and waits end with std::errc::operation_canceled, and closing waits for nothing.
        std::stop_token stop{};
        std::stop_token opening{}; // the same for the opening alone, which fails then
        // Called once, on a thread of the service, when the camera is gone or control is lost. Must not destroy the
        // object.
        std::function<void(std::error_code)> lost{};
    };
    static constexpr milliseconds longest_patience{10'000};

    [[nodiscard]] static std::expected<std::unique_ptr<device_control>, std::error_code> open(options chosen);
    // Gives the privilege back; a camera that is gone costs at most half a second, a session that is lost nothing.
    ~device_control();
    device_control(const device_control&) = delete;
    device_control& operator=(const device_control&) = delete;

    // The time-out is each request's.
    [[nodiscard]] std::error_code read_memory(uint64_t address, std::span<std::byte> to,
                                              milliseconds timeout = default_timeout);
    // Words written in part are read first. Who opened it to read is denied all writing: the camera might let him take
    // control, which nobody would keep or give back.
    [[nodiscard]] std::error_code write_memory(uint64_t address, std::span<const std::byte> from,
                                               milliseconds timeout = default_timeout);
    [[nodiscard]] std::expected<uint32_t, std::error_code> read_register(uint64_t address,
                                                                         milliseconds timeout = default_timeout);
    [[nodiscard]] std::error_code write_register(uint64_t address, uint32_t value,
                                                 milliseconds timeout = default_timeout);

    // Fire and forget; neither waits behind register accesses.
    [[nodiscard]] std::error_code post_register(uint32_t address, uint32_t value);
    [[nodiscard]] std::error_code request_resend(uint32_t channel, uint64_t block_id, uint32_t first, uint32_t last,
                                                 bool extended);

    [[nodiscard]] std::expected<std::string, std::error_code> read_text(uint64_t address, std::size_t capacity);
    // The user-defined name: at most 15 bytes, any but zero.
    [[nodiscard]] std::error_code write_user_name(const std::string& name);
    // Persistent address for the next start of the camera; `use` switches it on or off.
    [[nodiscard]] std::error_code write_persistent_ip(bool use, uint32_t address, uint32_t mask, uint32_t gateway);

    // From the camera's next start on; the persistent address is kept, not used.
    [[nodiscard]] std::error_code use_dhcp();

    // Requests that wait end, later ones are refused: for an object whose owner is gone and that is about to be
    // destroyed. Any thread.
    void cancel() noexcept { cancelling.request_stop(); }
    // Cancelled, or stopped: for what is done on behalf of the camera beside its control channel.
    [[nodiscard]] std::stop_token cancelled() const noexcept { return cancelling.get_token(); }

    [[nodiscard]] uint32_t capability() const noexcept {
        return control_capability;
    } // register 0x0934, 0 if unreadable
    [[nodiscard]] bool is_lost() const noexcept { return lost_flag; }
    // For one who knows better than the heartbeat: the interface is gone.
    void give_up() { report_loss(); }
    [[nodiscard]] gige::endpoint device() const noexcept { return channel->device(); }
    [[nodiscard]] gige::endpoint local() const { return channel->local(); }
    [[nodiscard]] access_mode access() const noexcept { return chosen.access; }

private:
    device_control(options from, std::unique_ptr<control_channel> opened);
    [[nodiscard]] std::error_code take_privilege();
    [[nodiscard]] std::error_code check_identity();
    [[nodiscard]] std::error_code claim(uint32_t wanted);
    void run_heartbeat();
    enum class session { alive, lost, unanswered, not_asked, ended };
    [[nodiscard]] session beat(milliseconds interval, bool refused, bool times);
    [[nodiscard]] static std::error_code write_as_controller(control_channel::turn& turn, uint32_t privilege);
    void report_loss();
    [[nodiscard]] std::error_code write_words(uint64_t address, std::span<const std::byte> from, milliseconds timeout);
    // Around every write: the heartbeat learns from the outcome.
    template <class Write>
    [[nodiscard]] std::error_code guarded(uint64_t address, std::size_t size, Write write);
    void take_heartbeat_timeout(uint32_t ms);
    [[nodiscard]] std::error_code check_range(uint64_t address, std::size_t size) const;

    const options chosen;
    std::unique_ptr<control_channel> channel;
    uint32_t control_capability = 0;
    bool privileged = false; // we hold it
    std::atomic<bool> lost_flag{};
    uint32_t last_privilege = 0; // the heartbeat thread's

    std::mutex mutex; // guards the members up to the thread
    std::condition_variable changed;
    milliseconds heartbeat{3000};
    bool doubtful = false;      // a write was refused: is control still ours?
    bool times_written = false; // the heartbeat time-out may be another
    bool quit = false;
    std::thread thread;
    std::stop_source cancelling;
    using on_request = std::stop_callback<std::function<void()>>;
    std::optional<on_request> on_cancel; // ends the channel's requests
    std::optional<on_request> on_stop;   // cancels
};

} // namespace gvcp_master
