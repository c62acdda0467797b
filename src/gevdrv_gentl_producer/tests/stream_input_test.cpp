// What else may arrive on the stream's socket: the camera's frames still come through whole.
#include "device_stream.h"

namespace {

using namespace fake;

constexpr size_t longest_datagram = 65'507;

using bytes = std::vector<std::byte>;

bytes of(std::initializer_list<int> values, size_t size) {
    bytes result;
    for (const int value : values) result.push_back(static_cast<std::byte>(value));
    result.resize(size, std::byte{0x5A});
    return result;
}

// None of these is a packet of a frame.
std::vector<bytes> strangers() {
    std::vector<bytes> list;
    for (size_t size = 0; size < 8; ++size) list.push_back(bytes(size));
    for (const size_t size : {size_t{8}, size_t{100}, size_t{1472}, longest_datagram}) {
        list.push_back(of({0, 0, 0, 0, 3, 0, 0, 1}, size));       // a packet size test
        list.push_back(of({0x80, 0x0B, 0, 1, 3, 0, 0, 1}, size)); // a status
        list.push_back(of({0, 0, 0, 1, 4, 0, 0, 1}, size));       // formats that are none
        list.push_back(of({0, 0, 0, 1, 0x7F, 0, 0, 1}, size));
        list.push_back(of({0, 0, 0, 1, 1, 0, 0, 7}, size)); // a leader that is no packet 0
        list.push_back(of({0, 0, 0, 1, 0x83, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, std::max<size_t>(size, 20)));
        list.push_back(of({}, size));
        list.push_back(of({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, size));
    }
    list.push_back(of({0, 0, 0, 1, 1, 0, 0, 0}, 39)); // leader and trailer cut short
    list.push_back(of({0, 0, 0, 1, 2, 0, 0, 9, 0, 0, 0, 1}, 15));
    list.push_back(of({0, 0, 0, 1, 0x83}, 19));                         // extended form cut short
    list.push_back(of({0, 0, 0, 0x81, 0, 4, 0, 0xFF, 0, 0, 0, 2}, 12)); // the answer to the opening register read
    list.push_back(of({0x80, 6, 0, 0x81, 0, 0, 0, 0xFF}, 8));           // the same, refused
    return list;
}

std::unique_ptr<device_stream> running_stream(const camera_traits& traits = {}) {
    auto own = device_stream::make(traits);
    if (!own) return own;
    own->queue_new(5);
    if (traits.frame_rate == 1) own->patient();
    EXPECT_TRUE(own->start());
    return own;
}

void expect_next(device_stream& own, uint16_t block) {
    const BUFFER_HANDLE handle = own.next(long_enough_ms);
    ASSERT_NE(handle, nullptr) << block;
    EXPECT_EQ(own.info<uint64_t>(handle, BUFFER_INFO_FRAMEID), block);
    EXPECT_EQ(own.info<uint8_t>(handle, BUFFER_INFO_IS_INCOMPLETE), 0) << block;
    EXPECT_TRUE(own.bytes_right(handle));
    ASSERT_FALSE(own.stream->QueueBuffer(handle).failed());
}

} // namespace

TEST(StreamInput, StrangeDatagramsDoNotDisturbTheFrames) {
    const auto own = running_stream();
    ASSERT_TRUE(own);
    auto neighbour = gige::udp_socket::open({loopback + 1, 0});
    ASSERT_TRUE(neighbour);
    const auto list = strangers();
    std::mt19937 random{11};
    for (uint16_t block = 1; block <= 60; ++block) {
        for (uint32_t id = 0; id <= camera::trailer_id; ++id) {
            // Few enough at once for any receive buffer.
            for (int i = 0; i < 3; ++i) {
                own->cam.send(list[random() % list.size()], random() % 2 == 0 ? &*neighbour : nullptr);
            }
            bytes forged = camera::packet(block, id == camera::trailer_id ? id : id + 1); // of the frame to be
            std::fill(forged.begin() + 8, forged.end(), std::byte{0x5A});
            own->cam.send(forged, &*neighbour);
            own->cam.send(camera::packet(block, id));
        }
        ASSERT_NO_FATAL_FAILURE(expect_next(*own, block));
    }
    EXPECT_EQ(own->info<uint64_t>(STREAM_INFO_NUM_DELIVERED), 60U);
    EXPECT_EQ(own->info<uint64_t>(STREAM_INFO_NUM_UNDERRUN), 0U);
    EXPECT_TRUE(own->stop());
    EXPECT_TRUE(own->all_accounted_for());
}

// As fast as a sender can. What the kernel drops is asked for again, and the stream stops and starts meanwhile.
TEST(StreamInput, AFloodOfStrangersIsSurvived) {
    const auto own = running_stream({.frame_rate = 200});
    ASSERT_TRUE(own);
    auto neighbour = gige::udp_socket::open({loopback + 1, 0});
    ASSERT_TRUE(neighbour);
    std::atomic<uint64_t> sent{0};
    const std::jthread flood{[&](const std::stop_token& stop) {
        const auto list = strangers();
        for (size_t i = 0; !stop.stop_requested(); ++i) {
            own->cam.send(list[i % list.size()], &*neighbour);
            ++sent;
        }
    }};
    uint64_t complete = 0;
    for (int round = 0; round < 4; ++round) {
        const uint64_t before = sent;
        const uint64_t wanted = complete + 10;
        for (uint16_t block = 1; complete < wanted || sent < before + 1000; ++block) {
            ASSERT_LT(block, 60'000);
            own->cam.send_frame(block);
            const BUFFER_HANDLE handle = own->next(50);
            if (handle == nullptr) continue;
            if (own->info<uint8_t>(handle, BUFFER_INFO_IS_INCOMPLETE) == 0) {
                EXPECT_TRUE(own->bytes_right(handle));
                ++complete;
            }
            ASSERT_FALSE(own->stream->QueueBuffer(handle).failed());
        }
        ASSERT_TRUE(own->stop());
        ASSERT_TRUE(own->all_accounted_for());
        ASSERT_TRUE(own->start());
    }
}
