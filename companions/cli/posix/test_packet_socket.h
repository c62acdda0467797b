// A socket for the packets by which a camera shows which sizes come through.
#pragma once

#include <chrono>
#include <cstdint>

namespace cli {

// Thread-bound.
class test_packet_socket final {
public:
    explicit test_packet_socket(uint32_t own_address);
    ~test_packet_socket();
    test_packet_socket(const test_packet_socket&) = delete;
    test_packet_socket& operator=(const test_packet_socket&) = delete;
    [[nodiscard]] uint16_t port() const noexcept { return bound; } // 0: there is none
    // What leaves through a firewall lets the answer in.
    void open_way(uint32_t camera, uint16_t source) const;
    // Whether a datagram of so many bytes or more comes within the time; what is shorter is dropped.
    [[nodiscard]] bool receives(uint64_t bytes, std::chrono::milliseconds longest) const;

private:
    int descriptor;
    uint16_t bound = 0;
};

} // namespace cli
