#include "function_table.h"

#include "device_object.h"
#include "interface_object.h"
#include "service_object.h"

#include <gds_helper/log.h>
#include <gds_helper/printable.h>
#include <gds_shared/gigecam_error.h>
#include <ipc_rpc/catalogue.h>
#include <ipc_rpc/limits.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <span>
#include <string>

namespace service {

using namespace ipc_rpc;

namespace {

constexpr const char* service_class = "service";
constexpr const char* interface_class = "interface";
constexpr const char* device_class = "device";
constexpr const char* stream_class = "stream";

using result_of_object = std::expected<registered_object, std::error_code>;

template <class T>
result_of_object hand_over(rpc_call_context& context, const char* class_name, std::shared_ptr<T> object) {
    object_entry entry = object_entry::owning(class_name, object);
    if constexpr (requires { object->abandon(); }) {
        entry.on_end = [held = std::weak_ptr{object}] {
            if (const auto live = held.lock()) live->abandon();
        };
    }
    object.reset();
    const auto handle = context.connection->register_object(std::move(entry));
    if (!handle) return std::unexpected(handle.error());
    return registered_object{*handle};
}

template <class T>
result_of_object hand_over(rpc_call_context& context, const char* class_name,
                           std::expected<std::shared_ptr<T>, std::error_code> object) {
    if (!object) return std::unexpected(object.error());
    return hand_over(context, class_name, std::move(*object));
}

// Who opened what, or why not.
result_of_object said(rpc_call_context& context, std::string_view kind, const std::string& id,
                      result_of_object result) {
    auto& logger = gds_helper::log::main_logger();
    const auto client = gds_helper::printable(context.connection->get_peer_info());
    if (result) {
        logger.info("{} opened {} '{}'.", client, kind, gds_helper::printable(id));
    } else {
        logger.warn("{} did not get {} '{}': {}", client, kind, gds_helper::printable(id), result.error().message());
    }
    return result;
}

// For an answer of so many bytes and its encoded copy, until it is sent.
bool take_room(rpc_call_context& context, const device_object& device, uint64_t size) {
    if (size <= limits::small_answer_bytes) return true;
    context.held = reserved_bytes::take(device.client().answer_bytes(), 2 * std::min<uint64_t>(size, max_param_block));
    return context.held != nullptr;
}

// Two functions of one name are an error of this file.
void must(const std::error_code& error) {
    if (error) std::abort();
}

// Our modules describe themselves: the library generates their documents, and no register is left for the service.
template <class Object>
void serve_genicam(object_function_table_root& table, const char* class_name) {
    must(catalogue::genicam_document::serve<Object>(
        table, class_name,
        [](Object&, rpc_call_context&) -> std::expected<std::string, std::error_code> { return std::string{}; }));
    must(catalogue::genicam_read_mem::serve<Object>(table, class_name,
                                                    [](Object&, rpc_call_context&, uint64_t, uint64_t, uint32_t,
                                                       uint64_t) -> std::expected<byte_vector, std::error_code> {
                                                        return std::unexpected(
                                                            make_error_code(gds_shared::gigecam_errc::invalid_address));
                                                    }));
    must(catalogue::genicam_write_mem::serve<Object>(
        table, class_name,
        [](Object&, rpc_call_context&, uint64_t, const byte_vector&, uint32_t,
           uint64_t) -> std::expected<uint64_t, std::error_code> {
            return std::unexpected(make_error_code(gds_shared::gigecam_errc::invalid_address));
        }));
}

template <class F, class T>
void serve_setting(object_function_table_root& table,
                   std::error_code (gds_helper::property_store_ro::*read)(const std::string&, T&) const) {
    must(F::template serve<service_object>(
        table, service_class,
        [read](service_object& self, rpc_call_context&, const std::string& key) -> std::expected<T, std::error_code> {
            T value{};
            if (const std::error_code error = (self.settings().*read)(key, value)) return std::unexpected(error);
            return value;
        }));
}

void serve_service(object_function_table_root& table) {
    serve_genicam<service_object>(table, service_class);
    must(catalogue::enum_interfaces::serve<service_object>(
        table, service_class,
        [](service_object& self, rpc_call_context&) -> std::expected<std::vector<interface_desc>, std::error_code> {
            return self.enum_interfaces();
        }));
    must(catalogue::open_interface::serve<service_object>(
        table, service_class, [](service_object& self, rpc_call_context& context, const std::string& id) {
            return said(context, "interface", id, hand_over(context, interface_class, self.open_interface(id)));
        }));
    must(catalogue::get_interface_list_notification_id::serve<service_object>(
        table, service_class, [](service_object& self, rpc_call_context&) { return self.interface_list_number(); }));
    must(catalogue::property_store_has_entry::serve<service_object>(
        table, service_class,
        [](service_object& self, rpc_call_context&, const std::string& key) -> std::expected<bool, std::error_code> {
            return self.settings().has_entry(key);
        }));
    using store = gds_helper::property_store_ro;
    serve_setting<catalogue::property_store_read_int64>(table, &store::read_int64);
    serve_setting<catalogue::property_store_read_double>(table, &store::read_double);
    serve_setting<catalogue::property_store_read_string>(table, &store::read_string);
}

void serve_interface(object_function_table_root& table) {
    serve_genicam<interface_object>(table, interface_class);
    must(catalogue::enum_devices::serve<interface_object>(
        table, interface_class, [](interface_object& self, rpc_call_context&) { return self.enum_devices(); }));
    must(catalogue::open_device::serve<interface_object>(
        table, interface_class,
        [](interface_object& self, rpc_call_context& context, const std::string& id,
           open_access access) -> result_of_object {
            if (access < open_access::read_only || access > open_access::exclusive) {
                return std::unexpected(std::make_error_code(std::errc::invalid_argument));
            }
            return said(context, "device", id, hand_over(context, device_class, self.open_device(id, access)));
        }));
    must(catalogue::get_interface_service_info::serve<interface_object>(
        table, interface_class, [](interface_object& self, rpc_call_context&) { return self.service_info(); }));
    must(catalogue::get_event_messages::serve<interface_object>(
        table, interface_class,
        [](interface_object& self, rpc_call_context&) -> std::expected<std::vector<event_message>, std::error_code> {
            return self.take_messages();
        }));
    must(catalogue::get_device_dyn_info::serve<interface_object>(
        table, interface_class,
        [](interface_object& self, rpc_call_context&, const std::string& id) { return self.device_reachable(id); }));
    must(catalogue::send_force_ip::serve<interface_object>(
        table, interface_class,
        [](interface_object& self, rpc_call_context&, uint64_t mac, uint32_t ip, uint32_t mask, uint32_t gateway) {
            return self.force_ip(mac, ip, mask, gateway);
        }));
    must(catalogue::send_action_cmd::serve<interface_object>(
        table, interface_class,
        [](interface_object& self, rpc_call_context&, uint32_t device_key, uint32_t group_key, uint32_t group_mask,
           bool scheduled, uint64_t time, uint32_t flags, uint32_t all) {
            return self.send_action(device_key, group_key, group_mask, scheduled, time, flags, all != 0);
        }));
    must(catalogue::firmware_package_upload::serve<interface_object>(
        table, interface_class,
        [](interface_object& self, rpc_call_context&, const std::string& id, const byte_vector& package,
           const std::string&, uint32_t) { return self.upload_firmware(id, package); }));
    must(catalogue::firmware_package_upload_state::serve<interface_object>(
        table, interface_class,
        [](interface_object& self, rpc_call_context&, const std::string& id) { return self.firmware_state(id); }));
    must(catalogue::execute_device_function::serve<interface_object>(
        table, interface_class,
        [](interface_object& self, rpc_call_context&, const std::string& id, const std::string& function) {
            return self.execute(id, function);
        }));
}

void serve_device(object_function_table_root& table) {
    serve_genicam<device_object>(table, device_class);
    must(catalogue::get_device_service_info::serve<device_object>(
        table, device_class,
        [](device_object& self, rpc_call_context&) -> std::expected<device_service_info, std::error_code> {
            return self.service_info();
        }));
    must(catalogue::get_remote_device_original_genicam::serve<device_object>(
        table, device_class,
        [](device_object& self, rpc_call_context& context) -> std::expected<byte_vector, std::error_code> {
            const auto text = self.original_document();
            if (!text) return std::unexpected(text.error());
            if (!take_room(context, self, text->size()))
                return std::unexpected(make_error_code(status::resource_exhausted));
            const auto bytes = std::as_bytes(std::span{*text});
            return byte_vector{bytes.begin(), bytes.end()};
        }));
    must(catalogue::read_mem::serve<device_object>(
        table, device_class,
        [](device_object& self, rpc_call_context& context, uint64_t address, uint64_t size, uint32_t,
           uint64_t timeout) -> std::expected<byte_vector, std::error_code> {
            if (!take_room(context, self, size)) return std::unexpected(make_error_code(status::resource_exhausted));
            return self.read_mem(address, size, timeout);
        }));
    must(catalogue::write_mem::serve<device_object>(
        table, device_class,
        [](device_object& self, rpc_call_context&, uint64_t address, const byte_vector& bytes, uint32_t,
           uint64_t timeout) { return self.write_mem(address, bytes, timeout); }));
    must(catalogue::read_reg::serve<device_object>(
        table, device_class, [](device_object& self, rpc_call_context&, uint64_t address, uint32_t, uint64_t timeout) {
            return self.control().read_register(address, gvcp_master::milliseconds{std::min<uint64_t>(timeout, 60000)});
        }));
    must(catalogue::write_reg::serve<device_object>(
        table, device_class,
        [](device_object& self, rpc_call_context&, uint64_t address, uint32_t value, uint32_t,
           uint64_t timeout) -> std::expected<void, std::error_code> {
            if (const auto error = self.control().write_register(
                    address, value, gvcp_master::milliseconds{std::min<uint64_t>(timeout, 60000)})) {
                return std::unexpected(error);
            }
            return {};
        }));
    must(catalogue::acquire_stream_channel::serve<device_object>(
        table, device_class, [](device_object& self, rpc_call_context& context) {
            return hand_over(context, stream_class, self.acquire_stream());
        }));
    must(catalogue::get_url_info_list::serve<device_object>(
        table, device_class, [](device_object& self, rpc_call_context&) { return self.url_list(); }));
    must(catalogue::get_device_user_id::serve<device_object>(
        table, device_class, [](device_object& self, rpc_call_context&) { return self.user_name(); }));
    must(catalogue::set_device_user_id::serve<device_object>(
        table, device_class,
        [](device_object& self, rpc_call_context&, const std::string& name) -> std::expected<void, std::error_code> {
            if (const auto error = self.control().write_user_name(name)) return std::unexpected(error);
            return {};
        }));
    must(catalogue::get_event_messages::serve<device_object>(
        table, device_class,
        [](device_object& self, rpc_call_context&) -> std::expected<std::vector<event_message>, std::error_code> {
            return self.take_events();
        }));
}

void serve_stream(object_function_table_root& table) {
    must(catalogue::get_stream_channel_info::serve<stream_lease>(
        table, stream_class,
        [](stream_lease& self, rpc_call_context&, uint32_t index) { return self.channel_info(index); }));
    must(catalogue::send_resend_cmd::serve<stream_lease>(
        table, stream_class,
        [](stream_lease& self, rpc_call_context&, uint32_t channel, uint64_t block_id, uint32_t first, uint32_t last,
           bool extended) { return self.request_resend(channel, block_id, first, last, extended); }));
    must(catalogue::send_write_auto_values_cmd::serve<stream_lease>(
        table, stream_class, [](stream_lease& self, rpc_call_context&) -> std::expected<void, std::error_code> {
            self.write_automatic_values();
            return {};
        }));
}

} // namespace

object_function_table_root
make_function_table(const std::shared_ptr<service_core>& core,
                    std::function<notify_function(const std::shared_ptr<rpc_connection_client>&)> notifier_of) {
    object_function_table_root table;
    // One session for each connection, which has a table of its own: its numbers are given out once, however many
    // instances the client makes.
    struct session_place {
        std::mutex mutex; // guards session
        std::shared_ptr<client_session> session;
    };
    must(catalogue::create_service_instance::serve(
        table, [core, notifier_of = std::move(notifier_of),
                place = std::make_shared<session_place>()](rpc_call_context& context) {
            // Who had this service started asks at once for the cameras, and may ask once only.
            static_cast<void>(core->discovery().wait_for_first_scan(std::chrono::seconds{2}, core->stop_token()));
            std::shared_ptr<client_session> session;
            {
                const std::lock_guard guard{place->mutex};
                if (!place->session) {
                    const auto user = context.connection->get_peer_user();
                    place->session =
                        std::make_shared<client_session>(notifier_of(context.connection), user, core->budget_of(user));
                }
                session = place->session;
            }
            return hand_over(context, service_class, std::make_shared<service_object>(core, std::move(session)));
        }));
    serve_service(table);
    serve_interface(table);
    serve_device(table);
    serve_stream(table);
    return table;
}

} // namespace service
