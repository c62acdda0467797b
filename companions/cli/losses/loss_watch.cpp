#include "loss_watch.h"

#include "../posix/socket_diag.h"

namespace cli {

loss_watch::loss_watch(uint32_t to, uint16_t at, int receiver)
    : address(to), port(at), process(receiver), interface(interface_of(to)), last(read()) {}

loss_watch::sample loss_watch::read() {
    sample now{std::chrono::steady_clock::now(), {}, {}, read_softnet(), read_card(interface)};
    const auto sockets = read_udp_sockets();
    const udp_socket_row* const row = find_socket(sockets, address, port);
    sees = row != nullptr;
    if (sees) {
        now.socket_drops = row->drops;
        inode = row->inode;
        waiting = row->waiting;
    }
    if (process != 0) now.thread = read_receive_thread(process);
    return now;
}

void loss_watch::take(loss_evidence& into) {
    sample now = read();
    // A counter that began anew counts from there.
    const auto since = [](uint64_t before, uint64_t after) { return after >= before ? after - before : after; };
    into.seconds = std::chrono::duration<double>{now.at - last.at}.count();
    if (now.socket_drops) into.socket_drops = since(last.socket_drops.value_or(0), *now.socket_drops);
    if (sees) into.socket_buffer = receive_buffer_of(inode);
    into.socket_buffer_limit = read_receive_buffer_limit();
    if (now.thread) {
        constexpr double nanosecond = 1e-9;
        const schedule_counts before = last.thread.value_or(schedule_counts{});
        into.thread_ran = static_cast<double>(since(before.ran, now.thread->ran)) * nanosecond;
        into.thread_waited = static_cast<double>(since(before.waited, now.thread->waited)) * nanosecond;
    }
    into.host_queue_drops = since(last.queue.dropped, now.queue.dropped);
    into.host_queue_squeezed = since(last.queue.squeezed, now.queue.squeezed);
    into.interface = interface;
    into.mtu = now.card.mtu;
    into.ring_size = now.card.ring_size;
    into.ring_limit = now.card.ring_limit;
    into.card_drops.clear();
    for (const auto& [name, count] : now.card.drops) {
        const auto before = last.card.drops.find(name);
        if (const uint64_t more = since(before == last.card.drops.end() ? 0 : before->second, count); more != 0)
            into.card_drops.emplace_back(name, more);
    }
    last = std::move(now);
}

nlohmann::json to_json(const loss_evidence& seen) {
    const auto number = [](const auto& value) { return value ? nlohmann::json(*value) : nlohmann::json{}; };
    nlohmann::json card = nlohmann::json::object();
    for (const auto& [name, count] : seen.card_drops) card[name] = count;
    return {{"seconds", seen.seconds},
            {"frames_complete", seen.frames_complete},
            {"frames_incomplete", seen.frames_incomplete},
            {"frames_lost", seen.frames_lost},
            {"underruns", seen.underruns},
            {"packet_size", seen.packet_size},
            {"packets_expected", number(seen.packets_expected)},
            {"packets_received", number(seen.packets_received)},
            {"packets_asked_again", number(seen.packets_asked_again)},
            {"packets_late", number(seen.packets_late)},
            {"socket_drops", number(seen.socket_drops)},
            {"socket_buffer", number(seen.socket_buffer)},
            {"socket_buffer_limit", number(seen.socket_buffer_limit)},
            {"receive_thread_ran_s", number(seen.thread_ran)},
            {"receive_thread_waited_s", number(seen.thread_waited)},
            {"host_queue_drops", number(seen.host_queue_drops)},
            {"host_queue_squeezed", number(seen.host_queue_squeezed)},
            {"interface", seen.interface},
            {"mtu", number(seen.mtu)},
            {"card_drops", card},
            {"ring_size", number(seen.ring_size)},
            {"ring_limit", number(seen.ring_limit)},
            {"largest_test_packet", number(seen.largest_that_passes)}};
}

nlohmann::json to_json(const loss_verdict& verdict) {
    return {{"cause", name_of(verdict.cause)}, {"sentence", verdict.sentence}, {"remedy", verdict.remedy}};
}

} // namespace cli
