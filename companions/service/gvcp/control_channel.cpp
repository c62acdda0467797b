#include "control_channel.h"

#include <gds_shared/gigecam_error.h>

#include <algorithm>
#include <array>

namespace gvcp_master {

namespace gvcp = gige::gvcp;
using gds_shared::gigecam_errc;
using clock = std::chrono::steady_clock;

namespace {

constexpr milliseconds longest_timeout{600'000};
// Well beyond what a camera on a network of its own takes to answer.
constexpr milliseconds give_way_after{50};

std::error_code error_of(gvcp::status result) {
    return {static_cast<int>(0x80000000U | static_cast<uint16_t>(result)), gds_shared::gigecam_error_category()};
}

} // namespace

control_channel::control_channel(gige::udp_socket opened, gige::endpoint device, timing chosen)
    : socket{std::move(opened)}, peer{device}, times{chosen}, answered_at{clock::now().time_since_epoch().count()} {
    // Two sessions in a row from one port shall not start with the same id, which a camera would take for a repetition.
    last_id = static_cast<uint16_t>(clock::now().time_since_epoch().count() >> 10);
}

std::expected<std::unique_ptr<control_channel>, std::error_code>
control_channel::open(gige::endpoint device, gige::endpoint local, timing chosen) {
    auto opened = gige::udp_socket::open(local);
    if (!opened && local.port != 0) opened = gige::udp_socket::open({local.address, 0});
    if (!opened) return std::unexpected(opened.error());
    // Others could fill the socket's memory, and the camera's answers would be lost.
    if (const auto error = opened->connect(device)) return std::unexpected(error);
    try {
        return std::unique_ptr<control_channel>{new control_channel{std::move(*opened), device, chosen}};
    } catch (const std::system_error& error) { // of the descriptors of its wakers
        return std::unexpected(error.code());
    }
}

void control_channel::cancel() noexcept { cancelled.wake(); }
void control_channel::go_on() noexcept { cancelled.drain(); }

bool control_channel::pause(milliseconds time) {
    return gige::wait_readable(std::array{cancelled.native()}, clock::now() + time) == 0;
}

uint16_t control_channel::next_id() noexcept {
    uint16_t id = ++last_id;
    while (id == 0) id = ++last_id;
    return id;
}

clock::time_point control_channel::last_answer() const noexcept {
    return clock::time_point{clock::duration{answered_at.load()}};
}

control_channel::turn::turn(control_channel& wanted, milliseconds timeout)
    : channel{wanted}, began{clock::now()}, time{std::min(timeout, longest_timeout)}, yields{false} {
    std::unique_lock lock{channel.mutex};
    const auto is_mine = [this] {
        const bool is_next = channel.first_caller == nullptr || channel.first_caller == this;
        return is_next && !channel.taken && !channel.heartbeat_waits;
    };
    if (!is_mine()) {
        turn** end = &channel.first_caller;
        while (*end != nullptr) end = &(*end)->behind;
        *end = this;
        channel.called.wake();
        const auto at_most = began + std::max(time, channel.times.pending);
        auto until = began + time;
        while (!channel.changed.wait_until(lock, until, is_mine)) {
            // A camera that asked for patience is waited for; else nobody could do anything meanwhile.
            const auto now = clock::now();
            if (channel.last_answer() <= now || now >= at_most) break;
            until = std::min(channel.last_answer() + channel.times.attempt, at_most);
        }
        had = is_mine();
        // Who gives up leaves it taken, or the heartbeat next to it, whose end wakes the one behind.
        turn** place = &channel.first_caller;
        while (*place != this) place = &(*place)->behind;
        *place = behind;
        if (channel.first_caller == nullptr) channel.called.drain();
        if (!had) return;
        if (until != began + time) began = clock::now();
    }
    had = channel.taken = true;
}

control_channel::turn::turn(control_channel& wanted, milliseconds timeout, gives_way_tag)
    : channel{wanted}, began{clock::now()}, time{std::min(timeout, longest_timeout)}, yields{true} {
    std::unique_lock lock{channel.mutex};
    channel.heartbeat_waits = true;
    had = channel.changed.wait_until(lock, began + time, [this] { return !channel.taken; });
    channel.heartbeat_waits = false;
    if (had)
        channel.taken = true;
    else
        channel.changed.notify_all();
}

control_channel::turn::~turn() {
    if (!had) return;
    {
        const std::lock_guard guard{channel.mutex};
        channel.taken = false;
    }
    channel.changed.notify_all();
}

std::expected<std::size_t, std::error_code>
control_channel::turn::transact(gvcp::command code, std::span<const std::byte> body, std::span<std::byte> answer) {
    if (body.size() > gvcp::max_body) return std::unexpected(make_error_code(gigecam_errc::invalid_parameter));
    if (!had) return std::unexpected(make_error_code(gigecam_errc::timeout));
    std::array<std::byte, gvcp::max_datagram> request;
    const uint16_t id = channel.next_id();
    gvcp::store_command(request.data(), {gvcp::flag::acknowledge, code, static_cast<uint16_t>(body.size()), id});
    std::ranges::copy(body, &request[gvcp::header_size]);
    const auto sent = std::span{request}.first(gvcp::header_size + body.size());

    const auto expected_code = static_cast<gvcp::command>(static_cast<uint16_t>(code) + 1);
    std::array<std::byte, gvcp::max_datagram + 64> buffer;
    auto give_up = began + time;
    const auto at_most = std::max(give_up, began + channel.times.pending);
    const auto overdue = yields ? clock::now() + give_way_after : clock::time_point::max();
    for (;;) {
        // A port that just closed refuses once; the camera may be starting again.
        if (const auto error = channel.socket.send(channel.peer, sent); error && error != std::errc::connection_refused)
            return std::unexpected(error);
        auto resend = std::min(give_up, clock::now() + channel.times.attempt);
        do {
            const bool waits_for_callers = clock::now() >= overdue;
            const auto until = waits_for_callers ? resend : std::min(resend, overdue);
            const auto ready = gige::wait_readable(std::array{channel.socket.native(), channel.cancelled.native(),
                                                              waits_for_callers ? channel.called.native() : -1},
                                                   until);
            if (ready & 2) return std::unexpected(std::make_error_code(std::errc::operation_canceled));
            if (ready & 4) return std::unexpected(std::make_error_code(std::errc::resource_unavailable_try_again));
            if (ready == 0) continue;
            gige::endpoint from;
            const auto size = channel.socket.receive(buffer, from);
            const auto ack = size ? gvcp::parse_ack(std::span{buffer}.first(*size)) : std::nullopt;
            // Perhaps a late answer to an earlier request.
            if (!ack || from != channel.peer || ack->request_id != id) continue;
            channel.answered_at = clock::now().time_since_epoch().count();
            const auto content = std::span{buffer}.subspan(gvcp::header_size, ack->length);
            if (ack->code == gvcp::command::pending_ack) {
                if (content.size() < 4) continue;
                // The camera works on it: no repetition until its own time is up.
                resend = std::min(at_most, clock::now() + milliseconds{gige::load16(&content[2])});
                give_up = std::min(at_most, std::max(give_up, resend + channel.times.attempt));
                channel.answered_at = resend.time_since_epoch().count();
                continue;
            }
            if (ack->result != gvcp::status::success) return std::unexpected(error_of(ack->result));
            if (ack->code != expected_code) continue;
            std::copy_n(content.begin(), std::min(content.size(), answer.size()), answer.begin());
            return content.size();
        } while (clock::now() < resend); // however many come that end nothing
        if (clock::now() >= give_up) return std::unexpected(make_error_code(gigecam_errc::timeout));
    }
}

std::expected<uint32_t, std::error_code> control_channel::turn::read_register(uint32_t address) {
    std::array<std::byte, 4> body;
    gige::store32(body.data(), address);
    std::array<std::byte, 4> answer;
    const auto size = transact(gvcp::command::read_reg, body, answer);
    if (!size) return std::unexpected(size.error());
    if (*size < 4) return std::unexpected(make_error_code(gigecam_errc::parsing_ack_packet_failed));
    return gige::load32(answer.data());
}

std::error_code control_channel::turn::write_register(uint32_t address, uint32_t value) {
    std::array<std::byte, 8> body;
    gige::store32(&body[0], address);
    gige::store32(&body[4], value);
    const auto size = transact(gvcp::command::write_reg, body, {});
    return size ? std::error_code{} : size.error();
}

std::error_code control_channel::send_only(gvcp::command code, uint8_t flags, std::span<const std::byte> body) {
    std::array<std::byte, gvcp::max_datagram> request;
    if (body.size() > gvcp::max_body) return make_error_code(gigecam_errc::invalid_parameter);
    gvcp::store_command(request.data(), {flags, code, static_cast<uint16_t>(body.size()), next_id()});
    std::ranges::copy(body, &request[gvcp::header_size]);
    return socket.send(peer, std::span{request}.first(gvcp::header_size + body.size()));
}

std::error_code control_channel::read_block(uint32_t address, std::span<std::byte> to, milliseconds timeout) {
    std::array<std::byte, 8> body{};
    gige::store32(&body[0], address);
    gige::store16(&body[6], static_cast<uint16_t>(to.size()));
    std::array<std::byte, gvcp::max_body> answer;
    const auto size = turn{*this, timeout}.transact(gvcp::command::read_mem, body, answer);
    if (!size) return size.error();
    if (*size < 4 + to.size() || gige::load32(answer.data()) != address)
        return make_error_code(gigecam_errc::parsing_ack_packet_failed);
    std::copy_n(&answer[4], to.size(), to.begin());
    return {};
}

std::error_code control_channel::write_block(uint32_t address, std::span<const std::byte> from, milliseconds timeout) {
    std::array<std::byte, gvcp::max_body> body;
    gige::store32(body.data(), address);
    std::ranges::copy(from, &body[4]);
    const auto size =
        turn{*this, timeout}.transact(gvcp::command::write_mem, std::span{body}.first(4 + from.size()), {});
    return size ? std::error_code{} : size.error();
}

std::expected<uint32_t, std::error_code> control_channel::read_register(uint32_t address, milliseconds timeout) {
    return turn{*this, timeout}.read_register(address);
}

std::error_code control_channel::write_register(uint32_t address, uint32_t value, milliseconds timeout) {
    return turn{*this, timeout}.write_register(address, value);
}

} // namespace gvcp_master
