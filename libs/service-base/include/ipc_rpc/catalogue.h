// Every function of the service, with the records that its parameters and results are made of. One statement of the
// layout for the library, which calls, and the service, which answers.
#pragma once

#include <ipc_rpc/client_object_handle.h>
#include <ipc_rpc/function_table.h>
#include <ipc_rpc/rpc_packet.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace ipc_rpc {

using byte_vector = std::vector<std::byte>;

struct wire_subnet {
    std::uint32_t ip;
    std::uint32_t netmask;
};

struct interface_net_info {
    using wire_packed = void;
    static constexpr std::uint32_t max_entries = 16;

    std::uint64_t mac_address; // in the low 48 bits
    std::array<std::uint32_t, 3> words;
    std::uint32_t gateway_count;
    std::array<std::uint32_t, max_entries> gateways;
    std::uint32_t subnet_count;
    std::array<wire_subnet, max_entries> subnets;
    std::uint32_t reserved;
};
static_assert(sizeof(interface_net_info) == 224 && offsetof(interface_net_info, gateway_count) == 20 &&
              offsetof(interface_net_info, subnet_count) == 88 && offsetof(interface_net_info, reserved) == 220);

struct interface_desc {
    std::string id;
    std::string display_name;
    std::string tl_type;
    interface_net_info net_info{};

    static constexpr auto wire_members = std::tuple{&interface_desc::id, &interface_desc::display_name,
                                                    &interface_desc::tl_type, &interface_desc::net_info};
};

struct device_net_info {
    using wire_packed = void;
    std::uint32_t ip;
    std::uint32_t netmask;
    std::uint32_t gateway;
    std::uint32_t reserved;
    std::uint64_t mac_address;
};
static_assert(sizeof(device_net_info) == 24 && offsetof(device_net_info, mac_address) == 16);

enum class reachable_status : std::uint32_t { discovered = 0, unreachable = 1, reachable = 2 };
// A device_desc::control_state: another controller holds the device.
inline constexpr std::uint32_t control_state_held = 3;

struct device_desc {
    std::string id;
    std::string vendor;
    std::string model;
    std::string tl_type;
    std::string display_name;
    std::string version;
    std::string serial_number;
    std::string user_defined_name;
    std::string extra_1;
    std::string extra_2;
    std::uint32_t reachable_status = 0;
    std::uint32_t control_state = 0;
    device_net_info net_info{};

    static constexpr auto wire_members = std::tuple{&device_desc::id,
                                                    &device_desc::vendor,
                                                    &device_desc::model,
                                                    &device_desc::tl_type,
                                                    &device_desc::display_name,
                                                    &device_desc::version,
                                                    &device_desc::serial_number,
                                                    &device_desc::user_defined_name,
                                                    &device_desc::extra_1,
                                                    &device_desc::extra_2,
                                                    &device_desc::reachable_status,
                                                    &device_desc::control_state,
                                                    &device_desc::net_info};
};

struct event_message {
    std::uint64_t event_id = 0;
    std::uint64_t parameter_1 = 0;
    std::uint64_t parameter_2 = 0;
    byte_vector payload;

    static constexpr auto wire_members = std::tuple{&event_message::event_id, &event_message::parameter_1,
                                                    &event_message::parameter_2, &event_message::payload};
};

struct device_service_info {
    std::uint64_t device_lost_notification_id = 0;
    std::uint64_t event_notification_id = 0;
    std::uint64_t user_id_capacity = 0; // above 0 when the device has a user id
    std::array<std::uint32_t, 5> service_info{};
    std::string shared_memory_name; // of the settings block; may be empty

    static constexpr auto wire_members =
        std::tuple{&device_service_info::device_lost_notification_id, &device_service_info::event_notification_id,
                   &device_service_info::user_id_capacity, &device_service_info::service_info,
                   &device_service_info::shared_memory_name};
};

// Two u64 in this order.
struct interface_service_info {
    using wire_packed = void;
    std::uint64_t device_list_notification_id;
    std::uint64_t event_notification_id;
};
static_assert(sizeof(interface_service_info) == 16);

struct stream_channel_info {
    std::uint32_t channel_index = 0;
    std::uint32_t interface_ip = 0;
    std::string host_address;
    std::uint32_t dest_port = 0;
    std::uint32_t source_port = 0;
    std::uint64_t timestamp_tick_frequency = 0;

    static constexpr auto wire_members =
        std::tuple{&stream_channel_info::channel_index, &stream_channel_info::interface_ip,
                   &stream_channel_info::host_address,  &stream_channel_info::dest_port,
                   &stream_channel_info::source_port,   &stream_channel_info::timestamp_tick_frequency};
};

struct url_version_words {
    using wire_packed = void;
    std::array<std::uint32_t, 5> words; // schema and file version
};
static_assert(sizeof(url_version_words) == 20);

struct url_info {
    url_version_words versions{};
    std::string url;
    std::uint32_t url_flags = 0;

    static constexpr auto wire_members = std::tuple{&url_info::versions, &url_info::url, &url_info::url_flags};
};

// Wire values of "open_device".
enum class open_access : std::uint32_t { read_only = 1, control = 2, exclusive = 3 };

template <class T, std::size_t N>
struct param_codec<std::array<T, N>> {
    static void encode(param_writer& out, const std::array<T, N>& value) {
        for (const T& item : value) ipc_rpc::encode(out, item);
    }
    static bool decode(param_reader& in, std::array<T, N>& value) {
        return std::ranges::all_of(value, [&](T& item) { return ipc_rpc::decode(in, item); });
    }
};

template <std::size_t N>
struct function_text {
    char text[N];
    constexpr function_text(const char (&literal)[N]) { std::copy_n(literal, N, text); }
};

// A function's name, signature and flags. An object in a signature is a client_object_handle at the caller and a
// registered_object at the callee.
template <function_text Name, class Signature, std::uint32_t Flags = 0>
struct remote_function;

template <function_text Name, class R, class... Args, std::uint32_t Flags>
struct remote_function<Name, R(Args...), Flags> {
    using result_type = R;
    static constexpr std::string_view name{Name.text};
    static constexpr std::uint32_t flags = Flags;
    static_assert(name.size() < function_name_size);

    template <class... Given>
    static void encode_arguments(param_writer& out, const Given&... given) {
        static_assert(sizeof...(Given) == sizeof...(Args), "wrong number of arguments");
        (param_codec<Args>::encode(out, given), ...);
    }

    // Body: `std::expected<callee_result, std::error_code>(rpc_call_context&, Args...)`.
    using callee_result = std::conditional_t<std::is_same_v<R, client_object_handle>, registered_object, R>;
    template <class Body>
    [[nodiscard]] static std::error_code serve(object_function_table_root& table, Body body) {
        return table.add_global(std::string{name}, make_function<callee_result, Args...>(std::move(body)));
    }
    // Body: `std::expected<callee_result, std::error_code>(Object&, rpc_call_context&, Args...)`.
    template <class Object, class Body>
    [[nodiscard]] static std::error_code serve(object_function_table_root& table, std::string class_name, Body body) {
        return table.add_method(std::move(class_name), std::string{name},
                                make_method<Object, callee_result, Args...>(std::move(body)));
    }
};

namespace catalogue {

using u32 = std::uint32_t;
using u64 = std::uint64_t;
using std::string;

// Global.
using create_service_instance = remote_function<"create_service_instance", client_object_handle()>;

// Service instance, interface and device: address, [size or data], flags, timeout in milliseconds.
using genicam_document = remote_function<"genicam_document", string()>;
using genicam_read_mem = remote_function<"genicam_read_mem", byte_vector(u64, u64, u32, u64)>;
using genicam_write_mem = remote_function<"genicam_write_mem", u64(u64, byte_vector, u32, u64)>;

// Service instance.
using enum_interfaces = remote_function<"enum_interfaces", std::vector<interface_desc>()>;
using open_interface = remote_function<"open_interface", client_object_handle(string)>;
using get_interface_list_notification_id = remote_function<"get_interface_list_notification_id", u64()>;
using property_store_has_entry = remote_function<"property_store_has_entry", bool(string)>;
using property_store_read_int64 = remote_function<"property_store_read_int64", std::int64_t(string)>;
using property_store_read_double = remote_function<"property_store_read_double", double(string)>;
using property_store_read_string = remote_function<"property_store_read_string", string(string)>;

// Interface.
using enum_devices = remote_function<"enum_devices", std::vector<device_desc>()>;
using open_device = remote_function<"open_device", client_object_handle(string, open_access)>;
using get_interface_service_info = remote_function<"get_interface_service_info", interface_service_info()>;
// Device id, package, a text that is the service's, zero.
using firmware_package_upload = remote_function<"firmware_package_upload", void(string, byte_vector, string, u32)>;
using firmware_package_upload_state = remote_function<"firmware_package_upload_state", string(string)>;
// MAC address, ip, netmask, gateway.
using send_force_ip = remote_function<"send_force_ip", void(u64, u32, u32, u32)>;
// Device key, group key, group mask, use scheduled time, scheduled time, flags, to all interfaces (0 or 1).
using send_action_cmd = remote_function<"send_action_cmd", void(u32, u32, u32, bool, u64, u32, u32)>;
using get_device_dyn_info = remote_function<"get_device_dyn_info", u32(string)>;
// Device id, function name.
using execute_device_function = remote_function<"execute_device_function", void(string, string)>;

// Interface and device.
using get_event_messages = remote_function<"get_event_messages", std::vector<event_message>()>;

// Device. Memory and registers as above.
using get_device_service_info = remote_function<"get_device_service_info", device_service_info()>;
using get_remote_device_original_genicam = remote_function<"get_remote_device_original_genicam", byte_vector()>;
using read_mem = remote_function<"read_mem", byte_vector(u64, u64, u32, u64)>;
using write_mem = remote_function<"write_mem", u64(u64, byte_vector, u32, u64)>;
using read_reg = remote_function<"read_reg", u32(u64, u32, u64)>;
using write_reg = remote_function<"write_reg", void(u64, u32, u32, u64)>;
using acquire_stream_channel = remote_function<"acquire_stream_channel", client_object_handle()>;
using get_url_info_list = remote_function<"get_url_info_list", std::vector<url_info>()>;
using get_device_user_id = remote_function<"get_DeviceUserID", string()>;
using set_device_user_id = remote_function<"set_DeviceUserID", void(string)>;

// Stream channel.
using get_stream_channel_info = remote_function<"get_stream_channel_info", stream_channel_info(u32)>;
// Channel index, block id, first packet, last packet, extended id.
// The receive thread calls these two.
using send_resend_cmd =
    remote_function<"send_resend_cmd", void(u32, u64, u32, u32, bool), rpc_flag_no_reply | rpc_flag_no_wait>;
using send_write_auto_values_cmd =
    remote_function<"send_write_auto_values_cmd", void(), rpc_flag_no_reply | rpc_flag_no_wait>;

} // namespace catalogue

} // namespace ipc_rpc
