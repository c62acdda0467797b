#include "path_probe.h"

#include "../consumer/bootstrap_register.h"
#include "../posix/test_packet_socket.h"

#include <gige/gvcp.h>

#include <algorithm>
#include <array>
#include <chrono>

namespace cli {

namespace {

namespace reg = gige::gvcp::reg;
namespace bits = gige::gvcp::bits;

constexpr std::array<uint64_t, 12> sizes{16000, 9000, 8000, 4000, 1500, 1492, 1452, 1400, 1300, 1200, 1000, 576};
constexpr std::chrono::milliseconds wait{20}; // a test packet takes far less on any network that a stream is sent over
constexpr int tries = 2;
constexpr uint64_t headers = 28; // IP and UDP

} // namespace

std::optional<uint64_t> largest_packet_that_passes(const gentl_library& lib, void* port, uint32_t own_address,
                                                   uint64_t size) {
    const auto before = read_register(lib, port, reg::stream_packet_size);
    const auto camera = read_register(lib, port, reg::current_address);
    const test_packet_socket socket{own_address};
    if (!before || !camera || socket.port() == 0) return std::nullopt;
    const auto source = read_register(lib, port, reg::stream_source_port);
    socket.open_way(*camera, static_cast<uint16_t>(source.value_or(gige::gvcp::port)));
    std::optional<uint64_t> largest;
    if (write_register(lib, port, reg::stream_address, own_address) &&
        write_register(lib, port, reg::stream_port, socket.port())) {
        const auto passes = [&](uint64_t bytes) {
            for (int i = 0; i < tries; ++i) {
                const auto value = static_cast<uint32_t>(bytes) | bits::do_not_fragment;
                if (!write_register(lib, port, reg::stream_packet_size, value | bits::fire_test_packet)) return false;
                largest = largest.value_or(0); // the camera takes the command
                if (socket.receives(bytes - std::min(bytes, headers), wait)) return true;
            }
            return false;
        };
        std::array<uint64_t, sizes.size() + 1> tried;
        tried[0] = size;
        std::ranges::copy(sizes, tried.begin() + 1);
        for (const uint64_t each : tried) {
            if (each > size || !passes(each)) continue;
            largest = each;
            break;
        }
    }
    static_cast<void>(write_register(lib, port, reg::stream_port, 0));
    static_cast<void>(write_register(lib, port, reg::stream_packet_size, *before & ~(bits::fire_test_packet)));
    return largest;
}

} // namespace cli
