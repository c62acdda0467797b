// Random traffic on a simulated clock: what a receiver delivers is right, in order, and adds up.
#include "receiver_fixture.h"

#include <map>
#include <random>
#include <set>
#include <utility>

namespace gev::streamchannel::impl {
namespace {

using namespace test;

struct traffic {
    uint32_t loss = 0;        // of 1000 datagrams, answers included
    uint32_t duplication = 0; // of 1000
    uint32_t reordering = 0;  // of 1000, by up to half a frame
    uint32_t late = 0;        // of 1000, by up to four frames
    uint32_t lost_frames = 0; // of 1000, whole
    uint32_t no_buffer = 0;   // of 1000 frames
    uint32_t refusal = 0;     // of 1000 packets asked for: a status instead
    uint32_t truncation = 0;  // of 1000 payload packets
    uint32_t strange_ids = 0; // of 1000 payload packets: with an id behind the frame, in place of their own
    uint32_t restarts = 0;    // of 1000 frames: the camera starts over in front of it
    uint32_t retries = 3;
    uint64_t frame_time = 10'000; // microseconds, like the next two
    uint64_t answers_after = 200;
    uint64_t answers_within = 3'333; // from then on
    bool automatic = false;          // the receiver finds the frames' time out
    uint64_t rest = 0; // before the camera starts over, in microseconds: what it sends till then is the old round's
    shape wire{};
    uint64_t first_id = 500;
    uint64_t complete = 0; // of 300 frames, at least, where packets are asked for
};

// A camera and a network between two ends of a clock. Datagrams wait in `line` for their time of arrival.
class simulation : public surroundings {
public:
    simulation(const traffic& how, uint32_t seed) : traits(how), random(seed) {
        start_over(how.wire);
        functions.get_frame = [this, inner = functions.get_frame] {
            out_of_buffers = !at_an_end && happens(traits.no_buffer);
            return inner();
        };
    }

    template <class Receiver>
    counts run(Receiver& receiver, uint32_t frame_count) {
        receiver.setup(wire.packet_size(), wire.frame_size());
        uint64_t timer = never;
        uint32_t round_begin = 0;
        for (uint32_t i = 0; i < frame_count; ++i) {
            if (i != 0 && happens(traits.restarts)) {
                run_until(receiver, now + traits.rest, timer);
                round_begin = i;
                ++wire.round;
                lost_before = std::exchange(lost, {});
                run_until(receiver, now + 300'000 + below(100'000), timer);
            }
            const uint64_t begin = now + frame_time;
            const uint64_t block = id_of(i - round_begin);
            at_an_end = i < 8 || i + 8 >= frame_count; // these are delivered, so that the count between them is known
            const bool all_lost = !at_an_end && happens(traits.lost_frames);
            for (uint32_t packet = 0; packet <= wire.trailer() && !all_lost; ++packet) {
                datagram data = packet_of(block, packet, wire);
                // Before the trailer a packet may be short, so the frame's last one stays whole.
                if (packet != 0 && packet + 1 < wire.trailer()) {
                    if (happens(traits.truncation)) data.resize(data.size() - 1 - below(wire.payload));
                    if (happens(traits.strange_ids)) {
                        const uint32_t strange = wire.trailer() + static_cast<uint32_t>(below(5));
                        data[wire.extended ? 19 : 7] = static_cast<std::byte>(strange);
                    }
                }
                const uint64_t at = begin + packet * frame_time / (2 * wire.trailer());
                // An answer of the old round in the place of what the new one lost can be told by nothing.
                if (traits.restarts == 0) {
                    emit(at, std::move(data));
                } else if (!lost_before.contains({block, packet}) && happens(traits.loss)) {
                    lost.emplace(block, packet);
                } else {
                    convey(at, std::move(data));
                }
            }
            sent.emplace(wire.round, block);
            run_until(receiver, begin, timer);
        }
        run_until(receiver, now + 20 * frame_time, timer);
        receiver.flush(now);
        return counts_of(receiver.get_statistics());
    }

    void answer(uint64_t block, uint32_t first, uint32_t last, bool extended) {
        ASSERT_LE(first, last);
        ASSERT_LE(last, wire.trailer());
        ASSERT_EQ(extended, wire.extended);
        // With rounds it may have been one of the round before, which was not taken.
        EXPECT_FALSE(traits.restarts == 0 && arrived.contains({block, first})) << "asked for again";
        packets_asked += last - first + 1;
        ++requests_made;
        for (uint32_t packet = first; packet <= last; ++packet) {
            const uint64_t at = now + traits.answers_after + below(traits.answers_within);
            if (!sent.contains({wire.round, block}) || happens(traits.refusal)) {
                const uint32_t codes[] = {0x800C, 0x8010, 0x8011, 0x8012};
                emit(at, header(block, 3, packet, codes[below(4)], wire.extended));
            } else {
                emit(at, packet_of(block, packet, wire));
            }
        }
    }

    uint64_t packets_asked = 0;
    uint64_t requests_made = 0;

private:
    static constexpr uint64_t never = std::numeric_limits<uint64_t>::max();

    uint64_t below(uint64_t bound) { return random() % bound; }
    bool happens(uint32_t per_mille) { return below(1000) < per_mille; }
    [[nodiscard]] uint64_t id_of(uint32_t index) const {
        const uint64_t id = traits.first_id + index;
        return wire.extended ? id : (id - 1) % 65535 + 1;
    }
    void emit(uint64_t at, datagram data) {
        if (!happens(traits.loss)) convey(at, std::move(data));
    }
    void convey(uint64_t at, datagram data) {
        if (happens(traits.reordering)) at += below(frame_time / 2);
        if (happens(traits.late)) at += below(4 * frame_time);
        if (happens(traits.duplication)) line.emplace(at + below(frame_time), data);
        line.emplace(at, std::move(data));
    }
    template <class Receiver>
    void run_until(Receiver& receiver, uint64_t end, uint64_t& timer) {
        for (;;) {
            const uint64_t arrival = line.empty() ? never : line.begin()->first;
            const uint64_t next = std::min(arrival, timer);
            if (next >= end) break;
            now = std::max(now, next);
            int64_t wait = -1;
            if (arrival <= timer) {
                datagram data = std::move(line.extract(line.begin()).mapped());
                const size_t size = data.size();
                data.resize(size + 16);
                const auto packet = parse_gvsp_packet(data.data(), size);
                const bool whole = packet.kind != gvsp_packet_kind::payload || packet.payload.data_size == wire.payload;
                if (whole && packet.status == 0) arrived.emplace(packet.block_id, packet.packet_id);
                if (!receiver.receive_packet(now, {data.data(), size})) continue;
            }
            wait = receiver.check_timers(now);
            timer = wait > 0 ? now + static_cast<uint64_t>(wait) : never;
        }
        now = std::max(now, end);
    }

    const traffic traits;
    const uint64_t frame_time = traits.frame_time;
    bool at_an_end = false;
    std::mt19937 random;
    uint64_t now = 1'000'000;
    std::multimap<uint64_t, datagram> line;
    std::set<std::pair<uint32_t, uint64_t>> sent;                       // round and block
    std::set<std::pair<uint64_t, uint32_t>> arrived, lost, lost_before; // block and packet; lost: in this round
};

// Every frame from the first one to the last is one of those delivered, those without a buffer and those skipped.
void expect_right(const simulation& run, const counts& stats) {
    EXPECT_EQ(run.taken, run.returned);
    EXPECT_TRUE(run.guards_intact());
    counts seen{};
    std::set<uint64_t> ids;
    for (size_t i = 0; i < run.frames.size(); ++i) {
        const frame_info& frame = run.frames[i];
        ++seen[(frame.flags & frame_flags::incomplete) == 0 ? 0 : 1];
        seen[4] += frame.resend_packets_requested;
        ids.insert(frame.frame_id);
        ASSERT_TRUE(run.bytes_right(i) && frame.filled_size <= run.wire.frame_size());
        ASSERT_GE(frame.end_time, frame.start_time);
        const bool was_flushed = (frame.flags & frame_flags::flushed) != 0;
        ASSERT_TRUE(i == 0 || was_flushed || frame.frame_id > run.frames[i - 1].frame_id) << "out of order";
    }
    ASSERT_FALSE(ids.empty());
    EXPECT_EQ(ids.size(), run.frames.size());
    EXPECT_EQ(stats[0], seen[0]);
    EXPECT_EQ(stats[1], seen[1]);
    EXPECT_EQ(stats[4], seen[4]);
    EXPECT_EQ(run.frames.size() + stats[2] + stats[3], *ids.rbegin() - *ids.begin() + 1);
}

// The camera starts over, with leaders lost, late and after others: no whole frame has bytes of two, or comes twice.
void expect_right_in_rounds(const simulation& run, const counts& stats) {
    EXPECT_EQ(run.taken, run.returned);
    EXPECT_TRUE(run.guards_intact());
    std::set<uint64_t> complete; // timestamps
    for (size_t i = 0; i < run.frames.size(); ++i) {
        const frame_info& frame = run.frames[i];
        if ((frame.flags & frame_flags::incomplete) != 0) continue;
        EXPECT_TRUE(run.bytes_right(i)) << frame.timestamp;
        EXPECT_TRUE(complete.insert(frame.timestamp).second) << frame.timestamp << " twice";
    }
    EXPECT_EQ(stats[0], complete.size());
    EXPECT_EQ(stats[0] + stats[1], run.frames.size());
}

const shape wide{64, 30, false};
const shape narrow_extended{50, 6, true};
const shape long_frame{16, 200, false};
const shape untimed{.timestamps = false};
const std::pair<const char*, traffic> kinds[] = {
    {"clean", {}},
    {"loss", {.loss = 50}},
    {"heavy loss", {.loss = 400}},
    {"duplicates", {.duplication = 300}},
    {"reordered", {.reordering = 200}},
    {"all", {.loss = 100, .duplication = 100, .reordering = 100, .lost_frames = 50, .refusal = 50}},
    {"all, wide", {.loss = 60, .duplication = 60, .reordering = 60, .lost_frames = 30, .refusal = 20, .wire = wide}},
    {"all, extended",
     {.loss = 60, .duplication = 60, .reordering = 60, .lost_frames = 30, .refusal = 50, .wire = narrow_extended}},
    {"beyond 32 bits", {.loss = 60, .lost_frames = 30, .wire = narrow_extended, .first_id = 0xFFFF'FF80}},
    {"all, one retry", {.loss = 150, .duplication = 60, .reordering = 60, .refusal = 50, .retries = 1}},
    {"around the wrap", {.loss = 60, .duplication = 60, .reordering = 60, .lost_frames = 30, .first_id = 65'400}},
    {"short packets", {.loss = 10, .truncation = 100}},
    {"strange ids", {.strange_ids = 50, .wire = narrow_extended}},
    {"late packets", {.loss = 40, .late = 40}},
    {"answers after dozens of frames", {.loss = 20, .answers_after = 400'000}},
    {"answers after dozens of short frames without timestamps",
     {.loss = 20,
      .frame_time = 1000,
      .answers_after = 10'000,
      .answers_within = 20'000,
      .automatic = true,
      .wire = untimed}},
    {"restarts", {.loss = 50, .reordering = 50, .restarts = 150, .first_id = 1}},
    {"restarts, repeats",
     {.loss = 30, .duplication = 100, .reordering = 100, .late = 20, .restarts = 300, .first_id = 1}},
    {"restarts, single frames",
     {.loss = 50, .duplication = 50, .restarts = 1000, .wire = narrow_extended, .first_id = 1}},
    {"restarts, single frames, long",
     {.loss = 30, .refusal = 2, .restarts = 1000, .rest = 100'000, .wire = long_frame, .first_id = 1, .complete = 280}},
    {"restarts, late answers",
     {.loss = 30, .reordering = 50, .restarts = 120, .answers_after = 400'000, .first_id = 1}},
    {"few buffers", {.loss = 60, .duplication = 60, .reordering = 60, .no_buffer = 300}},
};

} // namespace

template <class Receiver>
struct ReceiverProperty : testing::Test {};
TYPED_TEST_SUITE(ReceiverProperty, both_receivers, receiver_names);

TYPED_TEST(ReceiverProperty, delivers_right_frames_in_order_and_counts_every_one) {
    constexpr bool resends = std::is_same_v<TypeParam, gvsp_recv_resend>;
    for (const auto& [name, how] : kinds) {
        for (uint32_t seed = 0; seed < 12; ++seed) {
            SCOPED_TRACE(testing::Message() << name << " seed " << seed);
            simulation run{how, seed};
            run.functions.send_resend = [&](uint64_t block, uint32_t first, uint32_t last, bool extended) {
                run.answer(block, first, last, extended);
            };
            TypeParam receiver{run.functions};
            receiver.set_resend_params(
                {.time_per_frame = 10'000, .max_retries = how.retries, .auto_time_per_frame = how.automatic});
            const counts stats = run.run(receiver, 300);
            (how.restarts != 0 ? expect_right_in_rounds : expect_right)(run, stats);
            EXPECT_EQ(stats[3] != 0, how.no_buffer != 0);
            if (how.no_buffer == 0) {
                EXPECT_EQ(stats[4], run.packets_asked);
                EXPECT_EQ(stats[5], run.requests_made);
            }
            // What is repairable is repaired.
            const bool repairable = how.lost_frames + how.refusal + how.no_buffer + how.late + how.restarts == 0 &&
                                    how.answers_after < 1000;
            if (resends && repairable && how.loss <= 60) {
                EXPECT_GE(stats[0] * 100, 300U * 98);
            }
            if (resends) {
                EXPECT_GE(stats[0], how.complete);
            }
            if (!resends && repairable && how.loss + how.reordering + how.strange_ids == 0) {
                EXPECT_EQ(stats[0], 300U);
            }
        }
    }
}

} // namespace gev::streamchannel::impl
