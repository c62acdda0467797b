#include "loss_verdict.h"

#include <fmt/format.h>

#include <algorithm>

namespace cli {

namespace {

// What the library asks for, and what a buffer must hold at least for its size not to be the reason.
constexpr uint64_t wanted_buffer = 10 << 20;
constexpr uint64_t serving_buffer = 2 << 20;
// A thread that could run and did not for this share of the time is what the packets waited for.
constexpr double starved_share = 0.2;
// And one that ran for nearly all of it has no time left for more packets.
constexpr double busy_share = 0.95;
constexpr uint64_t packet_overhead = 36; // headers of IP, UDP and stream in a packet's size

uint64_t packets_per_frame(const loss_evidence& seen) {
    if (seen.packet_size <= packet_overhead) return 1;
    const uint64_t share = seen.packet_size - packet_overhead;
    return std::max<uint64_t>(1, (seen.payload_size + share - 1) / share);
}

uint64_t missing_packets(const loss_evidence& seen) {
    const uint64_t expected = seen.packets_expected.value_or(0), received = seen.packets_received.value_or(0);
    return expected > received ? expected - received : 0;
}

// A card also counts what nobody wanted, other protocols' frames for instance: it explains a loss only when it dropped
// about as much.
uint64_t card_drops(const loss_evidence& seen) {
    uint64_t most = 0;
    for (const auto& [name, count] : seen.card_drops) {
        if (seen.frames_known || name != "rx_dropped") most = std::max(most, count);
    }
    if (!seen.frames_known) return most;
    const uint64_t missing = std::max(seen.packets_asked_again.value_or(0), missing_packets(seen));
    const bool anything = missing != 0 || seen.frames_incomplete + seen.frames_lost != 0;
    return anything && most * 4 >= missing ? most : 0;
}

// The begin of a sentence.
std::string loss_text(const loss_evidence& seen) {
    if (!seen.frames_known) return {};
    const uint64_t bad = seen.frames_lost + seen.frames_incomplete + seen.underruns;
    if (bad == 0) return "No frame was lost, because packets were sent again: ";
    return fmt::format("{} of {} frames were lost or incomplete: ", bad,
                       seen.frames_complete + seen.frames_incomplete + seen.frames_lost + seen.underruns);
}

std::string packets(uint64_t count) { return fmt::format("{} packet{}", count, count == 1 ? "" : "s"); }

std::string megabytes(uint64_t bytes) { return fmt::format("{:.2f} MiB", static_cast<double>(bytes) / (1 << 20)); }

bool is_starved(const loss_evidence& seen) {
    return seen.seconds > 0 && seen.thread_waited && *seen.thread_waited / seen.seconds > starved_share;
}

bool is_busy(const loss_evidence& seen) {
    return seen.seconds > 0 && seen.thread_ran && *seen.thread_ran / seen.seconds > busy_share;
}

// A buffer that holds some milliseconds overflows in the pauses that every host has, whatever the thread waits.
loss_verdict judge_socket(const loss_evidence& seen) {
    const uint64_t buffer = seen.socket_buffer.value_or(seen.socket_buffer_limit.value_or(wanted_buffer));
    const std::string drops =
        fmt::format("{}{} dropped at this host's socket", loss_text(seen), packets(*seen.socket_drops));
    if (buffer < wanted_buffer && (buffer < serving_buffer || !(is_starved(seen) || is_busy(seen)))) {
        return {loss_cause::socket_buffer,
                fmt::format("{}, whose receive buffer of {} is too small.", drops, megabytes(buffer)),
                seen.socket_buffer_limit && *seen.socket_buffer_limit >= wanted_buffer
                    ? "the system allows more: the application asked for less, or has its own limit"
                    : "echo 'net.core.rmem_max = 33554432' | sudo tee -a /etc/sysctl.d/70-orv-gentl-gev.conf && sudo "
                      "sysctl net.core.rmem_max=33554432"};
    }
    if (is_busy(seen))
        return {
            loss_cause::receive_thread,
            fmt::format("{}, though it holds {}: the receive thread was busy for {:.0f} % of the time, the stream is "
                        "faster than it.",
                        drops, megabytes(buffer), *seen.thread_ran / seen.seconds * 100),
            "larger packets (MTU 9000 from camera to host), or a lower frame rate"};
    const std::string waited =
        seen.thread_waited && seen.seconds > 0
            ? fmt::format("waited for a processor for {:.0f} % of the time", *seen.thread_waited / seen.seconds * 100)
            : std::string{"did not come to read in time"};
    return {loss_cause::receive_thread,
            fmt::format("{}, though it holds {}: the receive thread {}.", drops, megabytes(buffer), waited),
            "end what takes the processors, or let the thread go before it: echo '* - nice -5' | sudo tee "
            "/etc/security/limits.d/60-orv-gentl-gev.conf   # and log in anew"};
}

// Leaders and trailers are small and come through where pictures' packets do not.
bool is_too_narrow(const loss_evidence& seen) {
    if (!seen.frames_known || seen.frames_complete != 0) return false;
    const bool over_mtu = seen.mtu && seen.packet_size > *seen.mtu;
    const auto passes = seen.largest_that_passes;
    return over_mtu || (passes && *passes != 0 && *passes < seen.packet_size);
}

loss_verdict judge_path(const loss_evidence& seen) {
    const auto passes = seen.largest_that_passes;
    std::string why = passes && *passes != 0
                          ? fmt::format("test packets pass up to {} bytes and no larger ones", *passes)
                          : std::string{"none passes"};
    if (seen.mtu && seen.packet_size > *seen.mtu)
        why += fmt::format("; {} itself carries {}", seen.interface, *seen.mtu);
    return {loss_cause::path_mtu, fmt::format("No full packet of {} bytes came: {}.", seen.packet_size, why),
            fmt::format("sudo ip link set {} mtu 1500   (and at least as much at every switch and the camera)",
                        seen.interface.empty() ? "INTERFACE" : seen.interface)};
}

loss_verdict judge_silence(const loss_evidence& seen) {
    const std::string nothing = fmt::format("No packet of {} bytes came", seen.packet_size);
    if (seen.largest_that_passes && *seen.largest_that_passes == 0)
        return {
            loss_cause::no_packets, fmt::format("{}, not even test packets of 576 bytes do.", nothing),
            "a firewall that drops UDP from the camera? 'sudo nft list ruleset' shows it; 'orv-gentl doctor' looks at "
            "the rest of this host"};
    return {loss_cause::no_packets,
            fmt::format("{}, {}: the camera sends no pictures.", nothing,
                        seen.largest_that_passes ? "though test packets of that size pass" : "and no other either"),
            "look at its trigger and acquisition mode: orv-gentl features --search Trigger"};
}

} // namespace

const char* name_of(loss_cause cause) noexcept {
    switch (cause) {
    case loss_cause::nothing:
        return "nothing";
    case loss_cause::socket_buffer:
        return "socket_buffer";
    case loss_cause::receive_thread:
        return "receive_thread";
    case loss_cause::consumer:
        return "consumer";
    case loss_cause::path_mtu:
        return "path_mtu";
    case loss_cause::card:
        return "card";
    case loss_cause::host_queue:
        return "host_queue";
    case loss_cause::network:
        return "network";
    case loss_cause::no_packets:
        return "no_packets";
    }
    return "?";
}

// Each place where packets go is judged by how many went there; what is asked again on the way, and comes, is none.
loss_verdict judge(const loss_evidence& seen) {
    const uint64_t asked = seen.packets_asked_again.value_or(0);
    const uint64_t in_socket = seen.socket_drops.value_or(0);
    const uint64_t in_card = card_drops(seen);
    const uint64_t in_queue = seen.host_queue_drops.value_or(0);
    const uint64_t without_buffer = seen.underruns * packets_per_frame(seen);
    const bool silent = seen.frames_complete + seen.frames_incomplete + seen.frames_lost + seen.underruns == 0 &&
                        asked == 0 && seen.packets_received.value_or(0) == 0;
    if (is_too_narrow(seen) && in_socket == 0) return judge_path(seen);
    if (silent && seen.frames_known && in_socket == 0 && seen.packet_size != 0) return judge_silence(seen);

    const uint64_t here = std::max({in_socket, in_card, in_queue, without_buffer});
    if (here == 0) {
        const uint64_t missing = std::max(asked, missing_packets(seen));
        if (missing == 0 && seen.frames_incomplete + seen.frames_lost == 0)
            return {loss_cause::nothing, "Nothing was lost.", ""};
        return {loss_cause::network,
                fmt::format("{}{} did not come to this host, which dropped none itself.", loss_text(seen),
                            packets(std::max<uint64_t>(missing, seen.frames_incomplete + seen.frames_lost))),
                "lost at camera, cable or switch: try another cable and port, and let the camera send slower: "
                "orv-gentl set GevSCPD=1000   (its pause between packets)"};
    }
    if (here == without_buffer)
        return {loss_cause::consumer,
                fmt::format("{} frames found no free buffer: the application held all {} of them.", seen.underruns,
                            seen.buffers),
                fmt::format("give buffers back sooner, or more of them: --buffers {}",
                            std::max<uint64_t>(2 * seen.buffers, 20))};
    if (here == in_socket) return judge_socket(seen);
    if (here == in_card) {
        std::string counters;
        for (const auto& [name, count] : seen.card_drops) counters += fmt::format(" {} {}", name, count);
        const bool may_grow = seen.ring_size && seen.ring_limit && *seen.ring_size < *seen.ring_limit;
        return {loss_cause::card,
                fmt::format("{}{} received and dropped packets:{}.", loss_text(seen), seen.interface, counters),
                may_grow ? fmt::format("sudo ethtool -G {} rx {}", seen.interface, *seen.ring_limit)
                         : "another cable or port; where the counters are of its memory: larger packets (MTU 9000), or "
                           "a camera's pause between packets (GevSCPD)"};
    }
    return {
        loss_cause::host_queue,
        fmt::format("{}{} dropped between card and socket.", loss_text(seen), packets(in_queue)),
        "echo 'net.core.netdev_max_backlog = 10000' | sudo tee -a /etc/sysctl.d/70-orv-gentl-gev.conf && sudo sysctl "
        "net.core.netdev_max_backlog=10000"};
}

std::string evidence_text(const loss_evidence& seen) {
    std::string text;
    const auto line = [&]<class... Values>(const char* what, fmt::format_string<Values...> format, Values&&... values) {
        text += fmt::format("  {:<16} {}\n", what, fmt::format(format, std::forward<Values>(values)...));
    };
    const auto count = [](const std::optional<uint64_t>& value) {
        return value ? fmt::format("{}", *value) : std::string{"?"};
    };
    line("frames", "{} complete, {} incomplete, {} lost, {} without a buffer", seen.frames_complete,
         seen.frames_incomplete, seen.frames_lost, seen.underruns);
    line("packets", "{} expected, {} received, {} asked again, {} too late", count(seen.packets_expected),
         count(seen.packets_received), count(seen.packets_asked_again), count(seen.packets_late));
    line("socket", "{} dropped, buffer {}", count(seen.socket_drops),
         seen.socket_buffer ? megabytes(*seen.socket_buffer) : "?");
    if (seen.thread_waited && seen.thread_ran && seen.seconds > 0)
        line("receive thread", "ran {:.0f} % of the time, waited for a processor {:.0f} %",
             *seen.thread_ran / seen.seconds * 100, *seen.thread_waited / seen.seconds * 100);
    line("host queue", "{} dropped, {} rounds too short (all interfaces)", count(seen.host_queue_drops),
         count(seen.host_queue_squeezed));
    std::string card = fmt::format("MTU {}", count(seen.mtu));
    if (seen.ring_size) card += fmt::format(", ring {} of {}", *seen.ring_size, count(seen.ring_limit));
    if (seen.card_drops.empty()) card += ", nothing dropped";
    for (const auto& [name, drops] : seen.card_drops) card += fmt::format(", {} {}", name, drops);
    line(seen.interface.empty() ? "interface" : seen.interface.c_str(), "{}", card);
    if (seen.largest_that_passes) line("test packets", "pass up to {} bytes", *seen.largest_that_passes);
    return text;
}

} // namespace cli
