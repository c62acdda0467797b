// Requests to one camera over one control socket: repeated with the same id until answered, patient with PENDING_ACK.
#pragma once

#include <gige/gvcp.h>
#include <gige/udp_socket.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <expected>
#include <memory>
#include <mutex>
#include <span>
#include <system_error>

namespace gvcp_master {

using std::chrono::milliseconds;

// Thread-safe; a turn belongs to one thread. Errors are gigecam_errc values (a camera's status 0x8xxx as 0x80008xxx),
// or the system's for socket failures.
class control_channel {
public:
    struct timing {
        milliseconds attempt{250};    // between repetitions
        milliseconds pending{60'000}; // a request takes no longer than this, however often the camera asks for patience
    };

    // Address 0 leaves the choice to the routing table. A port that is taken is replaced by a free one.
    [[nodiscard]] static std::expected<std::unique_ptr<control_channel>, std::error_code>
    open(gige::endpoint device, gige::endpoint local, timing chosen);

    // Cameras take one request at a time. A turn is the right to make one, or several that nobody else's come between.
    // Callers have theirs in the order in which they came.
    class turn final {
    public:
        // Waits no longer than `timeout`, which the requests made in it share; what a camera asked another's request to
        // be patient for does not count.
        turn(control_channel& wanted, milliseconds timeout);
        // The heartbeat's: goes before callers that wait, and gives way to them when its answer is overdue; its request
        // then ends with std::errc::resource_unavailable_try_again.
        struct gives_way_tag {};
        static constexpr gives_way_tag gives_way{};
        turn(control_channel& wanted, milliseconds timeout, gives_way_tag);
        ~turn();
        turn(const turn&) = delete;
        turn& operator=(const turn&) = delete;
        [[nodiscard]] explicit operator bool() const noexcept { return had; } // false: not within the time

        // Sends, waits for the acknowledge and copies its body to `answer`; the count is the body's length, which may
        // be more than fitted.
        [[nodiscard]] std::expected<std::size_t, std::error_code>
        transact(gige::gvcp::command code, std::span<const std::byte> body, std::span<std::byte> answer);
        [[nodiscard]] std::expected<uint32_t, std::error_code> read_register(uint32_t address);
        [[nodiscard]] std::error_code write_register(uint32_t address, uint32_t value);

    private:
        using time_point = std::chrono::steady_clock::time_point;
        control_channel& channel;
        time_point began;
        const milliseconds time;
        const bool yields;
        bool had = false;
        turn* behind = nullptr; // the caller who came next, while this one waits
    };

    // Requests end with std::errc::operation_canceled, the one under way and all later ones, until they may go on.
    void cancel() noexcept;
    void go_on() noexcept;
    // False when cancelled before the time was up.
    [[nodiscard]] bool pause(milliseconds time);

    // Without an acknowledge; never waits for other requests.
    [[nodiscard]] std::error_code send_only(gige::gvcp::command code, uint8_t flags, std::span<const std::byte> body);

    // Whole words. At most max_memory_access bytes.
    [[nodiscard]] std::error_code read_block(uint32_t address, std::span<std::byte> to, milliseconds timeout);
    [[nodiscard]] std::error_code write_block(uint32_t address, std::span<const std::byte> from, milliseconds timeout);
    [[nodiscard]] std::expected<uint32_t, std::error_code> read_register(uint32_t address, milliseconds timeout);
    [[nodiscard]] std::error_code write_register(uint32_t address, uint32_t value, milliseconds timeout);

    [[nodiscard]] gige::endpoint device() const noexcept { return peer; }
    [[nodiscard]] gige::endpoint local() const { return socket.local(); }
    // When the camera last answered anything; where it asked for patience, the time until which it did.
    [[nodiscard]] std::chrono::steady_clock::time_point last_answer() const noexcept;

private:
    control_channel(gige::udp_socket opened, gige::endpoint device, timing chosen);
    [[nodiscard]] uint16_t next_id() noexcept;

    gige::udp_socket socket;
    const gige::endpoint peer;
    const timing times;
    gige::waker cancelled; // awake for as long as it is
    gige::waker called;    // awake for as long as callers wait
    std::atomic<uint16_t> last_id{};
    std::atomic<int64_t> answered_at{}; // steady clock ticks

    std::mutex mutex; // guards what follows: whose turn it is. Never held in a request
    std::condition_variable changed;
    bool taken = false;
    bool heartbeat_waits = false;
    turn* first_caller = nullptr; // of those that wait
};

} // namespace gvcp_master
