// A bare consumer for the camera's tests: one control socket, one stream socket.
#pragma once

#include <gige/gvsp.h>
#include <gige/udp_socket.h>
#include <support/small_camera.h>

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace camera_sim {

using gige::gvcp::command;
using status = gige::gvcp::status;
namespace boot = gige::gvcp::reg;
namespace bits = gige::gvcp::bits;

struct test_client {
    struct reply {
        gige::gvcp::ack_header header;
        std::vector<std::byte> body;
    };

    uint32_t camera_address;
    gige::udp_socket control = *gige::udp_socket::open({own_address(250), 0});
    gige::udp_socket stream = *gige::udp_socket::open({own_address(250), 0});
    uint16_t next_id = 0;

    explicit test_client(uint32_t camera) : camera_address{camera} { EXPECT_FALSE(stream.set_receive_buffer(4 << 20)); }

    [[nodiscard]] static std::optional<std::vector<std::byte>> receive(const gige::udp_socket& socket,
                                                                       int wait_ms = 2000) {
        const std::array handles{socket.native()};
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds{wait_ms};
        if (gige::wait_readable(handles, until) == 0) return {};
        std::vector<std::byte> buffer(65536);
        gige::endpoint from;
        const auto size = socket.receive(buffer, from);
        if (!size) return {};
        buffer.resize(*size);
        return buffer;
    }

    void send(command code, std::span<const std::byte> body, uint8_t flags = 1, uint16_t id = 0, uint32_t to = 0) {
        std::vector<std::byte> datagram(8);
        gige::gvcp::store_command(datagram.data(),
                                  {flags, code, static_cast<uint16_t>(body.size()), id != 0 ? id : ++next_id});
        datagram.insert(datagram.end(), body.begin(), body.end());
        EXPECT_FALSE(control.send({to != 0 ? to : camera_address, gige::gvcp::port}, datagram));
    }

    [[nodiscard]] std::optional<reply> receive_reply(int wait_ms = 2000) {
        auto datagram = receive(control, wait_ms);
        if (!datagram) return {};
        const auto header = gige::gvcp::parse_ack(*datagram);
        if (!header) return {};
        return reply{*header, {datagram->begin() + 8, datagram->end()}};
    }

    [[nodiscard]] static std::vector<std::byte> words(std::initializer_list<uint32_t> values) {
        std::vector<std::byte> bytes(4 * values.size());
        std::size_t at = 0;
        for (const uint32_t value : values) gige::store32(&bytes[4 * at++], value);
        return bytes;
    }

    status write(uint32_t address, uint32_t value) {
        send(command::write_reg, words({address, value}));
        const auto got = receive_reply();
        EXPECT_TRUE(got) << "no answer to a write of " << std::hex << address;
        return got ? got->header.result : status::generic_error;
    }

    [[nodiscard]] uint32_t read(uint32_t address, status expected = status::success) {
        send(command::read_reg, words({address}));
        const auto got = receive_reply();
        EXPECT_TRUE(got);
        if (!got) return 0;
        EXPECT_EQ(got->header.result, expected) << std::hex << address;
        return got->body.size() == 4 ? gige::load32(got->body.data()) : 0;
    }

    void open_stream(uint32_t packet_size) {
        EXPECT_EQ(write(boot::privilege, bits::control), status::success);
        EXPECT_EQ(write(boot::stream_address, stream.local().address), status::success);
        EXPECT_EQ(write(boot::stream_port, stream.local().port), status::success);
        EXPECT_EQ(write(boot::stream_packet_size, bits::do_not_fragment | packet_size), status::success);
    }
};

} // namespace camera_sim
