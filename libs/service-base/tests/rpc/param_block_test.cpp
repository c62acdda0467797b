// What becomes of bytes that are no arguments or results, and of errors on their way.
#include <ipc_rpc/catalogue.h>

#include <gtest/gtest.h>

using namespace ipc_rpc;

namespace {

byte_vector bytes(std::initializer_list<int> values) {
    byte_vector result;
    for (int value : values) result.push_back(static_cast<std::byte>(value));
    return result;
}

template <class T>
bool decodes(std::span<const std::byte> block) {
    param_reader in{block};
    T value{};
    return decode(in, value);
}

} // namespace

TEST(ParamBlock, AFailedReadStaysWhereItWas) {
    const byte_vector short_length = bytes({1, 0, 0});
    param_reader first{short_length};
    std::string text;
    EXPECT_FALSE(decode(first, text));
    EXPECT_EQ(first.remaining(), 3U);

    const byte_vector short_body = bytes({5, 0, 0, 0, 'a'});
    param_reader second{short_body};
    EXPECT_FALSE(decode(second, text));
    EXPECT_EQ(second.remaining(), 5U);

    const byte_vector empty_then_number = bytes({0, 0, 0, 0, 7, 0, 0, 0});
    param_reader third{empty_then_number};
    std::uint32_t number = 0;
    EXPECT_TRUE(decode(third, text) && decode(third, number));
    EXPECT_EQ(number, 7U);
}

TEST(ParamBlock, CountsThatLieDoNotSizeAnything) {
    byte_vector lie = bytes({0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3, 4});
    EXPECT_FALSE(decodes<std::string>(lie));
    EXPECT_FALSE(decodes<byte_vector>(lie));
    EXPECT_FALSE(decodes<std::vector<device_desc>>(lie));
    EXPECT_FALSE(decodes<std::vector<std::uint64_t>>(lie));
}

TEST(ErrorOnTheWire, HasTheNumberOfTheContractAndComesBack) {
    struct {
        std::error_code code;
        std::uint64_t value, category;
    } const rows[]{
        {make_error_code(status::connection_closed), 42, 0},
        {make_error_code(std::errc::io_error), 5, 2},
        {make_error_code(std::errc::not_enough_memory), 12, 2},
        {make_error_code(std::errc::connection_aborted), 106, 2},
        {make_error_code(std::errc::timed_out), 138, 2},
        {{static_cast<int>(std::errc::invalid_argument), std::system_category()}, 87, 1},
        {{static_cast<int>(std::errc::broken_pipe), std::system_category()}, 109, 1},
    };
    for (const auto& [code, value, category] : rows) {
        EXPECT_EQ(to_wire(code).value, value) << code.message();
        EXPECT_EQ(to_wire(code).category_id, category) << code.message();
        EXPECT_EQ(from_wire(to_wire(code)), code);
    }
    for (int value = 1; value < 134; ++value) {
        const std::error_code code{value, std::generic_category()};
        EXPECT_EQ(from_wire(to_wire(code)), code) << value << ' ' << code.message();
        const std::error_code system{value, std::system_category()};
        EXPECT_EQ(from_wire(to_wire(system)), system) << value;
    }
}

TEST(ErrorOnTheWire, UnknownCategoriesBecomeStatus7) {
    static const struct : std::error_category {
        const char* name() const noexcept override { return "nobody's"; }
        std::string message(int) const override { return {}; }
    } unknown;
    EXPECT_EQ(from_wire(to_wire({5, unknown})), make_error_code(status::unregistered_error_category));
    EXPECT_EQ(from_wire({0, 4711}), make_error_code(status::unregistered_error_category));
}

TEST(ErrorOnTheWire, IsNeverNone) {
    using answer = std::expected<void, std::error_code>;
    EXPECT_FALSE(decodes<answer>(bytes({0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0}))) << "zero, cut to an int";

    param_writer out;
    encode(out, answer{std::unexpected(std::error_code{})});
    param_reader in{out.buffer()};
    answer back;
    EXPECT_TRUE(decode(in, back));
    EXPECT_EQ(back, std::unexpected(make_error_code(status::unregistered_error_category)));
}

TEST(Status, HasItsTextAndCondition) {
    EXPECT_EQ(make_error_code(status::connection_closed).message(), "Connection was closed");
    EXPECT_EQ(ipc_rpc_error_category().message(1), "unknown");
    EXPECT_EQ(make_error_code(status::connection_closed), std::errc::connection_aborted);
    EXPECT_EQ(make_error_code(status::resource_exhausted), std::errc::not_enough_memory);
}
