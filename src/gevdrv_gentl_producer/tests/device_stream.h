// The device's stream module over a service and a camera in this process: everything between the connection's
// interface and the exported functions is the product's own.
#pragma once

#include "fake_camera.h"
#include "module_feature.h"

#include "../device_instance.h"
#include "../interface_instance.h"
#include "../system_instance.h"

#include <gds_helper/property_store_chain.h>
#include <ipc_rpc/catalogue.h>
#include <platform.h>
#include <support/eventually.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <set>

namespace fake {

using test_support::eventually;
inline constexpr uint64_t long_enough_ms = 10'000;

using namespace GenTL;
using namespace GenTL::Producer;

class service final : public ipc_rpc::rpc_connection_client {
public:
    service(camera& with, std::string settings_name) : device(with), memory_name(std::move(settings_name)) {
        using namespace ipc_rpc;
        namespace c = catalogue;
        using context = rpc_call_context;
        using error = std::error_code;
        const auto added = [](const std::error_code& failure) { EXPECT_FALSE(failure); };
        added(c::get_device_service_info::serve(table, [this](context&) -> std::expected<device_service_info, error> {
            return device_service_info{1, 2, 0, {}, memory_name};
        }));
        added(c::get_url_info_list::serve(table, [this](context&) -> std::expected<std::vector<url_info>, error> {
            char url[64];
            std::snprintf(url, sizeof url, "local:camera.xml;%lx;%zx", camera::document_address,
                          device.document().size());
            std::vector<url_info> list;
            if (!device.first_url().empty()) list.push_back({{}, device.first_url(), 0});
            list.push_back({url_version_words{{1, 1, 4, 5, 6}}, url, 0});
            return list;
        }));
        added(c::read_mem::serve(
            table,
            [this](context&, uint64_t address, uint64_t size, uint32_t, uint64_t) -> std::expected<byte_vector, error> {
                const std::string text = device.document();
                if (address != camera::document_address) {
                    byte_vector word(size);
                    const uint32_t value = device.read(address);
                    for (size_t i = 0; i < size && i < 4; ++i) word[i] = static_cast<std::byte>(value >> (24 - 8 * i));
                    return word;
                }
                const auto bytes = std::as_bytes(std::span{text}.first(std::min<size_t>(size, text.size())));
                return byte_vector(bytes.begin(), bytes.end());
            }));
        added(c::read_reg::serve(table,
                                 [this](context&, uint64_t address, uint32_t,
                                        uint64_t) -> std::expected<uint32_t, error> { return device.read(address); }));
        added(c::write_reg::serve(
            table,
            [this](context&, uint64_t address, uint32_t value, uint32_t, uint64_t) -> std::expected<void, error> {
                device.write(address, value);
                return {};
            }));
        added(c::acquire_stream_channel::serve(table, [this](context&) -> std::expected<registered_object, error> {
            const std::lock_guard guard{mutex};
            if (refuse_leases) return std::unexpected(refusal());
            leases.insert(++last_handle);
            return registered_object{last_handle};
        }));
        added(c::get_stream_channel_info::serve(
            table, [this](context&, uint32_t) -> std::expected<stream_channel_info, error> {
                return stream_channel_info{0, loopback, "127.0.0.1", device.port(), 0, 0};
            }));
        added(c::send_resend_cmd::serve(table,
                                        [this](context&, uint32_t, uint64_t block, uint32_t first, uint32_t last,
                                               bool) -> std::expected<void, error> {
                                            device.resend(block, first, last);
                                            return {};
                                        }));
    }

    std::expected<uint64_t, std::error_code> register_object(ipc_rpc::object_entry) override {
        return std::unexpected(refusal());
    }
    std::error_code close_handle(uint64_t handle, uint32_t) override {
        const std::lock_guard guard{mutex};
        leases.erase(handle);
        return {};
    }
    std::error_code call(uint64_t, std::string_view name, std::span<const std::byte> parameters,
                         std::vector<std::byte>* result, uint32_t) override {
        // Without an answer; what is refused found no place in the queue.
        if (name == ipc_rpc::catalogue::send_write_auto_values_cmd::name)
            return ++auto_values_asked <= auto_values_refused ? refusal() : std::error_code{};
        const ipc_rpc::rpc_function* function = table.find_global(name);
        if (function == nullptr) return refusal();
        const raised mark{answering};
        ipc_rpc::rpc_call_context context{ipc_rpc::param_reader{parameters}, {}, nullptr, nullptr};
        if (const auto answer = (*function)(context); answer != ipc_rpc::status::success) return refusal();
        if (result != nullptr) *result = std::move(context.result);
        return {};
    }
    bool is_open() const override { return true; }

    [[nodiscard]] size_t open_leases() const {
        const std::lock_guard guard{mutex};
        return leases.size();
    }
    std::atomic<bool> refuse_leases{false};
    // On the calling thread, while it plays the service.
    static inline thread_local bool answering = false;
    std::atomic<int> auto_values_asked{0}, auto_values_refused{0}; // so many of the first ones

private:
    struct raised {
        explicit raised(bool& which) : flag(which) { flag = true; }
        ~raised() { flag = false; }
        bool& flag;
    };
    static std::error_code refusal() { return std::make_error_code(std::errc::function_not_supported); }

    camera& device;
    const std::string memory_name;
    ipc_rpc::object_function_table_root table;
    mutable std::mutex mutex; // guards what follows
    std::set<uint64_t> leases;
    uint64_t last_handle = 1;
};

class device_stream {
public:
    ~device_stream() {
        if (stream != nullptr) {
            for (const auto& [handle, block] : memory) expect_guard(handle, info<size_t>(handle, BUFFER_INFO_SIZE));
            EXPECT_FALSE(device->OnDataStreamClosed(stream).failed());
        }
        device.reset();
        EXPECT_EQ(connection->open_leases(), 0U);
    }

    // Null when the chain can't be built.
    static std::unique_ptr<device_stream> make(const camera_traits& traits) {
        static const std::string base = "settings-" + ipc_rpc::platform::unique_text();
        static std::atomic<int> count{0};
        const std::string name = ipc_rpc::platform::object_name(base + std::to_string(++count));
        auto made = std::unique_ptr<device_stream>{new device_stream{traits, name}};
        return made->stream != nullptr && made->event != nullptr ? std::move(made) : nullptr;
    }

    [[nodiscard]] gds_producer::settings_block settings() const { return gds_producer::settings_block{shared.bytes()}; }
    [[nodiscard]] gevdrv::gentl::resend_settings& resends() const { return device->resends(); }
    template <class T>
    [[nodiscard]] T info(STREAM_INFO_CMD command) const {
        T value{};
        INFO_DATATYPE type = 0;
        size_t size = sizeof value;
        EXPECT_FALSE(stream->GetInfo(command, &type, &value, &size).failed());
        return value;
    }
    template <class T>
    [[nodiscard]] T info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const {
        T value{};
        INFO_DATATYPE type = 0;
        size_t size = sizeof value;
        EXPECT_FALSE(stream->GetBufferInfo(buffer, command, &type, &value, &size).failed());
        return value;
    }

    // Opens the device's stream and its event; the one before is closed.
    void open_stream() {
        memory.clear();
        DS_HANDLE handle = nullptr;
        EXPECT_FALSE(device->OpenDataStream("Stream0", &handle).failed());
        stream = dynamic_cast<IDataStream*>(static_cast<IHandleTarget*>(handle));
        EVENT_HANDLE event_handle = nullptr;
        auto* source = dynamic_cast<IEventSource*>(stream);
        EXPECT_FALSE(source->RegisterEvent(EVENT_NEW_BUFFER, &event_handle).failed());
        event = dynamic_cast<IEvent*>(static_cast<IHandleTarget*>(event_handle));
    }
    // Big enough for what the leader promises; the camera sends only the first bytes of a large picture.
    BUFFER_HANDLE announce() { return announce(std::max<size_t>(camera::payload_size, cam.picture_bytes())); }
    BUFFER_HANDLE announce(size_t size) {
        auto block = std::make_unique<std::byte[]>(size + guard_bytes);
        std::fill_n(block.get() + size, guard_bytes, guard);
        BUFFER_HANDLE handle = nullptr;
        EXPECT_FALSE(stream->AnnounceBuffer(block.get(), size, nullptr, &handle).failed());
        memory.emplace(handle, std::move(block));
        return handle;
    }
    void queue_new(int count) {
        while (count-- > 0) EXPECT_FALSE(stream->QueueBuffer(announce()).failed());
    }
    // From the next start on, where frames come by the test's pace, which stands still on a busy machine.
    void patient(uint32_t time_per_frame_us = 1'000'000) const {
        resends().auto_time_per_frame = false;
        resends().time_per_frame_us = time_per_frame_us;
    }
    // Revoked memory is freed at once: nobody may write to it any more.
    bool revoke(BUFFER_HANDLE handle) {
        const auto size = info<size_t>(handle, BUFFER_INFO_SIZE);
        if (stream->RevokeBuffer(handle, nullptr, nullptr).failed()) return false;
        expect_guard(handle, size);
        memory.erase(handle);
        return true;
    }
    bool start() { return !stream->StartAcquisition(ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE).failed(); }
    bool stop(ACQ_STOP_FLAGS flags = ACQ_STOP_FLAGS_DEFAULT) { return !stream->StopAcquisition(flags).failed(); }
    BUFFER_HANDLE next(uint64_t timeout_ms) {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof data;
        return event->GetData(&data, &size, timeout_ms).failed() ? nullptr : data.BufferHandle;
    }
    // The buffers that neither queue nor receiver have.
    [[nodiscard]] std::vector<BUFFER_HANDLE> mine() const {
        std::vector<BUFFER_HANDLE> handles;
        for (const auto& [handle, block] : memory) {
            if (info<uint8_t>(handle, BUFFER_INFO_IS_QUEUED) == 0) handles.push_back(handle);
        }
        return handles;
    }
    // announced = input and filling + output + consumer's. A buffer on its way between two queues is in neither for a
    // moment; a lost one stays away.
    [[nodiscard]] bool all_accounted_for() const {
        struct triple {
            size_t announced, input_and_filling, output;
        } seen{};
        if (eventually([&] {
                seen = info<triple>(STREAM_INFO_KRV_NUM_ANNOUNCED_QUEUED_AWAITDELIVERY);
                return seen.announced != memory.size() ||
                       mine().size() + seen.input_and_filling + seen.output == seen.announced;
            }) &&
            seen.announced == memory.size())
            return true;
        ADD_FAILURE() << "announced " << seen.announced << " of " << memory.size() << ", input and filling "
                      << seen.input_and_filling << ", output " << seen.output << ", consumer's " << mine().size();
        return false;
    }
    [[nodiscard]] bool bytes_right(BUFFER_HANDLE handle) const {
        const auto block = info<uint64_t>(handle, BUFFER_INFO_FRAMEID);
        const auto filled = info<size_t>(handle, BUFFER_INFO_SIZE_FILLED);
        if (filled != std::min<size_t>(info<size_t>(handle, BUFFER_INFO_SIZE), camera::payload_size)) return false;
        const std::byte* bytes = memory.at(handle).get();
        for (size_t i = 0; i < filled; ++i) {
            if (bytes[i] != camera::pixel(block, i)) return false;
        }
        return true;
    }
    [[nodiscard]] std::byte* bytes_of(BUFFER_HANDLE handle) const { return memory.at(handle).get(); }
    // The device goes with its stream running or not, as it does when a consumer closes it.
    void close_device() {
        stream = nullptr;
        event = nullptr;
        device.reset();
    }
    // Frames go through the mailbox and its thread; while the stream is stopped.
    void use_dedicated_thread(bool on) {
        settings().set_flag(gds_producer::settings_block::master_enable, on);
        feature<uint32_t>{*device, "ImageTransformQueueMode"}.set(on ? 1 : 0);
        ASSERT_EQ(device->queue_mode() == gds_producer::transform_queue_mode::use_dedicated_thread, on);
    }

private:
    // Nothing is written behind a buffer. A sanitizer sees that itself, reads included.
#if defined(__SANITIZE_ADDRESS__)
    static constexpr size_t guard_bytes = 0;
#else
    static constexpr size_t guard_bytes = 64;
#endif
    static constexpr std::byte guard{0xC5};
    void expect_guard(BUFFER_HANDLE handle, size_t size) const {
        const std::span behind{memory.at(handle).get() + size, guard_bytes};
        EXPECT_TRUE(std::ranges::all_of(behind, [](std::byte value) { return value == guard; }));
    }

    device_stream(const camera_traits& traits, const std::string& settings_name)
        : shared(
              ipc_rpc::platform::shared_mapping::create(settings_name, gds_producer::settings_block::minimum_size, {})),
          cam(traits),
          connection(std::make_shared<service>(cam, settings_name)) {
        settings().set_neutral(); // as the service gives it
        system = std::make_shared<gevdrv::gentl::system_instance>(library_info, environment);
        interface = std::make_shared<gevdrv::gentl::interface_instance>(
            *system, InterfaceInfo{"if0", "Interface", "GEV", {}, {}, 0}, ipc_rpc::client_object_handle{});
        DeviceInfo device_info;
        device_info.id = "dev0";
        device_info.tl_type = "GEV";
        device = std::make_shared<gevdrv::gentl::device_instance>(
            *interface, device_info, DEVICE_ACCESS_CONTROL,
            ipc_rpc::client_object_handle{std::weak_ptr<ipc_rpc::rpc_connection_client>{connection}, 1});
        const Error error = device->init();
        EXPECT_FALSE(error.failed()) << error.message;
        if (error.failed()) return;
        open_stream();
    }

    const TransportLayerInfo library_info{"id", "Maker", "Model", "1.0", "GEV", "Display"};
    gds_producer::producer_environment environment{gds_shared::gev_product,
                                                   std::make_shared<gds_helper::property_store_chain>(), nullptr};
    ipc_rpc::platform::shared_mapping shared;
    std::map<BUFFER_HANDLE, std::unique_ptr<std::byte[]>> memory;

public:
    camera cam;
    std::shared_ptr<service> connection;
    std::shared_ptr<gevdrv::gentl::system_instance> system;
    std::shared_ptr<gevdrv::gentl::interface_instance> interface;
    std::shared_ptr<gevdrv::gentl::device_instance> device;
    IDataStream* stream = nullptr;
    IEvent* event = nullptr;
};

} // namespace fake
