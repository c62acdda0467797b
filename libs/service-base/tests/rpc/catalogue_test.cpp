// The bytes of calls and results as literals: both ends are built from one declaration, which could change under both.
#include <ipc_rpc/catalogue.h>

#include <gtest/gtest.h>

using namespace ipc_rpc;

namespace {

// Bytes from hexadecimal digits; spaces are for the reader.
std::string bytes_of(std::string_view hex) {
    std::string bytes;
    int high = -1;
    for (const char c : hex) {
        if (c == ' ') continue;
        const int digit = c <= '9' ? c - '0' : c - 'a' + 10;
        if (high < 0) {
            high = digit;
        } else {
            bytes += static_cast<char>(high * 16 + digit);
            high = -1;
        }
    }
    return bytes;
}

std::string text_of(param_writer& out) {
    return {reinterpret_cast<const char*>(out.buffer().data()), out.buffer().size()};
}

template <class F, class... Args>
void expect_call(std::string_view name, std::uint32_t flags, std::string_view hex, const Args&... args) {
    SCOPED_TRACE(name);
    param_writer out;
    F::encode_arguments(out, args...);
    EXPECT_EQ(text_of(out), bytes_of(hex));
    EXPECT_EQ(F::name, name);
    EXPECT_EQ(F::flags & ~rpc_flag_no_wait, flags) << "as sent";
}

// As the service writes it, and as the library reads it back.
template <class T>
void expect_result(const T& value, const std::string& bytes) {
    param_writer out;
    encode(out, std::expected<T, std::error_code>{value});
    EXPECT_EQ(text_of(out), std::string(8, '\0') + bytes);
    const std::string whole = std::string(8, '\0') + bytes;
    std::expected<T, std::error_code> back;
    param_reader in{std::as_bytes(std::span{whole})};
    EXPECT_TRUE(decode(in, back) && in.remaining() == 0);
    param_writer again;
    encode(again, back);
    EXPECT_EQ(text_of(again), whole);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        param_reader cut{std::as_bytes(std::span{whole}.first(length))};
        std::expected<T, std::error_code> nothing;
        EXPECT_FALSE(decode(cut, nothing)) << length;
    }
}

std::string zeros(std::size_t count) { return std::string(count, '\0'); }

} // namespace

TEST(Catalogue, ArgumentsAreTheseBytes) {
    using namespace catalogue;
    const byte_vector three{std::byte{1}, std::byte{2}, std::byte{3}};
    const std::string id = "ab";
    constexpr u64 address = 0x0102030405060708;
    constexpr std::string_view address_hex = "0807060504030201";
    const auto with_address = [&](std::string_view rest) { return std::string{address_hex} + std::string{rest}; };
    expect_call<create_service_instance>("create_service_instance", 0, "");
    expect_call<genicam_document>("genicam_document", 0, "");
    expect_call<genicam_read_mem>("genicam_read_mem", 0, with_address("0900000000000000 0a000000 0b00000000000000"),
                                  address, u64{9}, 10U, u64{11});
    expect_call<genicam_write_mem>("genicam_write_mem", 0, with_address("03000000 010203 0a000000 0b00000000000000"),
                                   address, three, 10U, u64{11});
    expect_call<enum_interfaces>("enum_interfaces", 0, "");
    expect_call<open_interface>("open_interface", 0, "02000000 6162", id);
    expect_call<get_interface_list_notification_id>("get_interface_list_notification_id", 0, "");
    expect_call<property_store_has_entry>("property_store_has_entry", 0, "02000000 6162", id);
    expect_call<property_store_read_int64>("property_store_read_int64", 0, "02000000 6162", id);
    expect_call<property_store_read_double>("property_store_read_double", 0, "02000000 6162", id);
    expect_call<property_store_read_string>("property_store_read_string", 0, "02000000 6162", id);
    expect_call<enum_devices>("enum_devices", 0, "");
    expect_call<open_device>("open_device", 0, "02000000 6162 01000000", id, open_access::read_only);
    expect_call<open_device>("open_device", 0, "02000000 6162 02000000", id, open_access::control);
    expect_call<open_device>("open_device", 0, "02000000 6162 03000000", id, open_access::exclusive);
    expect_call<get_interface_service_info>("get_interface_service_info", 0, "");
    expect_call<firmware_package_upload>("firmware_package_upload", 0,
                                         "02000000 6162 03000000 010203 02000000 6162 00000000", id, three, id, 0U);
    expect_call<firmware_package_upload_state>("firmware_package_upload_state", 0, "02000000 6162", id);
    expect_call<send_force_ip>("send_force_ip", 0, with_address("01000000 02000000 03000000"), address, 1U, 2U, 3U);
    expect_call<send_action_cmd>("send_action_cmd", 0,
                                 "01000000 02000000 03000000 01 0807060504030201 04000000 01000000", 1U, 2U, 3U, true,
                                 address, 4U, 1U);
    expect_call<get_device_dyn_info>("get_device_dyn_info", 0, "02000000 6162", id);
    expect_call<execute_device_function>("execute_device_function", 0, "02000000 6162 02000000 6162", id, id);
    expect_call<get_event_messages>("get_event_messages", 0, "");
    expect_call<get_device_service_info>("get_device_service_info", 0, "");
    expect_call<get_remote_device_original_genicam>("get_remote_device_original_genicam", 0, "");
    expect_call<read_mem>("read_mem", 0, with_address("0900000000000000 0a000000 0b00000000000000"), address, u64{9},
                          10U, u64{11});
    expect_call<write_mem>("write_mem", 0, with_address("03000000 010203 0a000000 0b00000000000000"), address, three,
                           10U, u64{11});
    expect_call<read_reg>("read_reg", 0, with_address("0a000000 0b00000000000000"), address, 10U, u64{11});
    expect_call<write_reg>("write_reg", 0, with_address("09000000 0a000000 0b00000000000000"), address, 9U, 10U,
                           u64{11});
    expect_call<acquire_stream_channel>("acquire_stream_channel", 0, "");
    expect_call<get_url_info_list>("get_url_info_list", 0, "");
    expect_call<get_device_user_id>("get_DeviceUserID", 0, "");
    expect_call<set_device_user_id>("set_DeviceUserID", 0, "02000000 6162", id);
    expect_call<get_stream_channel_info>("get_stream_channel_info", 0, "05000000", 5U);
    expect_call<send_resend_cmd>("send_resend_cmd", 1, "05000000 0807060504030201 06000000 07000000 01", 5U, address,
                                 6U, 7U, true);
    expect_call<send_write_auto_values_cmd>("send_write_auto_values_cmd", 1, "");
}

TEST(Catalogue, ResultsAreTheseBytes) {
    expect_result(std::uint64_t{0x0102030405060708}, bytes_of("0807060504030201"));
    expect_result(true, bytes_of("01"));
    expect_result(std::int64_t{-2}, bytes_of("feffffffffffffff"));
    expect_result(std::string{"ab"}, bytes_of("02000000 6162"));
    expect_result(1.0, bytes_of("000000000000f03f"));

    interface_desc interface {
        "a", "b", "c", {}
    };
    interface.net_info.mac_address = 0x060504030201;
    interface.net_info.gateway_count = 1;
    interface.net_info.gateways[15] = 0x0a000001;
    interface.net_info.subnet_count = 2;
    interface.net_info.subnets[0] = {0x0a000002, 0xff000000};
    expect_result(std::vector{interface}, bytes_of("01000000 01000000 61 01000000 62 01000000 63 0102030405060000") +
                                              zeros(12) + bytes_of("01000000") + zeros(60) +
                                              bytes_of("0100000a 02000000 0200000a 000000ff") + zeros(124));

    device_desc device{"1", "2", "3", "4", "5", "6", "7", "8", "9", "0", 2, 3, {1, 2, 3, 0, 4}};
    std::string strings = bytes_of("01000000");
    for (const char c : std::string{"1234567890"}) strings += bytes_of("01000000") + c;
    expect_result(std::vector{device},
                  strings + bytes_of("02000000 03000000 01000000 02000000 03000000 00000000 0400000000000000"));

    expect_result(std::vector{event_message{1, 2, 3, {std::byte{7}}}},
                  bytes_of("01000000 0100000000000000 0200000000000000 0300000000000000 01000000 07"));
    expect_result(device_service_info{1, 2, 16, {1, 2, 3, 4, 5}, "/x"},
                  bytes_of("0100000000000000 0200000000000000 1000000000000000 01000000 02000000 03000000 04000000 "
                           "05000000 02000000 2f78"));
    expect_result(interface_service_info{1, 2}, bytes_of("0100000000000000 0200000000000000"));
    expect_result(stream_channel_info{1, 0x7f000001, "h", 2, 3, 4},
                  bytes_of("01000000 0100007f 01000000 68 02000000 03000000 0400000000000000"));
    expect_result(std::vector{url_info{{{1, 1, 0, 2, 3}}, "u", 9}},
                  bytes_of("01000000 01000000 01000000 00000000 02000000 03000000 01000000 75 09000000"));
    expect_result(byte_vector{std::byte{5}}, bytes_of("01000000 05"));
    expect_result(byte_vector{}, bytes_of("00000000"));

    param_writer out;
    encode(out, std::expected<void, std::error_code>{});
    encode(out, std::expected<bool, std::error_code>{std::unexpected(make_error_code(status::bad_packet))});
    EXPECT_EQ(text_of(out), bytes_of("0000000000000000 1e00000000000000 0000000000000000"));
}
