// One open camera: privilege, heartbeat, memory access of any length and alignment, loss detection.
#pragma once

#include "control_channel.h"

#include <condition_variable>
#include <functional>
#include <string>
#include <thread>

namespace gvcp_master {

enum class access_mode : uint32_t { read_only = 1, control = 2, exclusive = 3 };

inline constexpr milliseconds default_timeout{3000};

// Every operation may be called from any thread; requests to the camera take turns.
class device_control {
public:
    struct options {
        gige::endpoint device{};
        uint32_t local_address = 0; // 0: by the routing table
        access_mode access = access_mode::control;
        milliseconds heartbeat_timeout{0}; // 0 leaves the camera's own
        milliseconds attempt{250};
        // Called once, on the heartbeat thread, when the camera is gone or has dropped the privilege. Must not
        // destroy the object.
        std::function<void(std::error_code)> lost{};
    };

    [[nodiscard]] static std::expected<std::unique_ptr<device_control>, std::error_code> open(options chosen);
    ~device_control(); // gives the privilege back; a camera that is gone costs at most half a second
    device_control(const device_control&) = delete;
    device_control& operator=(const device_control&) = delete;

    [[nodiscard]] std::error_code read_memory(uint64_t address, std::span<std::byte> to,
                                              milliseconds timeout = default_timeout);
    // Words written in part are read first.
    [[nodiscard]] std::error_code write_memory(uint64_t address, std::span<const std::byte> from,
                                               milliseconds timeout = default_timeout);
    [[nodiscard]] std::expected<uint32_t, std::error_code> read_register(uint64_t address,
                                                                         milliseconds timeout = default_timeout);
    [[nodiscard]] std::error_code write_register(uint64_t address, uint32_t value,
                                                 milliseconds timeout = default_timeout);

    // Fire and forget; does not wait behind register accesses.
    [[nodiscard]] std::error_code request_resend(uint32_t channel, uint64_t block_id, uint32_t first, uint32_t last,
                                                 bool extended);

    [[nodiscard]] std::expected<std::string, std::error_code> read_text(uint64_t address, std::size_t capacity);
    // The user-defined name: at most 15 bytes, any but zero.
    [[nodiscard]] std::error_code write_user_name(const std::string& name);
    // Persistent address for the next start of the camera; `use` switches it on or off.
    [[nodiscard]] std::error_code write_persistent_ip(bool use, uint32_t address, uint32_t mask, uint32_t gateway);

    // Requests that wait end, later ones are refused: for an object whose owner is gone and that is about to be
    // destroyed. Any thread.
    void cancel() noexcept { channel->set_cancelled(true); }

    [[nodiscard]] uint32_t capability() const noexcept {
        return control_capability;
    } // register 0x0934, 0 if unreadable
    [[nodiscard]] bool is_lost() const noexcept { return lost_flag; }
    [[nodiscard]] gige::endpoint device() const noexcept { return channel->device(); }
    [[nodiscard]] gige::endpoint local() const { return channel->local(); }
    [[nodiscard]] access_mode access() const noexcept { return chosen.access; }

private:
    device_control(options from, std::unique_ptr<control_channel> opened);
    [[nodiscard]] std::error_code take_privilege();
    void run_heartbeat();
    void report_loss(std::error_code why);
    [[nodiscard]] std::error_code check_range(uint64_t address, std::size_t size) const;

    const options chosen;
    std::unique_ptr<control_channel> channel;
    uint32_t control_capability = 0;
    bool privileged = false; // we hold it
    milliseconds heartbeat{3000};
    std::atomic<bool> lost_flag{};
    std::mutex mutex;
    std::condition_variable changed;
    bool quit = false;
    std::thread thread;
};

} // namespace gvcp_master
