#include "events_command.h"

#include "../consumer/device_errors.h"
#include "../output/output.h"
#include "../posix/interruption.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <thread>

namespace cli {

using namespace GenTL;

namespace {

constexpr size_t event_size = 576;

struct event {
    uint64_t id = 0;
    std::vector<std::byte> body; // what the event's port reads
};

class listener {
public:
    listener(const gentl_library& library, std::shared_ptr<const tl_device> opened)
        : lib(library), device(std::move(opened)), errors(lib, device) {
        lib.check("GCRegisterEvent", lib.GCRegisterEvent(device->get(), EVENT_REMOTE_DEVICE, &handle));
    }
    ~listener() { static_cast<void>(lib.GCUnregisterEvent(device->get(), EVENT_REMOTE_DEVICE)); }
    listener(const listener&) = delete;
    listener& operator=(const listener&) = delete;

    // Waits without end for a time below 0. Throws failure(cause::no) when none came within it.
    [[nodiscard]] event next(int64_t wait_ms) const {
        using std::chrono::milliseconds;
        // In slices, so that Ctrl-C and the end of the camera are seen at once.
        constexpr int64_t slice_ms = 100;
        const auto deadline = std::chrono::steady_clock::now() + milliseconds{wait_ms};
        for (;;) {
            stop_if_interrupted();
            const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
            std::array<std::byte, event_size> packet{};
            size_t size = packet.size();
            const GC_ERROR waited = lib.EventGetData(
                handle, packet.data(), &size,
                static_cast<uint64_t>(wait_ms < 0 ? slice_ms : std::clamp<int64_t>(left, 0, slice_ms)));
            if (waited == GC_ERR_SUCCESS) return take(packet);
            errors.throw_if_lost(gone);
            if (waited != GC_ERR_TIMEOUT) lib.check("EventGetData", waited);
            if (wait_ms < 0 || left > 0) continue;
            throw_if_silent();
            throw failure(cause::no, fmt::format("No event within {} ms.", wait_ms));
        }
    }

private:
    static constexpr auto gone = "The camera or its service went.";

    [[nodiscard]] event take(const std::array<std::byte, event_size>& packet) const {
        event got;
        const auto info = [&](EVENT_DATA_INFO_CMD command, void* to, size_t* length) {
            INFO_DATATYPE type = 0;
            lib.check("EventGetDataInfo",
                      lib.EventGetDataInfo(handle, packet.data(), packet.size(), command, &type, to, length));
        };
        size_t length = sizeof got.id;
        info(EVENT_DATA_NUMID, &got.id, &length);
        got.body.resize(event_size);
        length = got.body.size();
        info(EVENT_DATA_VALUE, got.body.data(), &length);
        got.body.resize(length);
        return got;
    }
    // A camera that does not answer any more is lost, and has not merely nothing to tell.
    void throw_if_silent() const {
        std::array<std::byte, 4> word{};
        size_t size = word.size();
        if (const GC_ERROR code = lib.GCReadPort(remote_port(lib, *device), 0, word.data(), &size);
            code != GC_ERR_SUCCESS)
            throw call_failed("GCReadPort", code, lib.last_error(code)).explained(cause::lost, gone);
    }

    const gentl_library& lib;
    std::shared_ptr<const tl_device> device;
    device_errors errors;
    EVENT_HANDLE handle = nullptr;
};

// The document's event by id: its name, and the features that tell of it. By the naming convention that all makers
// follow: an integer "EventX" of the id, and beside it "EventXTimestamp" and others.
struct described_event {
    std::string name;
    std::vector<GenICam::INode*> features;
};

std::map<uint64_t, described_event> describe_events(GenICam::IGenICamDoc& document) {
    std::map<uint64_t, described_event> all;
    auto* root = document.get_root_category();
    if (root == nullptr) return all;
    const auto features = root->get_all_features();
    for (GenICam::INode* feature : features) {
        auto* number = GenICam::node_cast<GenICam::IInteger>(feature);
        const std::string name{feature->get_name()};
        if (number == nullptr || !name.starts_with("Event")) continue;
        const bool has_more = std::ranges::any_of(
            features, [&](GenICam::INode* other) { return std::string{other->get_name()} == name + "Timestamp"; });
        const auto id = number->get_val(0);
        if (!has_more || !id) continue;
        auto& event = all[static_cast<uint64_t>(*id)];
        event.name = name.substr(5);
        for (GenICam::INode* other : features)
            if (std::string{other->get_name()}.starts_with(name) && other != feature) event.features.push_back(other);
    }
    return all;
}

void print_event(const common_options& common, GenICam::IGenICamDoc& document,
                 const std::map<uint64_t, described_event>& known, const event& got) {
    nlohmann::json item{{"id", fmt::format("{:X}", got.id)}, {"size", got.body.size()}};
    document.apply_event(got.id, got.body);
    const auto found = known.find(got.id);
    if (found != known.end()) {
        item["name"] = found->second.name;
        item["features"] = nlohmann::json::object();
        for (GenICam::INode* feature : found->second.features) {
            std::string error;
            const auto text = value_text(*feature, error);
            if (error.empty()) item["features"][std::string{feature->get_name()}] = text;
        }
    }
    if (common.json) {
        print_json(item);
    } else {
        std::string line = fmt::format("{} {:<16}", item["id"].get<std::string>(), item.value("name", "?"));
        const auto features = item.value("features", nlohmann::json::object());
        for (const auto& [name, value] : features.items())
            line += fmt::format(" {}={}", name, value.get<std::string>());
        print("{}\n", line);
        flush_output(); // for one who reads it as it comes
    }
}

// Takes pictures and throws them away.
class running_stream {
public:
    running_stream(const gentl_library& library, std::shared_ptr<const tl_device> device, const node_map& features)
        : lib(library), remote(features), stream(open_stream(lib, std::move(device))) {
        const auto payload = static_cast<size_t>(require_integer(remote, "PayloadSize"));
        for (int i = 0; i < 8; ++i) {
            BUFFER_HANDLE buffer = nullptr;
            lib.check("DSAllocAndAnnounceBuffer",
                      lib.DSAllocAndAnnounceBuffer(stream->get(), payload, nullptr, &buffer));
        }
        lib.check("GCRegisterEvent", lib.GCRegisterEvent(stream->get(), EVENT_NEW_BUFFER, &new_buffer));
        lib.check("DSFlushQueue", lib.DSFlushQueue(stream->get(), ACQ_QUEUE_ALL_TO_INPUT));
        lib.check("DSStartAcquisition", lib.DSStartAcquisition(stream->get(), ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
        taker = std::jthread{[this](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                EVENT_NEW_BUFFER_DATA data{};
                size_t size = sizeof data;
                if (lib.EventGetData(new_buffer, &data, &size, 100) == GC_ERR_SUCCESS)
                    static_cast<void>(lib.DSQueueBuffer(stream->get(), data.BufferHandle));
            }
        }};
        execute(require_node(remote, "AcquisitionStart"));
    }
    ~running_stream() {
        try {
            execute(require_node(remote, "AcquisitionStop"));
        } catch (const std::exception&) {
            // The camera may be gone; the stream ends all the same.
        }
        taker.request_stop();
        taker.join();
        static_cast<void>(lib.DSStopAcquisition(stream->get(), ACQ_STOP_FLAGS_DEFAULT));
    }
    running_stream(const running_stream&) = delete;
    running_stream& operator=(const running_stream&) = delete;

private:
    const gentl_library& lib;
    const node_map& remote;
    std::shared_ptr<const tl_stream> stream;
    EVENT_HANDLE new_buffer = nullptr;
    std::jthread taker;
};

} // namespace

int show_events(const common_options& common, const event_options& options) {
    watch_for_interruption();
    const open_module opened = open_named_module(common, access_flags_of(common.access));
    const gentl_library& lib = *opened.found.lib;
    const node_map& remote = *opened.nodes;
    const listener events{lib, opened.device};
    for (const setting& each : options.set) static_cast<void>(apply(remote, each));
    for (const std::string& name : options.notify) {
        set_from_text(require_node(remote, "EventSelector"), name);
        set_from_text(require_node(remote, "EventNotification"), "On");
    }
    const auto known = describe_events(remote.document());
    std::optional<running_stream> stream;
    if (options.acquire) stream.emplace(lib, opened.device, remote);
    for (const std::string& command : options.execute) execute(require_node(remote, command));
    for (uint64_t i = 0; options.count == 0 || i < options.count; ++i)
        print_event(common, remote.document(), known, events.next(options.wait_ms));
    return 0;
}

} // namespace cli
