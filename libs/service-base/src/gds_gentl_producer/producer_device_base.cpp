#include "service_memory.h"

#include <gds_gentl_producer/file_dialog.h>
#include <gds_gentl_producer/producer_device_base.h>
#include <img_pipe/transform_params.h>
#include <platform.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <limits>
#include <system_error>

namespace gds_producer {

using namespace GenTL;
using namespace GenTL::Producer;
namespace catalogue = ipc_rpc::catalogue;

namespace {

using gds_helper::log::main_logger;

} // namespace

struct producer_device_base::shared_block {
    ipc_rpc::platform::shared_mapping mapping;
};

producer_device_base::producer_device_base(producer_interface_base& parent, const DeviceInfo& info,
                                           DEVICE_ACCESS_FLAGS flags, ipc_rpc::client_object_handle device)
    : DeviceImpl(parent, info, flags), interface_base(parent), handle(std::move(device)) {}

producer_device_base::~producer_device_base() { shut_down(); }

void producer_device_base::shut_down() {
    connection_lost.reset();
    lost_notification.reset();
    event_notification.reset();
    close_children();
}

Error producer_device_base::init() {
    auto& registry = interface_base.system_base().notifications();
    // Before the first call: a connection that is lost earlier fails that one.
    connection_lost = registry.register_for_pool(ipc_rpc::client::connection_lost, [this] { mark_lost(); });
    auto info = handle.invoke<catalogue::get_device_service_info>();
    if (!info) return to_gentl_error(info.error(), "get_device_service_info");
    service_info = std::move(*info);

    lost_notification = registry.register_for_pool(service_info.device_lost_notification_id, [this] { mark_lost(); });
    event_notification = registry.register_for_pool_unique_queued(service_info.event_notification_id,
                                                                  [this] { fetch_pending_messages(); });
    fetch_pending_messages(); // what came before was told to nobody
    if (!service_info.shared_memory_name.empty()) {
        try {
            shared_memory = std::make_unique<shared_block>(shared_block{ipc_rpc::platform::shared_mapping::open(
                service_info.shared_memory_name, settings_block::minimum_size)});
        } catch (const std::system_error& failure) {
            main_logger().error("Failed to init shared memory '{}' block due to {}.", service_info.shared_memory_name,
                                failure.what());
        }
    }
    remote = open_remote_port(device_info().display_name);
    if (Error error = init_remote_port(*remote); error.failed()) return error;
    load_data_stream_ids();
    return success();
}

settings_block producer_device_base::settings() const noexcept {
    return shared_memory ? settings_block{shared_memory->mapping.bytes()} : settings_block{};
}

transform_options producer_device_base::transform() const noexcept {
    const int64_t threads = std::clamp<int64_t>(transform_max_concurrency, 0, std::numeric_limits<uint32_t>::max());
    return {img_pipe::optimization_mask(transform_optimization_level), static_cast<uint32_t>(threads)};
}

std::string_view producer_device_base::version_text() const noexcept {
    return interface_base.system_base().environment().product.version_text;
}

void producer_device_base::fetch_pending_messages() {
    const auto messages = handle.invoke<catalogue::get_event_messages>();
    if (!messages) {
        main_logger().error("Failed to fetch device event messages. Error = {}.", messages.error().message());
        return;
    }
    for (const auto& message : *messages) handle_event_message(message);
}

std::expected<ipc_rpc::client_object_handle, Error> producer_device_base::acquire_stream_channel() const {
    auto lease = handle.invoke<catalogue::acquire_stream_channel>();
    if (!lease) return std::unexpected(to_gentl_error(lease.error(), "acquire_stream_channel"));
    return std::move(*lease);
}

std::expected<std::string, Error> producer_device_base::query_user_defined_name_() {
    if (service_info.user_id_capacity == 0) return std::string{};
    auto name = handle.invoke<catalogue::get_device_user_id>();
    if (!name) return std::unexpected(to_gentl_error(name.error(), "get_DeviceUserID"));
    return std::move(*name);
}

Error producer_device_base::set_user_id(const std::string& text) {
    if (service_info.user_id_capacity == 0) return Error{GC_ERR_NOT_IMPLEMENTED};
    const auto done = handle.invoke<catalogue::set_device_user_id>(text);
    return done ? success() : to_gentl_error(done.error(), "set_DeviceUserID");
}

Error producer_device_base::Read(uint64_t address, void* buffer, size_t* size) {
    return read_through_service([&] { return DeviceImpl::Read(address, buffer, size); }, handle, address, buffer, size);
}

Error producer_device_base::Write(uint64_t address, const void* buffer, size_t* size) {
    return write_through_service([&] { return DeviceImpl::Write(address, buffer, size); }, handle, address, buffer,
                                 size);
}

std::string producer_device_base::replacement_document_() {
    auto text = handle.invoke<catalogue::genicam_document>();
    if (!text) {
        main_logger().error("Failed to execute get_genicam_string function ec: '{}'", text.error().message());
        return {};
    }
    return std::move(*text);
}

void producer_device_base::build_register_map(Util::GenApiInterfaceBuilder& builder) {
    DeviceImpl::build_register_map(builder);
    add_producer_device_base_GenICam_props(builder);
    add_store_commands(builder);
}

void producer_device_base::add_producer_device_base_GenICam_props(Util::GenApiInterfaceBuilder& builder) {
    builder.add_rw_string(
        "DeviceUserID", 256, [this] { return query_user_defined_name_(); },
        [this](const std::string& text) { return set_user_id(text); });
    builder.add_category("Root", {"DeviceUserID"});

    const auto number = [&](std::string_view name, std::atomic<int64_t>& value, const char* tool_tip) {
        auto& node = builder.add_rw_integer<int64_t>(
            name, [&value]() -> std::expected<int64_t, Error> { return value.load(); },
            [&value](int64_t new_value) {
                value = new_value;
                return success();
            });
        node.min = int64_t{0};
        node.tool_tip = tool_tip;
    };
    const auto flag = [&](std::string_view name, std::atomic<bool>& value, const char* tool_tip) {
        builder
            .add_rw_boolean(
                name, [&value]() -> std::expected<bool, Error> { return value.load(); },
                [&value](bool new_value) {
                    value = new_value;
                    return success();
                })
            .tool_tip = tool_tip;
    };
    number("DataStreamTransformMaxConcurrency", transform_max_concurrency,
           "Sets the default max-concurrency for transform functions. Set to 0 to use the maximum.");
    number("DataStreamTransformOptimizationLevel", transform_optimization_level,
           "Sets the optimization level for transform functions. If set to 0, the max available is used.");
    flag("DataStreamTransformProfilerLog", transform_profiler_log, "Enables/Disables the transform profiler log.");
    flag("DataStreamTransformProfilerOverlay", transform_profiler_overlay,
         "Enables/Disables the transform profiler overlay.");

    auto& mode = builder.add_rw_enumeration(
        "ImageTransformQueueMode", {{"UseDirectTransform", 0}, {"UseDedicatedThread", 1}},
        [this]() -> std::expected<uint32_t, Error> { return image_transform_queue_mode.load(); },
        [this](uint32_t value) {
            if (streaming) return Error{GC_ERR_ACCESS_DENIED, "The stream is running."};
            if (value > 1) return Error{GC_ERR_INVALID_VALUE};
            image_transform_queue_mode = value;
            return success();
        });
    builder.add_lock("ImageTransformQueueMode", "ImageTransformQueueMode_LockedRegister",
                     [this]() -> std::expected<bool, Error> { return streaming.load(); });
    mode.entries[0].tool_tip = "Directly transform images. If the transform takes too long, the source can run dry "
                               "and images may be received incomplete.";
    mode.entries[1].tool_tip = "Use a dedicated thread with the capability to drop images when needed.";

    auto& control = builder.add_category("DataStreamControl",
                                         {"DataStreamTransformMaxConcurrency", "DataStreamTransformOptimizationLevel",
                                          "DataStreamTransformProfilerLog", "DataStreamTransformProfilerOverlay",
                                          "ImageTransformQueueMode"});
    control.display_name = "Data Stream Control";
    control.tool_tip = "Data Stream Control Category";
}

void producer_device_base::add_store_commands(Util::GenApiInterfaceBuilder& builder) {
    const auto command = [&](std::string_view name, std::string_view register_name, const char* tool_tip,
                             std::function<Error()> run) {
        auto& node = builder.add_command(name, std::move(run), register_name);
        node.tool_tip = tool_tip;
        node.description = std::string{tool_tip} + " A file dialog asks for the path where there is one.";
    };
    const auto& settings_store = *interface_base.system_base().environment().settings;
    const std::string default_name = device_info().model + ".xml";
    command("StoreOriginalRemoteDeviceGenICamDocument", "StoreOriginalRemoteDeviceGenICamDocumentRegister",
            "Stores the (original) remote device GenICam document.", [this, &settings_store, default_name] {
                const auto bytes = handle.invoke<catalogue::get_remote_device_original_genicam>();
                if (!bytes) return to_gentl_error(bytes.error(), "get_remote_device_original_genicam");
                return save_file(settings_store, default_name,
                                 {reinterpret_cast<const char*>(bytes->data()), bytes->size()});
            });
    command("StoreRemoteDeviceGenICamDocument", "StoreRemoteGenICamDocumentRegister",
            "Stores the (modified) remote device GenICam document.", [this, &settings_store, default_name] {
                return save_file(settings_store, default_name, remote->remote_document_text());
            });
    command("StoreTLDeviceGenICamDocument", {}, "Stores the transport layer device GenICam document.",
            [this, &settings_store, default_name] {
                return save_file(settings_store, default_name, document_file_text());
            });
    builder
        .add_category("DebugControl", {"StoreOriginalRemoteDeviceGenICamDocument", "StoreRemoteDeviceGenICamDocument",
                                       "StoreTLDeviceGenICamDocument"})
        .display_name = "Debug Control";
}

} // namespace gds_producer
