#include "path_probe.h"

#include <gige/gvcp.h>
#include <gige/wire.h>

#include <algorithm>
#include <array>
#include <chrono>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace cli {

namespace {

namespace reg = gige::gvcp::reg;
namespace bits = gige::gvcp::bits;

constexpr std::array<uint64_t, 12> sizes{16000, 9000, 8000, 4000, 1500, 1492, 1452, 1400, 1300, 1200, 1000, 576};
constexpr int wait_ms = 20; // a test packet takes far less on any network that a stream is sent over
constexpr int tries = 2;
constexpr uint64_t headers = 28; // IP and UDP

bool write_register(const gentl_library& lib, void* port, uint64_t address, uint32_t value) {
    std::array<std::byte, 4> word{};
    gige::store32(word.data(), value);
    size_t size = word.size();
    return lib.GCWritePort(port, address, word.data(), &size) == GenTL::GC_ERR_SUCCESS;
}

class test_socket {
public:
    explicit test_socket(uint32_t own) : descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(own);
        socklen_t length = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        if (descriptor >= 0 && bind(descriptor, generic, length) == 0 && getsockname(descriptor, generic, &length) == 0)
            bound = ntohs(address.sin_port);
    }
    ~test_socket() {
        if (descriptor >= 0) close(descriptor);
    }
    test_socket(const test_socket&) = delete;
    test_socket& operator=(const test_socket&) = delete;
    [[nodiscard]] uint16_t port() const noexcept { return bound; } // 0: there is none
    // What leaves through a firewall lets the answer in.
    void open_way(uint32_t camera, uint16_t source) const {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(camera);
        address.sin_port = htons(source);
        static_cast<void>(sendto(descriptor, "", 0, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    }
    [[nodiscard]] bool receives(uint64_t size) const {
        std::array<std::byte, 65536> buffer;
        pollfd entry{descriptor, POLLIN, 0};
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds{wait_ms};
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
            if (left.count() <= 0 || poll(&entry, 1, static_cast<int>(left.count())) <= 0) return false;
            const ssize_t got = recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (got >= 0 && static_cast<uint64_t>(got) + headers >= size) return true;
        }
    }

private:
    int descriptor;
    uint16_t bound = 0;
};

} // namespace

std::optional<uint32_t> read_register(const gentl_library& lib, void* port, uint64_t address) {
    std::array<std::byte, 4> word{};
    size_t size = word.size();
    if (lib.GCReadPort(port, address, word.data(), &size) != GenTL::GC_ERR_SUCCESS) return std::nullopt;
    return gige::load32(word.data());
}

std::optional<uint64_t> largest_packet_that_passes(const gentl_library& lib, void* port, uint32_t own_address,
                                                   uint64_t size) {
    const auto before = read_register(lib, port, reg::stream_packet_size);
    const auto camera = read_register(lib, port, reg::current_address);
    const test_socket socket{own_address};
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
                if (socket.receives(bytes)) return true;
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
