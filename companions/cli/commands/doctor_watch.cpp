#include "doctor_watch.h"

#include "../consumer/bootstrap_register.h"
#include "../losses/loss_watch.h"
#include "../output/output.h"
#include "../posix/interruption.h"

#include <gige/gvcp.h>

#include <fmt/chrono.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <list>

namespace cli {

namespace {

namespace reg = gige::gvcp::reg;

std::string ip_of(uint32_t address) {
    return fmt::format("{}.{}.{}.{}", address >> 24, address >> 16 & 255, address >> 8 & 255, address & 255);
}

class watched_camera {
public:
    watched_camera(const found_devices& found, const device_entry& camera, std::shared_ptr<const tl_interface> behind)
        : id(camera.id), interface_id(camera.interface_id), lib(*found.lib), interface(std::move(behind)) {
        look();
    }

    // What happened since the last call. Throws failure(cause::lost) when the service has gone.
    void look() {
        last = {};
        last.frames_known = false;
        if (device == nullptr && !open()) return;
        const auto address = read_register(lib, port, reg::stream_address);
        const auto to = read_register(lib, port, reg::stream_port);
        problem = address && to ? "" : "does not answer";
        if (!problem.empty()) device.reset(); // what is lost stays so: it is opened anew next time
        const uint32_t new_address = address.value_or(0);
        const auto new_port = static_cast<uint16_t>(to.value_or(0));
        if (new_port != stream_port || new_address != stream_address) begin(new_address, new_port);
        if (!watch) return;
        watch->take(last);
        add();
    }

    [[nodiscard]] std::string state() const {
        if (!problem.empty()) return problem;
        if (stream_port == 0) return "no stream";
        if (!watch || !watch->sees_socket())
            return fmt::format("streams to {} port {}, no socket of this host", ip_of(stream_address), stream_port);
        std::string card;
        for (const auto& [name, count] : last.card_drops) card += fmt::format(" {} {}", name, count);
        return fmt::format("{} dropped at the socket of {}, {} kB wait there; host queue {}; {}{}",
                           last.socket_drops.value_or(0), receiver, watch->waiting_bytes() / 1000,
                           last.host_queue_drops.value_or(0), last.interface, card.empty() ? " 0" : card);
    }
    [[nodiscard]] nlohmann::json json() const {
        nlohmann::json object = to_json(last);
        for (const char* of_frames :
             {"frames_complete", "frames_incomplete", "frames_lost", "underruns", "packet_size", "packets_expected",
              "packets_received", "packets_asked_again", "packets_late", "largest_test_packet"})
            object.erase(of_frames);
        object["device"] = id;
        object["streams_to"] = nullptr;
        if (stream_port != 0) object["streams_to"] = fmt::format("{}:{}", ip_of(stream_address), stream_port);
        object["receiver"] = nullptr;
        if (!receiver.empty()) object["receiver"] = receiver;
        return object;
    }
    [[nodiscard]] loss_verdict verdict() const { return judge(sum); }

    const std::string id;

private:
    // False while it cannot be opened.
    [[nodiscard]] bool open() {
        constexpr uint64_t longest_ms = 1000;
        try {
            static_cast<void>(list_devices(lib, *interface, interface_id, longest_ms));
        } catch (const failure& reason) {
            if (reason.why() == cause::lost) throw; // the service
            problem = reason.what();
            return false;
        }
        try {
            device = open_device(lib, interface, id, GenTL::DEVICE_ACCESS_READONLY);
            port = remote_port(lib, *device);
        } catch (const failure& reason) {
            problem = reason.what();
        }
        return device != nullptr;
    }
    void begin(uint32_t address, uint16_t to) {
        stream_address = address;
        stream_port = to;
        watch.reset();
        receiver.clear();
        if (to == 0) return;
        const auto sockets = read_udp_sockets();
        const udp_socket_row* const row = find_socket(sockets, address, to);
        int process = 0;
        if (row != nullptr) {
            const socket_owner owner = owner_of(*row);
            process = owner.process;
            receiver = process == 0 ? fmt::format("a process of user {}", owner.user)
                                    : fmt::format("{} (pid {})", owner.name, owner.process);
        }
        watch.emplace(address, to, process);
    }
    void add() {
        const auto plus = [](auto& into, const auto& more) {
            if (more) into = into.value_or(0) + *more;
        };
        sum.frames_known = false;
        sum.seconds += last.seconds;
        plus(sum.socket_drops, last.socket_drops);
        plus(sum.thread_ran, last.thread_ran);
        plus(sum.thread_waited, last.thread_waited);
        plus(sum.host_queue_drops, last.host_queue_drops);
        plus(sum.host_queue_squeezed, last.host_queue_squeezed);
        sum.socket_buffer = last.socket_buffer;
        sum.socket_buffer_limit = last.socket_buffer_limit;
        sum.interface = last.interface;
        sum.mtu = last.mtu;
        sum.ring_size = last.ring_size;
        sum.ring_limit = last.ring_limit;
        for (const auto& [name, count] : last.card_drops) {
            const auto known = std::ranges::find(sum.card_drops, name, &std::pair<std::string, uint64_t>::first);
            if (known == sum.card_drops.end()) {
                sum.card_drops.emplace_back(name, count);
            } else {
                known->second += count;
            }
        }
    }

    const std::string interface_id;
    const gentl_library& lib;
    const std::shared_ptr<const tl_interface> interface;
    std::shared_ptr<const tl_device> device; // null while it cannot be opened
    void* port = nullptr;
    std::string problem, receiver;
    uint32_t stream_address = 0;
    uint16_t stream_port = 0;
    std::optional<loss_watch> watch;
    loss_evidence last, sum;
};

std::string time_of_day() { return fmt::format("{:%H:%M:%S}", fmt::localtime(std::time(nullptr))); }

} // namespace

int watch_streams(const common_options& common, const watch_options& options) {
    watch_for_interruption();
    const found_devices found = find_devices(common);
    std::list<watched_camera> cameras;
    for (const auto& [device, interface] : found.devices) {
        if (device.access_status != GenTL::DEVICE_ACCESS_STATUS_NOACCESS)
            cameras.emplace_back(found, device, interface);
    }
    if (cameras.empty()) throw failure(cause::no_camera, "No camera was found. 'orv-gentl doctor' tells why.");
    const auto interval = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>{options.interval_s});
    auto due = std::chrono::steady_clock::now();
    for (uint64_t round = 0; options.count == 0 || round < options.count; ++round) {
        due += interval;
        if (!sleep_until(due)) break;
        nlohmann::json list = nlohmann::json::array();
        std::string line = time_of_day();
        for (watched_camera& each : cameras) {
            each.look();
            line += fmt::format("{} {}: {}", cameras.size() > 1 ? "\n " : "", each.id, each.state());
            list.push_back(each.json());
        }
        if (common.json) {
            print_json({{"time", time_of_day()}, {"cameras", list}});
        } else {
            print("{}\n", line);
        }
        flush_output();
    }
    bool any = false;
    nlohmann::json sums = nlohmann::json::array();
    for (const watched_camera& each : cameras) {
        const loss_verdict verdict = each.verdict();
        any = any || verdict.cause != loss_cause::nothing;
        nlohmann::json sum = to_json(verdict);
        sum["device"] = each.id;
        sums.push_back(std::move(sum));
        if (common.json) continue;
        print("{}: {}\n", each.id, verdict.sentence);
        if (!verdict.remedy.empty()) print("  {}\n", verdict.remedy);
    }
    if (common.json) print_json({{"sum", sums}});
    return any ? row_of(cause::no).exit_code : 0;
}

} // namespace cli
