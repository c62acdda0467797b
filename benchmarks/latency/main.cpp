// Time from the camera's sending of a frame's last datagram until a consumer has the frame. Prints markdown.
#include "latency.h"

#include "../child_process.h"

#include <support/temporary_folder.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>

namespace {

using namespace bench;

struct setting {
    std::string cti;
    std::filesystem::path bin;
    std::filesystem::path folder; // of this run
    double seconds = 5;
    std::string only;
};

// A shell that compiles a file with many templates again and again.
class compiler_beside {
public:
    compiler_beside() {
        pid = ::fork();
        if (pid != 0) return;
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::execl("/bin/sh", "sh", "-c",
                "while :; do echo '#include <regex>\nstd::regex a{\"b\"};' | c++ -x c++ -O2 -S -o /dev/null -; done",
                nullptr);
        ::_exit(127);
    }
    ~compiler_beside() {
        ::kill(-pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    compiler_beside(const compiler_beside&) = delete;
    compiler_beside& operator=(const compiler_beside&) = delete;

private:
    pid_t pid;
};

std::map<uint64_t, int64_t> sent_times(const std::filesystem::path& file) {
    std::map<uint64_t, int64_t> times;
    std::ifstream stream{file, std::ios::binary};
    std::array<int64_t, 2> words{};
    while (stream.read(reinterpret_cast<char*>(words.data()), sizeof words)) {
        times[static_cast<uint64_t>(words[0])] = words[1];
    }
    return times;
}

// One receiver on a camera of its own, in a process of its own.
arrivals measure(const std::function<arrivals()>& receive, size_t frames) {
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) fail("no pipe");
    std::fflush(nullptr);
    const int pid = ::fork();
    if (pid < 0) fail("no process");
    if (pid == 0) {
        ::close(pipe[0]);
        const arrivals seen = receive();
        const auto* bytes = reinterpret_cast<const char*>(seen.data());
        for (size_t left = seen.size() * sizeof(int64_t); left != 0;) {
            const ssize_t written = ::write(pipe[1], bytes, left);
            if (written <= 0) ::_exit(1);
            bytes += written;
            left -= static_cast<size_t>(written);
        }
        ::_exit(0);
    }
    ::close(pipe[1]);
    arrivals seen(frames + 1);
    auto* bytes = reinterpret_cast<char*>(seen.data());
    size_t left = seen.size() * sizeof(int64_t);
    for (ssize_t got = 1; left != 0 && got > 0; bytes += got, left -= static_cast<size_t>(got)) {
        got = ::read(pipe[0], bytes, left);
        if (got < 0) fail("no result");
    }
    ::close(pipe[0]);
    ::waitpid(pid, nullptr, 0);
    if (left != 0) fail("a receiver gave no result");
    return seen;
}

void table(const setting& with, stream_shape shape, bool paced, bool loaded, unsigned number) {
    shape.frames = static_cast<uint32_t>(shape.frame_rate * with.seconds);
    fmt::print("\n**{}x{} at {:.0f}/s, {}, packets of {} bytes; {}**\n\n", shape.width, shape.height, shape.frame_rate,
               paced ? "paced over half the frame's time" : "sent at once", shape.packet_size,
               loaded ? "a compiler beside" : "idle machine");
    fmt::print("| receiver | median, us | 99 % | 99.9 % | worst | frames whole |\n|---|---|---|---|---|---|\n");
    const std::optional<compiler_beside> compiler = [&] {
        return loaded ? std::optional<compiler_beside>{std::in_place} : std::nullopt;
    }();
    const uint32_t network = 0x7F600000U | (static_cast<uint32_t>(::getpid()) & 0xFFF) << 8 | (number & 0x3F) << 2;
    const place where{network | 1, network | 2};
    const std::pair<const char*, std::function<arrivals()>> receivers[] = {
        {"bare recvmmsg", [&] { return frames_by_bare_reads(where, shape, false, false); }},
        {"bare recvmmsg, handed to another thread", [&] { return frames_by_bare_reads(where, shape, false, true); }},
        {"bare recvmmsg, copied and handed on", [&] { return frames_by_bare_reads(where, shape, true, true); }},
        {"this library", [&] { return frames_by_library(with.cti, shape); }},
        {"aravis, UDP socket", [&] { return frames_by_peer(where, shape, false); }},
        {"aravis, packet socket", [&] { return frames_by_peer(where, shape, true); }},
    };
    for (const auto& [name, receive] : receivers) {
        const std::string_view text = name;
        if (text.starts_with("aravis") && !has_peer()) continue;
        if (text.find(with.only) == std::string_view::npos) continue;
        const auto file = with.folder / "sent";
        arrivals seen;
        {
            const auto number_of = [](auto value) { return fmt::format("{}", value); };
            const child_process camera{{with.bin / "orv-gev-camera-sim", "--address", gige::to_string(where.camera),
                                        "--sensor-width", number_of(shape.width), "--sensor-height",
                                        number_of(shape.height), "--frame-rate", number_of(shape.frame_rate),
                                        "--max-packet-size", number_of(shape.packet_size), "--pacing",
                                        paced ? "0.5" : "0", "--sent-file", file, "--quiet"}};
            std::optional<child_process> service;
            if (text.starts_with("this")) {
                service.emplace(std::vector<std::string>{with.bin / "orv-gentl-gev-service", "--no-networks",
                                                         "--discover", gige::to_string(where.camera)});
            }
            seen = measure(receive, shape.frames);
        }
        std::vector<double> late; // microseconds
        for (const auto& [block, sent] : sent_times(file)) {
            if (block < seen.size() && seen[block] != 0) {
                late.push_back(static_cast<double>(seen[block] - sent) * 1e-3);
            }
        }
        std::ranges::sort(late);
        const auto at = [&](double share) {
            return late.empty() ? 0 : late[static_cast<size_t>(share * static_cast<double>(late.size() - 1) + 0.5)];
        };
        fmt::print("| {} | {:.0f} | {:.0f} | {:.0f} | {:.0f} | {} of {} |\n", name, at(0.5), at(0.99), at(0.999), at(1),
                   late.size(), shape.frames);
        std::fflush(stdout);
    }
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Time from the sending of a frame's last datagram until the consumer has the frame."};
    app.option_defaults()->always_capture_default();
    setting with;
    with.bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    with.cti = with.bin.parent_path() / "lib" / "orv-gentl-gev.cti";
    std::string load = "both";
    std::string pace = "both";
    std::string size = "both";
    uint32_t packet_size = 9000;
    app.add_option("--cti", with.cti, "The library to measure");
    app.add_option("--seconds", with.seconds, "Of each receiver in each table")->check(CLI::Range(0.5, 600.0));
    app.add_option("--only", with.only, "Receivers whose name contains this");
    app.add_option("--load", load, "idle, compiler or both")->check(CLI::IsMember({"idle", "compiler", "both"}));
    app.add_option("--pace", pace, "paced, at-once or both")->check(CLI::IsMember({"paced", "at-once", "both"}));
    app.add_option("--size", size, "small, large or both")->check(CLI::IsMember({"small", "large", "both"}));
    app.add_option("--packet-size", packet_size, "With IP and UDP headers");
    CLI11_PARSE(app, argc, argv);

    const test_support::runtime_folder folder;
    with.folder = folder.path;
    unsigned number = 0;
    try {
        for (const bool loaded : {false, true}) {
            for (const bool large : {false, true}) {
                for (const bool paced : {true, false}) {
                    if (load == (loaded ? "idle" : "compiler") || size == (large ? "small" : "large") ||
                        pace == (paced ? "at-once" : "paced")) {
                        continue;
                    }
                    stream_shape shape;
                    shape.packet_size = packet_size;
                    shape.width = large ? 2448 : 640;
                    shape.height = large ? 2048 : 480;
                    shape.frame_rate = large ? 60 : 500;
                    table(with, shape, paced, loaded, number++);
                }
            }
        }
    } catch (const std::exception& failure) {
        fail(failure.what());
    }
    if (!has_peer()) fmt::print("\nBuilt without libaravis-dev: no peer.\n");
    return 0;
}
