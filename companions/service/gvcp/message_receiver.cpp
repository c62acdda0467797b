#include "message_receiver.h"

#include <gds_shared/gigecam_error.h>

#include <algorithm>
#include <array>
#include <utility>

namespace gvcp_master {

namespace gvcp = gige::gvcp;
namespace reg = gige::gvcp::reg;
using gds_shared::gigecam_errc;

namespace {

constexpr std::size_t longest_event = 568; // behind the header: what consumers have room for
constexpr uint32_t wanted_timeout_ms = 200;
constexpr uint32_t wanted_retries = 3;
// How long a camera is taken to repeat an event: twice what its registers say, as either side may be late, and no less
// than a machine can be busy. Whoever changes them during the session does not change this.
constexpr milliseconds shortest_memory{2000};
constexpr milliseconds longest_memory{30'000};

} // namespace

std::optional<gvcp::command_header> parse_event(std::span<const std::byte> datagram) {
    const auto header = gvcp::parse_command(datagram);
    if (!header || header->length > longest_event) return {};
    if (header->code != gvcp::command::event && header->code != gvcp::command::event_data) return {};
    const std::size_t record = (header->flags & gvcp::flag::extended_ids) != 0 ? 24 : 16;
    if (header->length < record) return {};
    return header;
}

bool latest_ids::insert(uint16_t id, clock::time_point now) {
    const auto forget_oldest = [this] {
        known[ring[oldest].id] = false;
        oldest = (oldest + 1) % ring.size();
        --count;
    };
    while (count != 0 && now - ring[oldest].since > horizon) forget_oldest();
    if (known[id]) return false;
    if (count == ring.size()) forget_oldest();
    known[id] = true;
    ring[(oldest + count++) % ring.size()] = {id, now};
    return true;
}

message_receiver::message_receiver(device_control& from, gige::udp_socket opened, milliseconds repeated_for,
                                   event_function on_event)
    : camera{from}, socket{std::move(opened)}, deliver{std::move(on_event)}, seen{repeated_for} {}

std::expected<std::unique_ptr<message_receiver>, std::error_code>
message_receiver::open(device_control& camera, uint32_t local_address, event_function on_event) {
    const auto channels = camera.read_register(reg::message_channel_count);
    if (!channels) return std::unexpected(channels.error());
    if (*channels == 0) return std::unexpected(make_error_code(gigecam_errc::not_implemented));
    auto opened = gige::udp_socket::open({local_address, 0});
    if (!opened) return std::unexpected(opened.error());
    const uint16_t port = opened->local().port;
    // Cameras that start with 0 send an event once and want no answer. What somebody has chosen stays.
    const auto chosen = [&](uint32_t address, uint32_t wanted) {
        const auto now = camera.read_register(address);
        if (now && *now == 0)
            (void)camera.write_register(address, wanted); // the events of a camera that refuses come once
        return now && *now != 0 ? *now : wanted;
    };
    const uint64_t timeout = chosen(reg::message_timeout, wanted_timeout_ms);
    const uint64_t tries = chosen(reg::message_retries, wanted_retries) + uint64_t{1};
    const auto most = static_cast<uint64_t>(longest_memory.count());
    const auto repeated_for = std::max(
        shortest_memory, milliseconds{timeout > most || tries > most ? most : std::min(most, 2 * timeout * tries)});
    std::unique_ptr<message_receiver> receiver{
        new message_receiver{camera, std::move(*opened), repeated_for, std::move(on_event)}};
    receiver->thread = std::thread{[self = receiver.get()] { self->run(); }};
    if (const auto error = camera.write_register(reg::message_address, local_address)) return std::unexpected(error);
    if (const auto error = camera.write_register(reg::message_port, port)) return std::unexpected(error);
    return receiver;
}

message_receiver::~message_receiver() {
    // A camera that does not answer any more is not waited for.
    if (!camera.is_lost()) (void)camera.post_register(reg::message_port, 0);
    quit = true;
    wakeup.wake();
    if (thread.joinable()) thread.join();
}

void message_receiver::run() {
    const std::array handles{wakeup.native(), socket.native()};
    for (;;) {
        const auto ready = gige::wait_readable(handles, {});
        if (quit) return;
        if ((ready & 2) == 0) continue;
        try {
            receive_all();
        } catch (const std::exception&) {
            // No memory for an event: it is lost, not the service.
        }
    }
}

void message_receiver::receive_all() {
    std::array<std::byte, gvcp::max_datagram + 64> buffer;
    gige::endpoint from;
    while (!quit) { // a flood must not keep the session from closing
        const auto size = socket.receive(buffer, from);
        if (!size) return;
        if (from.address != camera.device().address) continue;
        const auto datagram = std::span{buffer}.first(*size);
        const auto header = parse_event(datagram);
        if (!header) continue;
        if ((header->flags & gvcp::flag::acknowledge) != 0) {
            std::array<std::byte, gvcp::header_size> ack;
            const auto code = static_cast<gvcp::command>(static_cast<uint16_t>(header->code) + 1);
            gvcp::store_ack(ack.data(), {gvcp::status::success, code, 0, header->request_id});
            // A lost acknowledge makes the camera repeat itself, no more.
            (void)socket.send(from, ack);
        }
        // Only what it wants acknowledged is sent again; other events may all have one id.
        const bool may_repeat = (header->flags & gvcp::flag::acknowledge) != 0;
        if (!may_repeat || seen.insert(header->request_id, latest_ids::clock::now()))
            deliver(datagram.first(gvcp::header_size + header->length));
    }
}

} // namespace gvcp_master
