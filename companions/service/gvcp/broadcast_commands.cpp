#include "broadcast_commands.h"

#include <gds_shared/gigecam_error.h>
#include <gige/gvcp.h>
#include <gige/udp_socket.h>

#include <algorithm>
#include <array>

namespace gvcp_master {

namespace gvcp = gige::gvcp;
using gds_shared::gigecam_errc;
using clock = std::chrono::steady_clock;

namespace {

// Bound to no address, so that cameras of foreign subnets can answer by broadcast.
std::expected<gige::udp_socket, std::error_code> open_socket() {
    auto opened = gige::udp_socket::open({0, 0});
    if (!opened) return opened;
    if (const auto error = opened->allow_broadcast()) return std::unexpected(error);
    if (const auto error = opened->report_routes()) return std::unexpected(error);
    return opened;
}

// Calls `use(ack)` for each acknowledge until it returns true, the time is up or the waker is awake.
void receive_acks(const gige::udp_socket& socket, const gige::waker& stopped, clock::time_point until, auto use) {
    const std::array handles{socket.native(), stopped.native()};
    std::array<std::byte, gvcp::max_datagram + 64> buffer;
    while (gige::wait_readable(handles, until) == 1) {
        gige::endpoint from;
        if (const auto size = socket.receive(buffer, from)) {
            const auto ack = gvcp::parse_ack(std::span{buffer}.first(*size));
            if (ack && use(*ack)) return;
        }
        if (clock::now() >= until) return;
    }
}

std::error_code without_address() { return std::make_error_code(std::errc::network_unreachable); }

uint16_t fresh_id() {
    const auto ticks = static_cast<uint16_t>(clock::now().time_since_epoch().count() >> 8);
    return ticks != 0 ? ticks : uint16_t{1};
}

} // namespace

std::error_code force_ip(const gige::network_interface& through, uint64_t mac, uint32_t address, uint32_t mask,
                         uint32_t gateway, const std::stop_token& stop, std::chrono::milliseconds timeout) {
    if (through.subnets.empty()) return without_address();
    const auto socket = open_socket();
    if (!socket) return socket.error();
    std::array<std::byte, gvcp::header_size + gvcp::force_ip_size> datagram{};
    const uint16_t id = fresh_id();
    gvcp::store_command(datagram.data(), {gvcp::flag::acknowledge | gvcp::flag::broadcast_acknowledge,
                                          gvcp::command::force_ip, gvcp::force_ip_size, id});
    std::byte* body = &datagram[gvcp::header_size];
    gige::store16(body + 2, static_cast<uint16_t>(mac >> 32));
    gige::store32(body + 4, static_cast<uint32_t>(mac));
    gige::store32(body + 20, address);
    gige::store32(body + 36, mask);
    gige::store32(body + 52, gateway);

    const gige::waker stopped;
    const std::stop_callback on_stop{stop, [&] { stopped.wake(); }};
    const auto give_up = clock::now() + timeout;
    std::error_code result = make_error_code(gigecam_errc::timeout);
    bool answered = false;
    while (!answered && clock::now() < give_up) {
        if (stop.stop_requested()) return std::make_error_code(std::errc::operation_canceled);
        // To every subnet and to all: who takes it twice is moved once.
        std::error_code failed;
        bool sent = false;
        const auto send = [&](uint32_t target, const gige::subnet& net) {
            failed = socket->send({target, gvcp::port}, datagram, {through.index, net.address});
            sent = sent || !failed;
        };
        for (const auto& net : through.subnets) {
            send(net.broadcast(), net);
            if (!through.loopback) send(0xFFFFFFFF, net);
        }
        if (!sent) return failed;
        receive_acks(*socket, stopped, std::min(give_up, clock::now() + std::chrono::milliseconds{500}),
                     [&](const gvcp::ack_header& ack) {
                         if (ack.request_id != id || ack.code != gvcp::command::force_ip_ack) return false;
                         result =
                             ack.result == gvcp::status::success
                                 ? std::error_code{}
                                 : std::error_code{static_cast<int>(0x80000000U | static_cast<uint16_t>(ack.result)),
                                                   gds_shared::gigecam_error_category()};
                         answered = true;
                         return true;
                     });
    }
    return result;
}

std::error_code send_action(const gige::network_interface& through, const action_command& action) {
    if (through.subnets.empty()) return without_address();
    const auto socket = open_socket();
    if (!socket) return socket.error();
    std::array<std::byte, gvcp::header_size + 20> datagram{};
    const uint16_t length = action.time ? 20 : 12;
    // Whether a time follows is not the caller's to say.
    const auto flags =
        static_cast<uint8_t>((action.flags & ~gvcp::flag::scheduled) | (action.time ? gvcp::flag::scheduled : 0));
    gvcp::store_command(datagram.data(), {flags, gvcp::command::action, length, fresh_id()});
    std::byte* body = &datagram[gvcp::header_size];
    gige::store32(body, action.device_key);
    gige::store32(body + 4, action.group_key);
    gige::store32(body + 8, action.group_mask);
    if (action.time) gige::store64(body + 12, *action.time);
    const auto& net = through.subnets.front();
    const uint32_t target = through.loopback ? net.broadcast() : 0xFFFFFFFF;
    return socket->send({target, gvcp::port}, std::span{datagram}.first(gvcp::header_size + length),
                        {through.index, net.address});
}

} // namespace gvcp_master
