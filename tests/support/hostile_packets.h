// Feeds bytes as packets to a caller and a callee that knows every function of the catalogue. For the fuzzer, and for
// a short run with seeded noise.
#pragma once

#include <impl/rpc_callee.h>
#include <impl/rpc_caller.h>

#include <ipc_rpc/catalogue.h>

#include <array>
#include <cstring>
#include <span>
#include <thread>

namespace hostile {

using namespace ipc_rpc;

class one_block_channel final : public channel_interface {
public:
    std::span<std::byte> acquire_block() override { return block; }
    bool send_block(std::span<std::byte>) override { return true; }
    offered offer(std::span<const std::byte>) override { return offered::sent; }
    std::string_view get_name() const override { return "fuzz"; }

private:
    std::array<std::byte, 4096> block{};
};

struct connection final : rpc_connection_client {
    std::expected<std::uint64_t, std::error_code> register_object(object_entry) override { return 1U; }
    std::error_code close_handle(std::uint64_t, std::uint32_t) override { return {}; }
    std::error_code call(std::uint64_t, std::string_view, std::span<const std::byte>, std::vector<std::byte>*,
                         std::uint32_t) override {
        return {};
    }
    bool is_open() const override { return true; }
};

struct inline_executor final : executor_thread_pool_interface {
    void push(std::function<void()> task) override { task(); }
};

template <class F>
struct any_body;
template <function_text Name, class R, class... Args, std::uint32_t Flags>
struct any_body<remote_function<Name, R(Args...), Flags>> {
    using function = remote_function<Name, R(Args...), Flags>;
    static void add(object_function_table_root& table) {
        static_cast<void>(function::serve(table, [](rpc_call_context&, Args...) {
            return std::expected<typename function::callee_result, std::error_code>{};
        }));
    }
    // A result of this function that the peer may have made up.
    static void decode_result(std::span<const std::byte> bytes, const std::shared_ptr<connection>& from) {
        param_reader in{bytes, from};
        std::expected<R, std::error_code> result;
        static_cast<void>(decode(in, result));
    }
};

template <class... F>
struct functions {
    static object_function_table_root table() {
        object_function_table_root made;
        (any_body<F>::add(made), ...);
        return made;
    }
    static void decode_results(std::span<const std::byte> bytes, const std::shared_ptr<connection>& from) {
        (any_body<F>::decode_result(bytes, from), ...);
    }
};

using all_functions =
    functions<catalogue::create_service_instance, catalogue::genicam_read_mem, catalogue::genicam_write_mem,
              catalogue::enum_interfaces, catalogue::open_interface, catalogue::property_store_has_entry,
              catalogue::property_store_read_double, catalogue::enum_devices, catalogue::open_device,
              catalogue::get_interface_service_info, catalogue::firmware_package_upload, catalogue::send_force_ip,
              catalogue::send_action_cmd, catalogue::execute_device_function, catalogue::get_event_messages,
              catalogue::get_device_service_info, catalogue::write_reg, catalogue::get_url_info_list,
              catalogue::get_stream_channel_info, catalogue::send_resend_cmd>;

// Packets are the input cut at two-byte lengths.
inline void feed(std::span<const std::byte> input) {
    one_block_channel channel;
    const auto peer = std::make_shared<connection>();
    const auto callee =
        std::make_shared<rpc_callee_instance>(channel, all_functions::table(), std::make_shared<inline_executor>());
    callee->set_connection(peer);
    rpc_caller_instance caller{channel};
    std::vector<std::byte> result;
    // A call that waits for what arrives; the end of the input ends it.
    std::thread waiting{[&] { static_cast<void>(caller.call(0, "f", {}, &result, 0)); }};

    all_functions::decode_results(input, peer);
    while (input.size() >= 2) {
        std::uint16_t length = 0;
        std::memcpy(&length, input.data(), sizeof length);
        input = input.subspan(2);
        const auto packet = input.first(std::min<std::size_t>(length, input.size()));
        input = input.subspan(packet.size());
        // An exact copy: a read past the packet is a read past its memory.
        const std::vector<std::byte> exact(packet.begin(), packet.end());
        callee->receive_rpc_packet(exact);
        caller.receive_packet(exact);
    }
    caller.close();
    waiting.join();
    callee->stop();
}

} // namespace hostile
