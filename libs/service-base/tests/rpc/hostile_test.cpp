// Seeded near misses of packets; what reads or writes outside a packet is seen by the sanitizers.
#include <support/hostile_packets.h>

#include <gtest/gtest.h>

#include <random>

TEST(Hostile, NearMissesOfPacketsAreHarmless) {
    std::mt19937 random{4};
    const std::array<const char*, 4> names{"write_reg", "open_device", "get_url_info_list", "genicam_write_mem"};
    for (int round = 0; round < 300; ++round) {
        std::vector<std::byte> input;
        for (int packets = 0; packets < 12; ++packets) {
            std::vector<std::byte> packet(random() % 200);
            for (auto& byte : packet) byte = static_cast<std::byte>(random() % 4 == 0 ? random() : 0);
            const auto header = ipc_rpc::make_header(static_cast<ipc_rpc::rpc_packet_type>(random() % 10), random() % 2,
                                                     packet.size(), random() % 3);
            if (packet.size() >= sizeof header) std::memcpy(packet.data(), &header, sizeof header);
            if (packet.size() >= 96) {
                const std::uint64_t size = random() % 4 == 0 ? ~std::uint64_t{0} : random() % 400;
                std::memcpy(packet.data() + 16, &size, sizeof size);
                std::memset(packet.data() + 24, 0, 8);
                std::memcpy(packet.data() + 32, names[random() % names.size()], 10);
            }
            const auto length = static_cast<std::uint16_t>(packet.size());
            input.push_back(static_cast<std::byte>(length & 0xFF));
            input.push_back(static_cast<std::byte>(length >> 8));
            input.insert(input.end(), packet.begin(), packet.end());
        }
        hostile::feed(input);
    }
}
