#include "broadcast_commands.h"

#include <gds_shared/gigecam_error.h>
#include <gige/gvcp.h>
#include <gige/udp_socket.h>

#include <algorithm>
#include <array>
#include <vector>

namespace gvcp_master {

namespace gvcp = gige::gvcp;
using gds_shared::gigecam_errc;
using clock = std::chrono::steady_clock;

namespace {

struct outlet {
    gige::udp_socket socket;
    std::vector<uint32_t> targets;
};

// One socket per subnet of the interface.
std::vector<outlet> open_outlets(const gige::network_interface& through, std::error_code& error) {
    std::vector<outlet> outlets;
    for (const auto& net : through.subnets) {
        auto opened = gige::udp_socket::open({net.address, 0});
        if (!opened) {
            error = opened.error();
            continue;
        }
        if ((error = opened->allow_broadcast())) continue;
        outlet added{std::move(*opened), {net.broadcast()}};
        if (!through.loopback && !added.socket.use_interface(through.name)) added.targets.push_back(0xFFFFFFFF);
        outlets.push_back(std::move(added));
    }
    if (outlets.empty() && !error) error = std::make_error_code(std::errc::network_unreachable);
    return outlets;
}

std::error_code send_all(const std::vector<outlet>& outlets, std::span<const std::byte> datagram) {
    std::error_code error;
    bool sent = false;
    for (const auto& each : outlets)
        for (const uint32_t target : each.targets) {
            if (const auto failed = each.socket.send({target, gvcp::port}, datagram))
                error = failed;
            else
                sent = true;
        }
    return sent ? std::error_code{} : error;
}

// Calls `use(ack, sender)` for each acknowledge until it returns true or the time is up.
void receive_acks(const std::vector<outlet>& outlets, clock::time_point until, auto use) {
    std::vector<int> handles;
    for (const auto& each : outlets) handles.push_back(each.socket.native());
    std::array<std::byte, gvcp::max_datagram + 64> buffer;
    while (const auto ready = gige::wait_readable(handles, until)) {
        for (std::size_t i = 0; i < outlets.size(); ++i) {
            if ((ready >> i & 1) == 0) continue;
            gige::endpoint from;
            while (const auto size = outlets[i].socket.receive(buffer, from)) {
                const auto ack = gvcp::parse_ack(std::span{buffer}.first(*size));
                if (ack && use(*ack, from)) return;
            }
        }
        if (clock::now() >= until) return;
    }
}

uint16_t fresh_id() {
    const auto ticks = static_cast<uint16_t>(clock::now().time_since_epoch().count() >> 8);
    return ticks != 0 ? ticks : uint16_t{1};
}

} // namespace

std::error_code force_ip(const gige::network_interface& through, uint64_t mac, uint32_t address, uint32_t mask,
                         uint32_t gateway, std::chrono::milliseconds timeout) {
    std::error_code error;
    const auto outlets = open_outlets(through, error);
    if (outlets.empty()) return error;
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

    const auto give_up = clock::now() + timeout;
    std::error_code result = make_error_code(gigecam_errc::timeout);
    bool answered = false;
    while (!answered && clock::now() < give_up) {
        if (const auto failed = send_all(outlets, datagram)) return failed;
        receive_acks(outlets, std::min(give_up, clock::now() + std::chrono::milliseconds{500}),
                     [&](const gvcp::ack_header& ack, const gige::endpoint&) {
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

std::expected<std::size_t, std::error_code> send_action(const gige::network_interface& through,
                                                        const action_command& action,
                                                        std::optional<std::chrono::milliseconds> wait) {
    std::error_code error;
    const auto outlets = open_outlets(through, error);
    if (outlets.empty()) return std::unexpected(error);
    std::array<std::byte, gvcp::header_size + 20> datagram{};
    const uint16_t length = action.time ? 20 : 12;
    const uint16_t id = fresh_id();
    const auto flags =
        static_cast<uint8_t>((wait ? gvcp::flag::acknowledge : 0) | (action.time ? gvcp::flag::scheduled : 0));
    gvcp::store_command(datagram.data(), {flags, gvcp::command::action, length, id});
    std::byte* body = &datagram[gvcp::header_size];
    gige::store32(body, action.device_key);
    gige::store32(body + 4, action.group_key);
    gige::store32(body + 8, action.group_mask);
    if (action.time) gige::store64(body + 12, *action.time);
    if (const auto failed = send_all(outlets, std::span{datagram}.first(gvcp::header_size + length)))
        return std::unexpected(failed);
    std::vector<uint32_t> done;
    if (wait)
        receive_acks(outlets, clock::now() + *wait, [&](const gvcp::ack_header& ack, const gige::endpoint& from) {
            const bool ours =
                ack.request_id == id && ack.code == gvcp::command::action_ack && ack.result == gvcp::status::success;
            if (ours && std::ranges::find(done, from.address) == done.end()) done.push_back(from.address);
            return false;
        });
    return done.size();
}

} // namespace gvcp_master
