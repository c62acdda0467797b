#include "stream_channel_packet_size_test.h"

#include <gds_helper/log.h>
#include <gds_shared/gigecam_error.h>
#include <gev_registers/registers.h>

#include <algorithm>

namespace gev::streamchannel::impl {

namespace {

constexpr uint32_t size_mask = 0xFFFF;

constexpr uint32_t most_headers = 48; // IP 20, UDP 8, GVSP with extended ids 20

constexpr int32_t lowest_minimum = 1400;
constexpr int32_t highest_maximum = 32000;
constexpr int64_t smallest_node_minimum = 100;
constexpr int32_t carried_anywhere = 1500;
constexpr int32_t fallback_size = 1484;
constexpr int32_t smallest_useful = 576; // every host and every network carries it
constexpr int32_t size_step = 4;

// Sizes that real networks claim to carry and do not: never tested, never chosen.
constexpr int32_t first_excluded = 1504;
constexpr int32_t first_above_excluded = 1520;
constexpr bool is_excluded(int32_t size) { return size >= first_excluded && size < first_above_excluded; }

using gds_helper::log::gvsp_logger;

} // namespace

uint32_t packet_size_test::register_address() const noexcept {
    return reg::of_stream_channel(reg::stream_packet_size, channel_index);
}

std::error_code packet_size_test::write_packetsize_register(uint32_t size, bool fire) {
    const uint32_t value = size | bits::do_not_fragment | (fire ? bits::fire_test_packet : 0);
    return port.write_reg(register_address(), value, 0, register_timeout_ms);
}

std::expected<uint32_t, std::error_code> packet_size_test::read_packetsize_register() {
    const auto value = port.read_reg(register_address(), 1, register_timeout_ms);
    if (!value) {
        gvsp_logger().error("Failed to read packet-size register.");
        return std::unexpected(value.error());
    }
    return *value & size_mask;
}

std::expected<uint32_t, std::error_code> packet_size_test::set_packet_size(uint32_t size) {
    if (const std::error_code error = write_packetsize_register(size, false)) return std::unexpected(error);
    auto taken = read_packetsize_register();
    if (taken && *taken <= most_headers) {
        gvsp_logger().error("The device takes a packet size of {} as {}, which holds no data.", size, *taken);
        return std::unexpected(make_error_code(gds_shared::gigecam_errc::invalid_parameter));
    }
    return taken;
}

packet_size_test::tested packet_size_test::test_packet_size(uint32_t size, int32_t most) {
    const auto actual = set_packet_size(size);
    if (!actual) return {outcome::failed};
    if (is_excluded(static_cast<int32_t>(*actual))) return {outcome::left_out}; // by the camera's rounding, as the next
    if (static_cast<int32_t>(*actual) > most) return {outcome::failed};
    if (socket.drain_socket() || write_packetsize_register(*actual, true)) return {outcome::failed};
    if (socket.receive_packet_and_check_size(*actual)) return {outcome::failed};
    return {outcome::passed, *actual};
}

std::expected<packet_size_range, std::error_code>
packet_size_test::get_payload_size_range_from_genicam(GenICam::IInteger& node, int32_t max_allowed) {
    constexpr unsigned present = GenICam::access_flags::bypass_cache; // they change with the link and the camera's mode
    const auto min = node.get_min(present);
    if (!min || *min < smallest_node_minimum) {
        gvsp_logger().error("Failed to read GevSCPSPacketSize.pMin from GenICam.");
        return std::unexpected(min ? make_error_code(gds_shared::gigecam_errc::invalid_parameter) : min.error());
    }
    const auto max = node.get_max(present);
    if (!max || *max < *min) {
        gvsp_logger().error("Failed to read GevSCPSPacketSize.pMax from GenICam.");
        return std::unexpected(max ? make_error_code(gds_shared::gigecam_errc::invalid_parameter) : max.error());
    }
    const auto bounded = [](int64_t value) { return static_cast<int32_t>(std::min<int64_t>(value, highest_maximum)); };
    return packet_size_range{std::max(bounded(*min), lowest_minimum), std::min(bounded(*max), max_allowed)};
}

std::expected<packet_size_range, std::error_code> packet_size_test::range_from_register(int32_t max_allowed) {
    const int32_t limit = std::min(max_allowed, highest_maximum);
    const auto taken = set_packet_size(static_cast<uint32_t>(limit));
    if (!taken) return std::unexpected(taken.error());
    return packet_size_range{lowest_minimum, std::min(static_cast<int32_t>(*taken), limit)};
}

// Above the sizes that are left out first, and below them only when nothing got through there: neither side says
// anything about the other.
std::expected<uint32_t, std::error_code> packet_size_test::evalute_packet_size(packet_size_range range) {
    if (range.max <= carried_anywhere) return set_usable_packet_size(range.max, range.max);
    gvsp_logger().trace("StreamChannel, packet sizes reported : min={}, max={}", range.min, range.max);
    uint32_t best = 0;
    if (range.max >= first_above_excluded) {
        best = search(range.max, {std::max(range.min, first_above_excluded), range.max}, range.max);
    }
    if (best == 0) {
        const int32_t first = range.max < first_excluded ? range.max : carried_anywhere;
        best = search(first, {range.min, std::min(range.max, first_excluded - 1)}, range.max);
    }
    return set_usable_packet_size(best == 0 ? fallback_size : static_cast<int32_t>(best), range.max);
}

// Halves what is left between the largest size that passed and the smallest that failed. What is asked for counts and
// not only what the camera makes of it: each round takes at least the size asked for out of what is left, so that the
// search ends for a camera that rounds in any way and for a maximum between the steps.
uint32_t packet_size_test::search(int32_t first, packet_size_range range, int32_t most) {
    int32_t min = range.min - 1; // nothing up to here is worth a question
    int32_t max = range.max + 1; // nothing from here on
    uint32_t best = 0;
    for (int32_t size = first; size < max;) {
        gvsp_logger().trace("StreamChannel, testing packet size of s={}, min={}, max={}", size, min, max);
        const tested answer = test_packet_size(static_cast<uint32_t>(size), most);
        if (answer.how == outcome::passed) {
            best = std::max(best, answer.size);
            min = std::max(size, static_cast<int32_t>(best));
        } else if (answer.how == outcome::left_out && size >= first_above_excluded) {
            min = size; // rounded down
        } else {
            max = size;
        }
        size = (min + max) / 2 / size_step * size_step;
        if (size <= min) size = min / size_step * size_step + size_step;
    }
    return best;
}

std::expected<uint32_t, std::error_code> packet_size_test::set_usable_packet_size(int32_t size, int32_t most) {
    for (int32_t step = size_step;; size -= step) {
        const auto accepted = set_packet_size(static_cast<uint32_t>(size));
        if (!accepted) return accepted;
        const auto taken = static_cast<int32_t>(*accepted);
        if (taken <= most && !is_excluded(taken)) return accepted;
        if (size <= lowest_minimum) step *= 2; // a camera of coarse steps
        if (size - step < smallest_useful) {
            gvsp_logger().error("The device takes no packet size up to {}: {} became {}.", most, size, taken);
            return std::unexpected(make_error_code(gds_shared::gigecam_errc::invalid_parameter));
        }
    }
}

} // namespace gev::streamchannel::impl
