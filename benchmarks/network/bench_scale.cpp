// What many cameras cost: the same total rate from 1, 2, 4, ... of them, taken by one consumer or by as many, with the
// real library and a real service. Prints markdown.
#include "../child_process.h"
#include "process_view.h"

#include <cli/consumer/gentl_library.h>
#include <cli/consumer/node_map.h>
#include <cli/consumer/session.h>
#include <support/temporary_folder.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <options/numbers.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <new>
#include <span>
#include <thread>

namespace {

using namespace GenTL;
using bench::child_process;
using namespace std::chrono_literals;

constexpr size_t most_cameras = 64;
constexpr size_t buffers_per_stream = 6;

struct options {
    std::vector<uint32_t> cameras{1, 2, 4, 8, 16};
    uint32_t width = 1920;
    uint32_t height = 1200; // Mono8
    uint32_t packet_size = 9000;
    double megabytes_per_second = 400; // of all cameras together
    double seconds = 3;
    uint32_t rounds = 3;

    [[nodiscard]] double frame_bytes() const { return static_cast<double>(width) * height; }
};

// Written by a consumer, read by the measurement: in memory that both see.
struct counters {
    std::atomic<uint64_t> frames, bytes, incomplete, missed; // missed: block ids that never came
    std::atomic<bool> ready, failed;
};
struct shared_counters {
    std::array<counters, most_cameras> of;
    std::atomic<bool> end;
};

template <class T>
T buffer_value(const cli::gentl_library& lib, DS_HANDLE stream, BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) {
    return cli::ask_value<T>(lib, "DSGetBufferInfo", [&](auto* type, void* value, size_t* size) {
        return lib.DSGetBufferInfo(stream, buffer, command, type, value, size);
    });
}

// Takes every frame of one camera and hands its buffer back.
void take(const cli::gentl_library& lib, DS_HANDLE stream, EVENT_HANDLE new_buffer, const std::atomic<bool>& end,
          counters& seen) {
    uint64_t last_id = 0;
    while (!end) {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof data;
        if (lib.EventGetData(new_buffer, &data, &size, 100) != GC_ERR_SUCCESS) continue;
        const auto id = buffer_value<uint64_t>(lib, stream, data.BufferHandle, BUFFER_INFO_FRAMEID);
        // Ids are of 16 bits and leave out 0.
        if (last_id != 0) seen.missed += (id + 65535 - last_id - 1) % 65535;
        last_id = id;
        seen.bytes += buffer_value<size_t>(lib, stream, data.BufferHandle, BUFFER_INFO_SIZE_FILLED);
        if (buffer_value<bool8_t>(lib, stream, data.BufferHandle, BUFFER_INFO_IS_INCOMPLETE) != 0) ++seen.incomplete;
        ++seen.frames;
        lib.check("DSQueueBuffer", lib.DSQueueBuffer(stream, data.BufferHandle));
    }
}

struct camera_stream {
    std::vector<std::vector<std::byte>> frames; // the consumer's own memory, every page of it touched
    std::shared_ptr<const cli::tl_device> device;
    std::shared_ptr<const cli::tl_stream> stream;
    std::unique_ptr<cli::node_map> remote;
    EVENT_HANDLE new_buffer = nullptr;
};

camera_stream open_stream(const cli::gentl_library& lib, const std::shared_ptr<const cli::tl_interface>& interface,
                          const std::string& id) {
    camera_stream opened;
    opened.device = cli::open_device(lib, interface, id, DEVICE_ACCESS_CONTROL);
    opened.remote = std::make_unique<cli::node_map>(lib, cli::remote_port(lib, *opened.device));
    opened.stream = cli::open_stream(lib, opened.device);
    const auto payload = static_cast<size_t>(cli::require_integer(*opened.remote, "PayloadSize"));
    const DS_HANDLE stream = opened.stream->get();
    opened.frames.assign(buffers_per_stream, std::vector<std::byte>(payload));
    for (auto& frame : opened.frames) {
        BUFFER_HANDLE buffer = nullptr;
        lib.check("DSAnnounceBuffer", lib.DSAnnounceBuffer(stream, frame.data(), payload, nullptr, &buffer));
    }
    lib.check("GCRegisterEvent", lib.GCRegisterEvent(stream, EVENT_NEW_BUFFER, &opened.new_buffer));
    lib.check("DSFlushQueue", lib.DSFlushQueue(stream, ACQ_QUEUE_ALL_TO_INPUT));
    lib.check("DSStartAcquisition", lib.DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    return opened;
}

// A consumer's whole life: cameras `first` and following, as many as there are counters.
void consume(const std::string& cti, size_t first, std::span<counters> seen, const std::atomic<bool>& end,
             size_t cameras) {
    const auto lib = std::make_shared<const cli::gentl_library>(cti);
    const auto system = cli::open_system(lib);
    std::vector<std::pair<cli::device_entry, std::shared_ptr<const cli::tl_interface>>> found;
    for (int attempt = 0; attempt < 50 && found.size() < cameras; ++attempt) {
        found.clear();
        for (const auto& entry : cli::list_interfaces(*system)) {
            const auto interface = cli::open_interface(system, entry.id);
            for (auto& device : cli::list_devices(*lib, *interface, entry.id, 200)) {
                found.emplace_back(std::move(device), interface);
            }
        }
    }
    if (found.size() < cameras) throw std::runtime_error("the cameras were not found");
    std::ranges::sort(found, {}, [](const auto& each) { return each.first.serial; });
    std::vector<camera_stream> streams;
    for (size_t i = 0; i < seen.size(); ++i) {
        streams.push_back(open_stream(*lib, found[first + i].second, found[first + i].first.id));
    }
    std::vector<std::jthread> takers;
    for (size_t i = 0; i < seen.size(); ++i) {
        takers.emplace_back([&, i] {
            pthread_setname_np(pthread_self(), "consumer's own");
            try {
                take(*lib, streams[i].stream->get(), streams[i].new_buffer, end, seen[i]);
            } catch (const std::exception& failure) {
                fmt::print(stderr, "bench_scale: {}\n", failure.what());
                seen[i].failed = true;
            }
        });
        cli::execute(cli::require_node(*streams[i].remote, "AcquisitionStart"));
        // Cameras that begin at once would send in the same halves of their frame times.
        std::this_thread::sleep_for(7ms);
        seen[i].ready = true;
    }
    takers.clear();
    for (const camera_stream& each : streams) {
        lib->check("DSStopAcquisition", lib->DSStopAcquisition(each.stream->get(), ACQ_STOP_FLAGS_DEFAULT));
    }
}

struct totals {
    double consumer_seconds = 0;
    double receiving_seconds = 0; // of it: the receive threads
    double camera_seconds = 0;
    double service_seconds = 0;
    uint64_t receiving_wakes = 0;
    uint64_t wakes = 0;
    uint64_t frames = 0;
    uint64_t bytes = 0;
    uint64_t incomplete = 0;
    uint64_t missed = 0;

    [[nodiscard]] totals minus(const totals& before) const {
        return {consumer_seconds - before.consumer_seconds,
                receiving_seconds - before.receiving_seconds,
                camera_seconds - before.camera_seconds,
                service_seconds - before.service_seconds,
                receiving_wakes - before.receiving_wakes,
                wakes - before.wakes,
                frames - before.frames,
                bytes - before.bytes,
                incomplete - before.incomplete,
                missed - before.missed};
    }
    [[nodiscard]] double per_gigabyte(double seconds) const { return seconds / (static_cast<double>(bytes) * 1e-9); }
    [[nodiscard]] double per_frame(uint64_t count) const {
        return static_cast<double>(count) / static_cast<double>(frames);
    }
};

struct inventory {
    std::map<std::string, int> consumer_threads, consumer_descriptors, service_threads, service_descriptors;
};

struct result {
    totals used;
    double wall_seconds = 0;
    bench::memory_use consumers;
    bench::memory_use service;
    inventory parts;
};

bool is_receive_thread(const std::string& name) { return name == "gev::streamchan"; }

double seconds_of(pid_t process) {
    double sum = 0;
    for (const auto& [id, thread] : bench::threads_of(process)) sum += thread.cpu_seconds;
    return sum;
}

totals look(const std::vector<pid_t>& consumers, pid_t camera, pid_t service, std::span<const counters> seen) {
    totals now;
    for (const pid_t consumer : consumers) {
        for (const auto& [id, thread] : bench::threads_of(consumer)) {
            now.consumer_seconds += thread.cpu_seconds;
            now.wakes += thread.wakes;
            if (!is_receive_thread(thread.name)) continue;
            now.receiving_seconds += thread.cpu_seconds;
            now.receiving_wakes += thread.wakes;
        }
    }
    now.camera_seconds = seconds_of(camera);
    now.service_seconds = seconds_of(service);
    for (const counters& each : seen) {
        now.frames += each.frames;
        now.bytes += each.bytes;
        now.incomplete += each.incomplete;
        now.missed += each.missed;
    }
    return now;
}

void add(std::map<std::string, int>& sum, const std::map<std::string, int>& more) {
    for (const auto& [name, count] : more) sum[name] += count;
}

std::map<std::string, int> thread_names(pid_t process) {
    std::map<std::string, int> names;
    for (const auto& [id, thread] : bench::threads_of(process)) ++names[thread.name];
    return names;
}

result measure(const options& wanted, size_t cameras, bool one_consumer) {
    const auto bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::string cti = bin.parent_path() / "lib" / "orv-gentl-gev.cti";
    const std::string network = fmt::format("127.{}.{}.", 20 + getpid() / 250 % 200, 1 + getpid() % 250);
    const double rate = wanted.megabytes_per_second * 1e6 / wanted.frame_bytes() / static_cast<double>(cameras);
    std::vector<std::string> camera_command{bin / "orv-gev-camera-sim", "--quiet"};
    std::vector<std::string> service_command{bin / "orv-gentl-gev-service", "--no-networks"};
    for (const auto& [option, value] : std::initializer_list<std::pair<const char*, std::string>>{
             {"--address", network + "10"},
             {"--cameras", std::to_string(cameras)},
             {"--sensor-width", std::to_string(wanted.width)},
             {"--sensor-height", std::to_string(wanted.height)},
             {"--frame-rate", fmt::format("{:.4f}", rate)},
             {"--max-packet-size", std::to_string(wanted.packet_size)},
             {"--ring", "4"}}) {
        camera_command.insert(camera_command.end(), {option, value});
    }
    for (size_t i = 0; i < cameras; ++i) {
        service_command.insert(service_command.end(), {"--discover", network + std::to_string(10 + i)});
    }
    const child_process camera{camera_command};
    const child_process service{service_command};

    void* memory = mmap(nullptr, sizeof(shared_counters), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("no shared memory");
    auto& shared = *new (memory) shared_counters{};
    const std::span all{shared.of.data(), cameras};
    std::vector<pid_t> consumers;
    const size_t each = one_consumer ? cameras : 1;
    for (size_t first = 0; first < cameras; first += each) {
        std::fflush(nullptr); // or what is not written yet is written by both
        const pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            int status = 0;
            try {
                consume(cti, first, all.subspan(first, each), shared.end, cameras);
            } catch (const std::exception& failure) {
                fmt::print(stderr, "bench_scale: {}\n", failure.what());
                for (counters& mine : all.subspan(first, each)) mine.failed = true;
                status = 1;
            }
            std::fflush(nullptr);
            _exit(status);
        }
        consumers.push_back(pid);
    }
    const auto failed = [&] { return std::ranges::any_of(all, [](const counters& one) { return one.failed.load(); }); };
    while (!failed() && !std::ranges::all_of(all, [](const counters& one) { return one.ready.load(); })) {
        std::this_thread::sleep_for(10ms);
    }
    result found;
    if (!failed()) {
        std::this_thread::sleep_for(500ms); // the start is over
        const auto begin = std::chrono::steady_clock::now();
        const totals before = look(consumers, camera.id(), service.id(), all);
        std::this_thread::sleep_for(std::chrono::duration<double>{wanted.seconds});
        found.used = look(consumers, camera.id(), service.id(), all).minus(before);
        found.wall_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        for (const pid_t consumer : consumers) {
            const auto memory_now = bench::memory_of(consumer);
            found.consumers.resident_mib += memory_now.resident_mib;
            found.consumers.proportional_mib += memory_now.proportional_mib;
            add(found.parts.consumer_threads, thread_names(consumer));
            add(found.parts.consumer_descriptors, bench::descriptors_of(consumer));
        }
        found.service = bench::memory_of(service.id());
        found.parts.service_threads = thread_names(service.id());
        found.parts.service_descriptors = bench::descriptors_of(service.id());
    }
    shared.end = true;
    const bool any_failed = failed();
    for (const pid_t consumer : consumers) waitpid(consumer, nullptr, 0);
    munmap(memory, sizeof(shared_counters));
    if (any_failed) throw std::runtime_error("a consumer failed");
    if (found.used.frames == 0) throw std::runtime_error("no frames came");
    return found;
}

// Numbers of the largest and of one camera side by side: what grows with the cameras and what does not.
void print_parts(const char* owner, size_t most, const std::map<std::string, int>& with_one,
                 const std::map<std::string, int>& with_most) {
    std::map<std::string, int> names = with_one;
    names.insert(with_most.begin(), with_most.end());
    for (const auto& [name, ignored] : names) {
        const int one = with_one.contains(name) ? with_one.at(name) : 0;
        const int many = with_most.contains(name) ? with_most.at(name) : 0;
        fmt::print("| {} | {} | {} | {} | {:.2g} |\n", owner, name, one, many,
                   static_cast<double>(many - one) / static_cast<double>(most - 1));
    }
}

void print_table(const options& wanted, bool one_consumer) {
    fmt::print("\n{}; {:.0f} MB/s in all, {}x{}, packets of {} bytes, {:.0f} s, median of {} rounds\n\n",
               one_consumer ? "All cameras in one consumer" : "Each camera in a consumer of its own",
               wanted.megabytes_per_second, wanted.width, wanted.height, wanted.packet_size, wanted.seconds,
               wanted.rounds);
    fmt::print(
        "| cameras | MB/s | CPU s/GB | to the first row | of it receive threads | their wakes per frame | all wakes "
        "per frame | frames | missed | incomplete | resident MiB beside frames | proportional | service CPU "
        "s/GB | service MiB | cameras' CPU s/GB |\n|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n");
    std::vector<std::vector<result>> rows(wanted.cameras.size());
    for (uint32_t round = 0; round < wanted.rounds; ++round) {
        for (size_t i = 0; i < rows.size(); ++i) {
            rows[i].push_back(measure(wanted, wanted.cameras[i], one_consumer));
        }
    }
    double base = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].empty()) continue;
        std::ranges::sort(rows[i], {},
                          [](const result& each) { return each.used.per_gigabyte(each.used.consumer_seconds); });
        const result& typical = rows[i][rows[i].size() / 2];
        const totals& used = typical.used;
        const double cost = used.per_gigabyte(used.consumer_seconds);
        if (base == 0) base = cost;
        const double frames_mib =
            wanted.frame_bytes() * static_cast<double>(buffers_per_stream * wanted.cameras[i]) / (1 << 20);
        uint64_t frames = 0;
        uint64_t missed = 0;
        uint64_t incomplete = 0;
        for (const result& each : rows[i]) {
            frames += each.used.frames;
            missed += each.used.missed;
            incomplete += each.used.incomplete;
        }
        fmt::print(
            "| {} | {:.0f} | {:.3f} | {:.2f} | {:.3f} | {:.1f} | {:.1f} | {} | {} | {} | {:.1f} | {:.1f} | {:.3f} | "
            "{:.1f} | {:.2f} |\n",
            wanted.cameras[i], static_cast<double>(used.bytes) * 1e-6 / typical.wall_seconds, cost, cost / base,
            used.per_gigabyte(used.receiving_seconds), used.per_frame(used.receiving_wakes), used.per_frame(used.wakes),
            frames, missed, incomplete, typical.consumers.resident_mib - frames_mib,
            typical.consumers.proportional_mib - frames_mib, used.per_gigabyte(used.service_seconds),
            typical.service.resident_mib, used.per_gigabyte(used.camera_seconds));
        std::fflush(stdout);
    }
    if (rows.size() < 2 || rows.front().empty()) return;
    const inventory& one = rows.front().front().parts;
    const inventory& most = rows.back().front().parts;
    const size_t count = wanted.cameras.back();
    fmt::print("\n| process | thread or descriptor | {} camera | {} cameras | per camera |\n|---|---|---|---|---|\n",
               wanted.cameras.front(), count);
    print_parts("consumer, thread", count, one.consumer_threads, most.consumer_threads);
    print_parts("consumer", count, one.consumer_descriptors, most.consumer_descriptors);
    print_parts("service, thread", count, one.service_threads, most.service_threads);
    print_parts("service", count, one.service_descriptors, most.service_descriptors);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"What a growing number of cameras costs at a constant total rate. Markdown goes to standard output."};
    app.option_defaults()->always_capture_default();
    options wanted;
    std::string layout = "both";
    app.add_option("--cameras", wanted.cameras, "Numbers of cameras")
        ->delimiter(',')
        ->check(CLI::Range(size_t{1}, most_cameras));
    app.add_option("--width", wanted.width, "Picture width, a multiple of 8");
    app.add_option("--height", wanted.height, "Picture height");
    app.add_option("--packet-size", wanted.packet_size, "With IP and UDP headers");
    app.add_option("--rate", wanted.megabytes_per_second, "Of all cameras together, MB/s")
        ->check(option_checks::number(0.001, 1e5));
    app.add_option("--seconds", wanted.seconds, "Of each measurement")->check(option_checks::number(0.1, 3600));
    app.add_option("--rounds", wanted.rounds, "Measurements of each row, in turn")->check(CLI::Range(1, 100));
    app.add_option("--consumers", layout, "one: all cameras in one; each: one per camera; both")
        ->check(CLI::IsMember({"one", "each", "both"}));
    CLI11_PARSE(app, argc, argv);

    const test_support::runtime_folder folder;
    int status = 0;
    try {
        if (layout != "each") print_table(wanted, true);
        if (layout != "one") print_table(wanted, false);
    } catch (const std::exception& failure) {
        fmt::print(stderr, "bench_scale: {}\n", failure.what());
        status = 1;
    }
    return status;
}
