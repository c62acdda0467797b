// A frame is complete when every byte of it came, by both receivers' count.
#include "receiver_fixture.h"

namespace gev::streamchannel::impl {
namespace {

using namespace test;

struct sent {
    uint32_t packet;
    uint32_t kind = 3; // 1 leader, 2 trailer, 3 payload
    uint32_t size = payload_per_packet;
};
constexpr uint32_t L = 1, T = 2;

struct row {
    const char* name;
    std::vector<sent> packets;
    bool complete;        // by the resend receiver
    bool complete_simple; // for which a shorter frame is not whole
    std::vector<request> asked = {};
    uint32_t announced = frame_size;
};

// Four payload packets of 100 bytes are announced unless the row says otherwise: the trailer's id is 5.
const row rows[] = {
    {"as announced", {{0, L}, {1}, {2}, {3}, {4}, {5, T}}, true, true},
    {"truncated", {{0, L}, {1}, {2, 3, 99}, {3}, {4}, {5, T}}, false, false, {{1, 2, 2}}},
    {"empty", {{0, L}, {1}, {2, 3, 0}, {3}, {4}, {5, T}}, false, false, {{1, 2, 2}}},
    {"truncated, then whole", {{0, L}, {1}, {2, 3, 50}, {3}, {4}, {2}, {5, T}}, true, true},
    {"whole, then truncated", {{0, L}, {1}, {2}, {3}, {2, 3, 50}, {4}, {5, T}}, true, true},
    {"short before the trailer", {{0, L}, {1}, {2}, {3}, {4, 3, 60}, {5, T}}, true, true},
    {"short behind the trailer", {{0, L}, {1}, {2}, {3}, {5, T}, {4, 3, 60}}, true, true},
    {"another short one, too", {{0, L}, {1}, {4, 3, 60}, {2, 3, 50}, {3}, {5, T}}, false, false, {{1, 2, 3}}},
    {"one many times", {{0, L}, {1}, {1}, {1}, {1}, {1}, {1}}, false, false},
    {"shorter", {{0, L}, {1}, {2, 3, 60}, {3, T}}, true, false},
    {"shorter, one lost", {{0, L}, {2, 3, 60}, {3, T}}, false, false, {{1, 1, 1}}},
    {"one just behind for a lost one", {{0, L}, {1}, {3}, {4}, {5, T}, {6}}, false, false, {{1, 2, 2}}},
    {"any behind for a lost one", {{0, L}, {1}, {3}, {4}, {900}, {5, T}, {6}, {7}, {8}}, false, false, {{1, 2, 2}}},
    {"behind the trailer for a lost one", {{0, L}, {1}, {3, T}, {4}}, false, false, {{1, 2, 2}}},
    {"payload for the leader", {{0}, {1}, {2}, {3}, {4}, {5, T}}, false, false, {{1, 0, 0}}},
    {"smaller packets than agreed",
     {{0, L}, {1, 3, 50}, {2, 3, 50}, {3, 3, 50}, {4, 3, 50}, {5, 3, 50}, {6, 3, 50}, {7, 3, 50}, {8, 3, 50}, {9, T}},
     false,
     false,
     {{1, 1, 1}, {1, 2, 2}, {1, 3, 3}, {1, 4, 4}, {1, 5, 5}}},
    {"larger packets than agreed", {{0, L}, {1, 3, 200}, {2, 3, 200}, {3, T}}, false, false},
    {"padded beyond their share", {{0, L}, {1, 3, 150}, {2}, {3}, {4, 3, 150}, {5, T}}, true, true},
    {"longer by one", {{0, L}, {1}, {2}, {3}, {4}, {5}, {6, T}}, true, true},
    {"longer", {{0, L}, {1}, {2}, {3}, {4}, {5}, {6}, {7}, {8, T}}, true, true},
    {"longer, one lost behind", {{0, L}, {1}, {2}, {3}, {4}, {5}, {7}, {8, T}}, false, false},
    {"longer, one truncated behind", {{0, L}, {1}, {2}, {3}, {4}, {5}, {6, 3, 50}, {7}, {8, T}}, false, false},
    {"longer, short before the trailer", {{0, L}, {1}, {2}, {3}, {4}, {5}, {6, 3, 50}, {7, T}}, true, true},
    {"longer, short behind the trailer", {{0, L}, {1}, {2}, {3}, {4}, {5}, {7, T}, {6, 3, 50}}, true, true},
    {"longer, the last announced lost", {{0, L}, {1}, {2}, {3}, {4}, {6}, {7}, {8, T}}, false, false, {{1, 5, 5}}},
    {"odd, as announced", {{0, L}, {1}, {2}, {3}, {4, 3, 51}, {5, T}}, true, true, {}, 351},
    {"odd, longer within its last packet", {{0, L}, {1}, {2}, {3}, {4, 3, 60}, {5, T}}, true, true, {}, 351},
    {"odd, longer", {{0, L}, {1}, {2}, {3}, {4}, {5, 3, 60}, {6, T}}, true, true, {}, 351},
    {"odd, longer, cut behind the announced end",
     {{0, L}, {1}, {2}, {3}, {4, 3, 60}, {5}, {6, T}},
     false,
     false,
     {},
     351},
    {"odd, longer, cut behind it once more",
     {{0, L}, {1}, {2}, {3}, {4}, {4, 3, 60}, {5}, {6, T}},
     true,
     true,
     {},
     351},
};

datagram bytes_of(const sent& what) {
    datagram result = packet_of(1, what.kind == L ? 0 : what.kind == T ? trailer_id : 1);
    for (int i = 0; i < 3; ++i) result[5 + i] = static_cast<std::byte>(what.packet >> (8 * (2 - i)));
    if (what.kind == 3) {
        result.resize(8 + what.size);
        for (uint32_t i = 0; i < what.size; ++i) result[8 + i] = pixel(1, uint64_t{what.packet - 1} * 100 + i);
    }
    return result;
}

template <class Receiver>
bool delivered_complete(surroundings& around, const row& r, uint64_t time) {
    Receiver receiver{around.functions};
    receiver.setup(packet_size, r.announced);
    for (const sent& what : r.packets) feed(receiver, 1'000'000, bytes_of(what));
    receiver.check_timers(1'000'000 + time);
    receiver.flush(2'000'000);
    return around.frames.size() != 0 && (around.frames.back().flags & frame_flags::incomplete) == 0;
}

} // namespace

TEST(Completeness, every_byte_must_have_come) {
    for (const row& r : rows) {
        SCOPED_TRACE(r.name);
        surroundings repaired;
        EXPECT_EQ(delivered_complete<gvsp_recv_resend>(repaired, r, 16'666), r.complete);
        EXPECT_EQ(repaired.requests, r.asked);
        EXPECT_EQ(repaired.frames.size(), 1U);
        surroundings plain;
        EXPECT_EQ(delivered_complete<gvsp_recv_simple>(plain, r, 0), r.complete_simple);
    }
}

// A frame longer than announced, into buffers that hold it or not; the last packet before the trailer, behind it, or
// cut short at first.
TEST(Completeness, longer_frame_says_how_large_it_is) {
    for (const auto& [buffer_size, data_size] :
         {std::pair{400U, 600U}, {599U, 600U}, {600U, 600U}, {900U, 550U}, {550U, 550U}, {500U, 550U}}) {
        const sent last{6, 3, data_size - 500};
        for (const auto& end : {std::vector{last, sent{7, T}}, std::vector{sent{7, T}, last},
                                std::vector{sent{6, 3, 20}, last, sent{7, T}}}) {
            surroundings around;
            around.buffer_size = buffer_size;
            row longer{"", {{0, L}, {1}, {2}, {3}, {4}, {5}}, true, true};
            longer.packets.insert(longer.packets.end(), end.begin(), end.end());
            EXPECT_TRUE(delivered_complete<gvsp_recv_resend>(around, longer, 0));
            EXPECT_TRUE(delivered_complete<gvsp_recv_simple>(around, longer, 0));
            for (const frame_info& frame : around.frames) EXPECT_EQ(frame.expected_payload_size, data_size);
        }
    }
}

} // namespace gev::streamchannel::impl
