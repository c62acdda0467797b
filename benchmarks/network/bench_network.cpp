// usage: bench_network [rounds]
// What reaches a consumer of the real library, over a real service, from a simulated camera on loopback: its events at
// 2000 a second for ten seconds while frames stream, and changes of the list of cameras. Prints markdown.
#include "../child_process.h"

#include <cli/consumer/gentl_library.h>
#include <cli/consumer/node_map.h>
#include <cli/consumer/session.h>
#include <support/temporary_folder.h>

#include <fmt/format.h>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

namespace {

using namespace GenTL;
using clock = std::chrono::steady_clock;

constexpr int rate = 2000; // events a second, one for each frame
constexpr int events_wanted = 10 * rate;
constexpr const char* camera_serial = "BENCH";

struct consumer {
    std::shared_ptr<const cli::gentl_library> lib;
    std::shared_ptr<const cli::tl_interface> interface;
    std::string device_id;

    explicit consumer(const std::string& cti) : lib(std::make_shared<const cli::gentl_library>(cti)) {
        const auto system = cli::open_system(lib);
        for (const auto& entry : cli::list_interfaces(*system)) {
            auto opened = cli::open_interface(system, entry.id);
            for (const auto& device : cli::list_devices(*lib, *opened, entry.id, 1000)) {
                if (device.serial != camera_serial) continue;
                interface = opened;
                device_id = device.id;
            }
        }
        if (!interface) throw std::runtime_error("the camera was not found");
    }
};

class stream final {
public:
    stream(const cli::gentl_library& library, std::shared_ptr<const cli::tl_device> device, const cli::node_map& remote)
        : lib(library), opened(cli::open_stream(library, std::move(device))) {
        const auto payload = static_cast<size_t>(cli::require_integer(remote, "PayloadSize"));
        for (int i = 0; i < 64; ++i) {
            BUFFER_HANDLE buffer = nullptr;
            lib.check("DSAllocAndAnnounceBuffer",
                      lib.DSAllocAndAnnounceBuffer(opened->get(), payload, nullptr, &buffer));
        }
        lib.check("GCRegisterEvent", lib.GCRegisterEvent(opened->get(), EVENT_NEW_BUFFER, &new_buffer));
        lib.check("DSFlushQueue", lib.DSFlushQueue(opened->get(), ACQ_QUEUE_ALL_TO_INPUT));
        lib.check("DSStartAcquisition", lib.DSStartAcquisition(opened->get(), ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
        taker = std::jthread{[this](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                EVENT_NEW_BUFFER_DATA data{};
                size_t size = sizeof data;
                if (lib.EventGetData(new_buffer, &data, &size, 100) != GC_ERR_SUCCESS) continue;
                ++frames;
                static_cast<void>(lib.DSQueueBuffer(opened->get(), data.BufferHandle));
            }
        }};
    }
    ~stream() {
        taker.request_stop();
        taker.join();
        static_cast<void>(lib.DSStopAcquisition(opened->get(), ACQ_STOP_FLAGS_DEFAULT));
    }
    stream(const stream&) = delete;
    stream& operator=(const stream&) = delete;
    std::atomic<int> frames = 0;

private:
    const cli::gentl_library& lib;
    std::shared_ptr<const cli::tl_stream> opened;
    EVENT_HANDLE new_buffer = nullptr;
    std::jthread taker;
};

void measure_events(const std::string& cti, bool extended) {
    const consumer user{cti};
    const auto& lib = *user.lib;
    const auto device = cli::open_device(lib, user.interface, user.device_id, DEVICE_ACCESS_CONTROL);
    const cli::node_map remote{lib, cli::remote_port(lib, *device)};
    for (const auto& [feature, value] : {std::pair<const char*, std::string>{"AcquisitionMode", "MultiFrame"},
                                         {"AcquisitionFrameCount", std::to_string(events_wanted)},
                                         {"EventSelector", "ExposureEnd"},
                                         {"EventNotification", "On"}})
        cli::set_from_text(cli::require_node(remote, feature), value);
    EVENT_HANDLE events = nullptr;
    lib.check("GCRegisterEvent", lib.GCRegisterEvent(device->get(), EVENT_REMOTE_DEVICE, &events));
    stream frames{lib, device, remote};
    cli::execute(cli::require_node(remote, "AcquisitionStart"));
    int came = 0;
    int out_of_order = 0;
    uint64_t last_block = 0;
    uint64_t last_time = 0;
    auto begin = clock::now();
    auto end = begin;
    for (;;) {
        std::array<std::byte, 576> packet;
        size_t size = packet.size();
        if (lib.EventGetData(events, packet.data(), &size, 1000) != GC_ERR_SUCCESS) break;
        if (came++ == 0) begin = clock::now();
        end = clock::now();
        const auto number = [&](size_t at, size_t length) {
            uint64_t value = 0;
            for (size_t i = 0; i < length; ++i) value = value << 8 | std::to_integer<uint64_t>(packet.at(at + i));
            return value;
        };
        const uint64_t block = extended ? number(8 + 8, 8) : number(8 + 6, 2);
        const uint64_t time = extended ? number(8 + 16, 8) : number(8 + 8, 8);
        if (block != last_block + 1 || time <= last_time) ++out_of_order;
        last_block = block;
        last_time = time;
    }
    const double seconds = std::chrono::duration<double>(end - begin).count();
    fmt::print("| {} | {} of {} | {} | {:.0f} | {} |\n", extended ? "extended" : "standard", came, events_wanted,
               out_of_order, came / seconds, frames.frames.load());
    lib.check("GCUnregisterEvent", lib.GCUnregisterEvent(device->get(), EVENT_REMOTE_DEVICE));
}

void measure_lists(const std::string& cti, std::unique_ptr<bench::child_process>& camera,
                   const std::vector<std::string>& command, int rounds) {
    const consumer user{cti};
    const auto& lib = *user.lib;
    EVENT_HANDLE event = nullptr;
    lib.check("GCRegisterEvent", lib.GCRegisterEvent(user.interface->get(), EVENT_MODULE, &event));
    // From `begin` until the list that a consumer sees is the one wanted.
    const auto told_after = [&](clock::time_point begin, bool listed) {
        for (;;) {
            std::array<std::byte, 1024> data;
            size_t size = data.size();
            lib.check("EventGetData", lib.EventGetData(event, data.data(), &size, 10'000));
            const auto list = cli::list_devices(lib, *user.interface, "", 1000);
            const bool is = std::ranges::any_of(list, [](const auto& each) { return each.serial == camera_serial; });
            if (is == listed) return std::chrono::duration<double, std::milli>(clock::now() - begin).count();
        }
    };
    std::vector<double> gone;
    std::vector<double> back;
    for (int i = 0; i < rounds; ++i) {
        // At another moment of the search each time.
        std::this_thread::sleep_for(std::chrono::milliseconds{1000 + 37 * i % 250});
        auto begin = clock::now();
        camera->end(SIGKILL);
        gone.push_back(told_after(begin, false));
        begin = clock::now();
        camera = std::make_unique<bench::child_process>(command);
        back.push_back(told_after(begin, true));
    }
    lib.check("GCUnregisterEvent", lib.GCUnregisterEvent(user.interface->get(), EVENT_MODULE));
    for (auto& [name, times] : {std::pair{"a camera goes", &gone}, std::pair{"a camera comes", &back}}) {
        std::ranges::sort(*times);
        fmt::print("| {} | {} | {:.0f} | {:.0f} |\n", name, times->size(), times->at(times->size() / 2), times->back());
    }
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 20;
    if (rounds < 1) {
        fmt::print(stderr, "usage: bench_network [rounds]\n");
        return 2;
    }
    const test_support::runtime_folder folder;
    const auto bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::string cti = bin.parent_path() / "lib" / "orv-gentl-gev.cti";
    const std::string address = fmt::format("127.{}.{}.10", 20 + getpid() / 250 % 200, 1 + getpid() % 250);
    int result = 0;
    try {
        std::vector<std::string> command{bin / "orv-gev-camera-sim",
                                         "--address",
                                         address,
                                         "--serial",
                                         camera_serial,
                                         "--width",
                                         "64",
                                         "--height",
                                         "64",
                                         "--frame-rate",
                                         std::to_string(rate),
                                         "--quiet"};
        fmt::print(
            "| event form | came | out of order | per second | frames taken meanwhile |\n|---|---|---|---|---|\n");
        for (const bool extended : {false, true}) {
            auto with = command;
            if (extended) with.push_back("--extended-ids");
            const bench::child_process camera{with};
            const bench::child_process service{{bin / "orv-gentl-gev-service", "--no-networks", "--discover", address}};
            measure_events(cti, extended);
        }
        fmt::print("\n| change of the list | rounds | median, ms | longest, ms |\n|---|---|---|---|\n");
        auto camera = std::make_unique<bench::child_process>(command);
        const bench::child_process service{{bin / "orv-gentl-gev-service", "--no-networks", "--discover", address}};
        measure_lists(cti, camera, command, rounds);
    } catch (const std::exception& failure) {
        fmt::print(stderr, "bench_network: {}\n", failure.what());
        result = 1;
    }
    return result;
}
