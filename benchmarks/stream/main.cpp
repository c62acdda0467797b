// Cost of reception: CPU seconds per gigabyte of picture, beside the floors and a peer, in the same run.
#include "bench_stream.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <options/numbers.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>

namespace {

using namespace bench;
using namespace std::chrono_literals;

struct receiver {
    const char* name;
    std::function<reception(const place&, const stream_shape&)> run;
};

const receiver read_floor{"recvmmsg", [](auto& at, auto& shape) { return receive_bare(at, shape, false, false); }};
const receiver copy_floor{"recvmmsg + memcpy",
                          [](auto& at, auto& shape) { return receive_bare(at, shape, true, false); }};
const receiver read_floor_gro{"recvmmsg, coalesced",
                              [](auto& at, auto& shape) { return receive_bare(at, shape, false, true); }};
const receiver copy_floor_gro{"recvmmsg + memcpy, coalesced",
                              [](auto& at, auto& shape) { return receive_bare(at, shape, true, true); }};
// As long as the ring keeps a block that is not full.
const receiver paused_floor{"recvmmsg + memcpy, pauses of 1 ms",
                            [](auto& at, auto& shape) { return receive_bare(at, shape, true, false, 1ms); }};
const receiver paused_floor_gro{"recvmmsg + memcpy, coalesced, pauses of 1 ms",
                                [](auto& at, auto& shape) { return receive_bare(at, shape, true, true, 1ms); }};
// As long as the library ever sleeps.
const receiver long_read_floor{"recvmmsg, pauses of 2 ms",
                               [](auto& at, auto& shape) { return receive_bare(at, shape, false, false, 2ms); }};
const receiver long_floor{"recvmmsg + memcpy, pauses of 2 ms",
                          [](auto& at, auto& shape) { return receive_bare(at, shape, true, false, 2ms); }};
const receiver long_read_floor_gro{"recvmmsg, coalesced, pauses of 2 ms",
                                   [](auto& at, auto& shape) { return receive_bare(at, shape, false, true, 2ms); }};
const receiver long_floor_gro{"recvmmsg + memcpy, coalesced, pauses of 2 ms",
                              [](auto& at, auto& shape) { return receive_bare(at, shape, true, true, 2ms); }};
const receiver ring_floor{"packet ring", [](auto& at, auto& shape) { return receive_from_ring(at, shape, false); }};
const receiver ring_copy_floor{"packet ring + memcpy",
                               [](auto& at, auto& shape) { return receive_from_ring(at, shape, true); }};
const receiver ours{"this library", [](auto& at, auto& shape) { return receive_with_thread(at, shape, true); }};
const receiver ours_single{"this library, not coalescing",
                           [](auto& at, auto& shape) { return receive_with_thread(at, shape, false); }};
const receiver fixed_pause{"this library, fixed pauses",
                           [](auto& at, auto& shape) { return receive_with_thread(at, shape, true, false); }};
const receiver fixed_pause_single{"this library, not coalescing, fixed pauses",
                                  [](auto& at, auto& shape) { return receive_with_thread(at, shape, false, false); }};
const receiver peer{"aravis, UDP socket", [](auto& at, auto& shape) { return receive_with_peer(at, shape, false); }};
const receiver peer_packet{"aravis, packet socket",
                           [](auto& at, auto& shape) { return receive_with_peer(at, shape, true); }};

// In a process of its own, so that its CPU time is all its own.
reception run(const receiver& each, const camera_process& camera, const stream_shape& shape, const cable* joined) {
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) fail("no pipe");
    std::fflush(nullptr);
    const int pid = ::fork();
    if (pid < 0) fail("no process");
    if (pid == 0) {
        if (joined != nullptr) joined->enter_consumer_side();
        const reception seen = each.run({camera.address(), camera.consumer()}, shape);
        const bool written = ::write(pipe[1], &seen, sizeof seen) == sizeof seen;
        ::_exit(written ? 0 : 1);
    }
    ::close(pipe[1]);
    reception seen;
    const double camera_before = camera.cpu_seconds();
    const double kernel_before = joined == nullptr ? 0 : joined->kernel_seconds();
    const bool whole = ::read(pipe[0], &seen, sizeof seen) == sizeof seen;
    ::close(pipe[0]);
    ::waitpid(pid, nullptr, 0);
    seen.camera_seconds = camera.cpu_seconds() - camera_before;
    if (joined != nullptr) seen.kernel_seconds = joined->kernel_seconds() - kernel_before;
    if (!whole) fail(std::string{each.name} + " gave no result");
    return seen;
}

// The round with the median CPU time.
const reception& median(std::vector<reception>& rounds) {
    std::ranges::sort(rounds, {}, &reception::cpu_per_gigabyte);
    return rounds[rounds.size() / 2];
}

void cost_table(const stream_shape& shape, uint32_t rounds, const std::vector<receiver>& receivers, size_t floor,
                const cable* joined) {
    fmt::print("\nPackets of {} bytes, {}; {} frames of {}x{} at {:.0f}/s, median of {} rounds\n\n", shape.packet_size,
               shape.segmented     ? "the camera lets the kernel cut them"
               : joined != nullptr ? "sent one by one over the cable"
                                   : "sent one by one",
               shape.frames, shape.width, shape.height, shape.frame_rate, rounds);
    const camera_process camera{shape, joined};
    std::vector<std::vector<reception>> seen(receivers.size());
    for (uint32_t round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < receivers.size(); ++i) {
            fmt::print(stderr, "\r{} bytes, round {} of {}: {:40}", shape.packet_size, round + 1, rounds,
                       receivers[i].name);
            seen[i].push_back(run(receivers[i], camera, shape, joined));
        }
    }
    fmt::print(stderr, "\r{:78}\r", "");
    fmt::print(
        "| receiver | CPU s/GB | {}to the copy floor | camera's CPU s/GB | MB/s | frames complete | wakes per frame | "
        "datagrams per read | allocations |\n"
        "|---|---|{}---|---|---|---|---|---|---|\n",
        joined == nullptr ? "" : "of it the kernel's | ", joined == nullptr ? "" : "---|");
    const double base = median(seen[floor]).cpu_per_gigabyte();
    for (size_t i = 0; i < receivers.size(); ++i) {
        const reception& typical = median(seen[i]);
        fmt::print(
            "| {} | {:.3f} | {}{:.2f} | {:.2f} | {:.0f} | {} of {} | {:.0f} | {} | {} |\n", receivers[i].name,
            typical.cpu_per_gigabyte(),
            joined == nullptr ? "" : fmt::format("{:.3f} | ", typical.per_gigabyte(typical.kernel_seconds)),
            typical.cpu_per_gigabyte() / base, typical.per_gigabyte(typical.camera_seconds),
            typical.megabytes_per_second(), typical.frames_complete, typical.frames_complete + typical.frames_other,
            static_cast<double>(typical.wakes) / shape.frames,
            typical.reads == 0
                ? "-"
                : fmt::format("{:.1f}", static_cast<double>(typical.datagrams) / static_cast<double>(typical.reads)),
            std::string_view{receivers[i].name}.starts_with("this") ? fmt::format("{}", typical.allocations) : "-");
        std::fflush(stdout);
    }
}

std::vector<receiver> receivers(bool segmented, bool veth) {
    std::vector<receiver> all = segmented ? std::vector{read_floor_gro, copy_floor_gro, ours, paused_floor_gro}
                                          : std::vector{read_floor, copy_floor, paused_floor, ours, ours_single};
    if (veth) all.insert(all.begin() + 2, {read_floor_gro, copy_floor_gro, paused_floor_gro});
    if (has_packet_ring()) all.insert(all.end(), {ring_floor, ring_copy_floor});
    if (has_peer()) all.insert(all.end(), {peer, peer_packet});
    return all;
}

// What prediction saves beside what sleeping alone could.
std::vector<receiver> receivers_with_pauses(bool segmented) {
    if (segmented) {
        return {copy_floor_gro, paused_floor_gro, long_floor_gro, long_read_floor_gro, fixed_pause, ours};
    }
    return {copy_floor,  paused_floor,       long_floor, long_read_floor, paused_floor_gro, long_floor_gro,
            fixed_pause, fixed_pause_single, ours,       ours_single};
}

// The highest of rates that rise from `lowest` at which no frame was lost, in two of two runs.
void rate_table(stream_shape shape, double lowest, const std::vector<receiver>& receivers, const cable* joined) {
    fmt::print("\nHighest rate without a lost frame, packets of {} bytes, {}\n\n| receiver | MB/s |\n|---|---|\n",
               shape.packet_size, shape.segmented ? "cut by the kernel" : "sent one by one");
    const camera_process camera{shape, joined};
    for (const receiver& each : receivers) {
        double best = 0;
        for (double rate = lowest; rate <= 700; rate *= 1.25) {
            shape.frame_rate = rate;
            shape.frames = static_cast<uint32_t>(std::max(100.0, rate));
            double slowest = 1e9;
            for (int attempt = 0; attempt < 2; ++attempt) {
                const reception seen = run(each, camera, shape, joined);
                slowest = std::min(slowest, seen.frames_other == 0 ? seen.megabytes_per_second() : 0.0);
            }
            fmt::print(stderr, "\r{}: {:.0f}/s gives {:.0f} MB/s   ", each.name, rate, slowest);
            if (slowest == 0) break;
            if (slowest < best * 1.02) break; // the camera is at its end
            best = std::max(best, slowest);
        }
        fmt::print(stderr, "\r{:78}\r", "");
        fmt::print("| {} | {:.0f} |\n", each.name, best);
        std::fflush(stdout);
    }
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Cost and rate of reception on loopback, beside its floors and a peer. Markdown tables go to standard "
                 "output."};
    app.option_defaults()->always_capture_default();
    std::vector<uint32_t> packet_sizes{1500, 9000};
    stream_shape shape;
    uint32_t rounds = 5;
    std::string only;
    bool rates = false;
    uint64_t replayed = 0;
    bool read_only = false;
    bool veth = false;
    bool pauses = false;
    std::vector<uint32_t> sockets;
    uint32_t gather_us = 50;
    app.add_option("--packet-sizes", packet_sizes, "Packet sizes, with IP and UDP headers")->delimiter(',');
    app.add_option("--width", shape.width, "Picture width, a multiple of 8");
    app.add_option("--height", shape.height, "Picture height");
    app.add_option("--frames", shape.frames, "Frames per measurement")->check(CLI::Range(20, 1'000'000));
    app.add_option("--fps", shape.frame_rate, "Frames per second; with --rates the lowest, 60 by default")
        ->check(option_checks::number(0.001, 1e6));
    app.add_option("--rounds", rounds, "Measurements of each receiver, in turn")->check(CLI::Range(1, 1000));
    app.add_option("--only", only, "Receivers whose name contains this (the copy floors always run)");
    app.add_flag("--pauses", pauses, "Prediction beside the fixed pause and beside floors that only sleep and read");
    app.add_flag("--rates", rates, "The highest rate without a lost frame instead of the cost");
    app.add_option("--sockets", sockets, "The floors of so many cameras at the frame rate in all, and nothing else")
        ->delimiter(',')
        ->check(CLI::Range(1, 64));
    app.add_flag("--veth", veth,
                 "Over a veth pair between two namespaces, whose receiving end joins datagrams and is counted with "
                 "the receiver, instead of loopback (root)");
    app.add_option("--gather", gather_us, "With --veth: us for which that end waits for more, as cards do");
    app.add_option("--replay", replayed,
                   "No camera: so many frames through one socket and receiver, then end (for "
                   "instruction counts)");
    app.add_flag("--gso", shape.segmented, "With --replay: coalesced");
    app.add_flag("--read-only", read_only, "With --replay: without the receiver");
    CLI11_PARSE(app, argc, argv);

    if (replayed != 0) {
        for (const uint32_t size : packet_sizes) {
            shape.packet_size = size;
            replay(replayed, shape, read_only);
        }
        return 0;
    }
    if (!sockets.empty()) {
        for (const uint32_t size : packet_sizes) {
            shape.packet_size = size;
            many_table(shape, sockets);
        }
        return 0;
    }
    std::optional<cable> joined;
    if (veth) joined.emplace(*std::ranges::max_element(packet_sizes), gather_us);
    const cable* const way = joined ? &*joined : nullptr;
    for (const bool segmented : {false, true}) {
        if (segmented && veth) break; // a veth passes them on uncut
        for (const uint32_t size : packet_sizes) {
            shape.packet_size = size;
            shape.segmented = segmented;
            const receiver& floor = segmented ? copy_floor_gro : copy_floor;
            std::vector<receiver> all = pauses ? receivers_with_pauses(segmented) : receivers(segmented, veth);
            std::erase_if(all, [&](const receiver& each) {
                return each.name != floor.name && std::string_view{each.name}.find(only) == std::string_view::npos;
            });
            if (rates) {
                rate_table(shape, app.count("--fps") != 0 ? shape.frame_rate : 60, all, way);
            } else {
                const auto at = std::ranges::find(all, floor.name, &receiver::name);
                cost_table(shape, rounds, all, static_cast<size_t>(at - all.begin()), way);
            }
        }
    }
    if (!has_peer()) fmt::print("\nBuilt without libaravis-dev: no peer.\n");
    return 0;
}
