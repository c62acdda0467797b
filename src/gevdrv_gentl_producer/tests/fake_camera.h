// A camera on a loopback socket, with registers and a document, for tests of a device's stream.
#pragma once

#include <gige/udp_socket.h>
#include <support/datagrams.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <random>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace fake {

namespace gvsp = gev::streamchannel::test;

inline constexpr uint32_t loopback = 0x7F000001;

struct camera_traits {
    uint32_t loss = 0; // of 1000 datagrams, answers included
    bool can_resend = true;
    bool free_running = false;
    uint32_t pause_us = 300; // between frames
    double frame_rate = 1;   // what the document says: a low one makes a receiver patient with a busy machine
    uint64_t tick_frequency = 1'000'000'000;
    const char* more_nodes = ""; // of the document
    const char* first_url = "";  // before the one of the document
    // What the leader says of the picture; zeros for the picture that is sent.
    uint32_t width = 0, height = 0, padding = 0;
    uint32_t pixel_format = 0x01080001;
};

class camera {
public:
    static constexpr uint32_t packet_size = 236; // with IP and UDP headers
    static constexpr uint32_t payload_per_packet = packet_size - 36;
    static constexpr uint32_t data_packets = 8;
    static constexpr uint32_t payload_size = payload_per_packet * data_packets;
    static constexpr uint32_t trailer_id = data_packets + 1;
    static constexpr uint64_t document_address = 0x10000;
    static constexpr uint64_t rate_address = 0x2000;

    explicit camera(const camera_traits& how) : traits(how) {
        auto opened = gige::udp_socket::open({loopback, 0});
        if (opened) socket = std::move(*opened);
        thread = std::jthread{[this](const std::stop_token& stop) { run(stop); }};
    }

    static constexpr gvsp::shape wire{payload_per_packet, data_packets};
    static std::byte pixel(uint64_t block, uint64_t position) { return gvsp::pixel(block, position); }
    static std::vector<std::byte> packet(uint16_t block, uint32_t id) { return gvsp::packet_of(block, id, wire); }

    // The same, with the leader that this camera sends.
    [[nodiscard]] std::vector<std::byte> own_packet(uint16_t block, uint32_t id) const {
        auto bytes = packet(block, id);
        const auto put = [&](size_t at, uint64_t value, int count) {
            while (count-- > 0) bytes[at++] = static_cast<std::byte>(value >> (8 * count) & 0xFF);
        };
        if (id != 0) return bytes;
        put(20, traits.pixel_format, 4);
        if (traits.width != 0) {
            put(24, traits.width, 4);
            put(28, traits.height, 4);
            put(40, traits.padding, 2);
        }
        return bytes;
    }
    [[nodiscard]] size_t picture_bytes() const {
        return (size_t{traits.width} * (traits.pixel_format >> 16 & 0xFF) / 8 + traits.padding) * traits.height;
    }

    [[nodiscard]] std::string document() const {
        const auto integer = [](const std::string& name, uint32_t value, const std::string& more) {
            return "<Integer Name=\"" + name + "\"><Value>" + std::to_string(value) + "</Value>" + more + "</Integer>";
        };
        return "<?xml version=\"1.0\"?><RegisterDescription ModelName=\"M\" VendorName=\"V\" StandardNameSpace=\"GEV\" "
               "SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" SchemaSubMinorVersion=\"0\" MajorVersion=\"1\" "
               "MinorVersion=\"0\" SubMinorVersion=\"0\" ProductGuid=\"a\" VersionGuid=\"b\" "
               "xmlns=\"http://www.genicam.org/GenApi/Version_1_1\"><Category Name=\"Root\"></Category>" +
               integer("PayloadSize", payload_size, "") +
               integer("GevSCPSPacketSize", packet_size,
                       "<Min>100</Min><Max>" + std::to_string(packet_size) + "</Max>") +
               "<FloatReg Name=\"AcquisitionFrameRate\"><Address>8192</Address><Length>4</Length>"
               "<AccessMode>RO</AccessMode><pPort>Device</pPort><Endianess>BigEndian</Endianess></FloatReg>" +
               traits.more_nodes + "<Port Name=\"Device\"></Port></RegisterDescription>";
    }
    [[nodiscard]] uint16_t port() const { return socket.local().port; }

    uint32_t read(uint64_t address) {
        const std::lock_guard guard{mutex};
        switch (address) {
        case 0x0934:
            return traits.can_resend ? 4 : 0;
        case 0x093C:
            return static_cast<uint32_t>(traits.tick_frequency >> 32);
        case 0x0940:
            return static_cast<uint32_t>(traits.tick_frequency);
        case 0x0D04:
            return packet_size | 0x40000000;
        case rate_address:
            if (destination.port != 0) rate_read_while_open = true;
            return std::bit_cast<uint32_t>(static_cast<float>(traits.frame_rate));
        default:
            return 0;
        }
    }
    void write(uint64_t address, uint32_t value) {
        const std::lock_guard guard{mutex};
        if (address == 0x0D18) destination.address = value;
        if (address == 0x0D00) {
            destination.port = static_cast<uint16_t>(value);
            next_block = 1;
            asked.clear();
        }
        if (address == 0x0D04 && (value & 0x80000000) != 0) {
            transmit(std::vector<std::byte>(packet_size - 28), destination);
        }
        changed.notify_all();
    }
    void resend(uint64_t block, uint32_t first, uint32_t last) {
        const std::lock_guard guard{mutex};
        ++resends;
        if (asked.size() < 1000) asked.push_back({static_cast<uint16_t>(block), first, last});
        changed.notify_all();
    }

    // A frame at once, without loss, by whom the test likes.
    void send_frame(uint16_t block, const gige::udp_socket* from = nullptr, uint32_t skip = UINT32_MAX) {
        for (uint32_t id = 0; id <= trailer_id; ++id) {
            if (id != skip) send(own_packet(block, id), from);
        }
    }
    void send(std::span<const std::byte> data, const gige::udp_socket* from = nullptr) {
        const gige::endpoint to = target();
        static_cast<void>((from != nullptr ? *from : socket).send(to, data));
    }
    [[nodiscard]] gige::endpoint target() {
        const std::lock_guard guard{mutex};
        return destination;
    }

    [[nodiscard]] std::string first_url() const { return traits.first_url; }

    std::atomic<uint64_t> resends{0};
    std::atomic<bool> rate_read_while_open{false};

private:
    struct range {
        uint16_t block;
        uint32_t first, last;
    };

    void transmit(std::span<const std::byte> data, const gige::endpoint& to) {
        static_cast<void>(socket.send(to, data));
    }
    void lossy(uint16_t block, uint32_t id, const gige::endpoint& to) {
        if (random() % 1000 >= traits.loss) transmit(own_packet(block, id), to);
    }
    void answer(std::unique_lock<std::mutex>& held) {
        while (!asked.empty() && destination.port != 0) {
            const range r = asked.front();
            asked.pop_front();
            const gige::endpoint to = destination;
            held.unlock();
            for (uint32_t id = r.first; id <= std::min(r.last, trailer_id); ++id) lossy(r.block, id, to);
            held.lock();
        }
    }
    void run(const std::stop_token& stop) {
        std::unique_lock held{mutex};
        while (!stop.stop_requested()) {
            changed.wait(held, stop, [&] { return destination.port != 0 && (traits.free_running || !asked.empty()); });
            answer(held);
            if (!traits.free_running) continue;
            const gige::endpoint to = destination;
            const auto block = static_cast<uint16_t>(next_block);
            next_block = next_block % 65535 + 1;
            for (uint32_t id = 0; id <= trailer_id && to.port != 0; ++id) {
                held.unlock();
                lossy(block, id, to);
                held.lock();
                answer(held);
            }
            held.unlock();
            std::this_thread::sleep_for(std::chrono::microseconds{traits.pause_us});
            held.lock();
        }
    }

    const camera_traits traits;
    std::mutex mutex; // guards what follows; the random numbers are the thread's
    std::condition_variable_any changed;
    gige::endpoint destination;
    uint32_t next_block = 1;
    std::deque<range> asked;
    std::minstd_rand random{7};
    gige::udp_socket socket;
    std::jthread thread;
};

} // namespace fake
