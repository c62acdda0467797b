#include "test_client.h"

#include <camera_sim/registers.h>
#include <gige/test_picture.h>
#include <support/eventually.h>

#include <map>
#include <set>

namespace {

using namespace camera_sim;

constexpr uint32_t Mono8 = 0x01080001;

using packets = std::map<uint32_t, std::vector<std::byte>>; // whole datagrams by packet id

struct parsed {
    uint64_t block{};
    uint32_t id{};
    uint16_t result{};
    bool resend{};
};

std::optional<parsed> parse(const std::vector<std::byte>& datagram) {
    if (datagram.size() < 8) return {};
    if ((datagram[4] & std::byte{0x80}) != std::byte{0}) {
        if (datagram.size() < 20) return {};
        return parsed{gige::load64(&datagram[8]), gige::load32(&datagram[16]), gige::load16(datagram.data()),
                      gige::load16(&datagram[2]) == 1};
    }
    const uint16_t result = gige::load16(datagram.data());
    return parsed{gige::load16(&datagram[2]), gige::load32(&datagram[4]) & 0xFFFFFF, result, result == 0x0100};
}

// Datagrams by block, of what the camera has sent so far.
std::map<uint64_t, packets> collect(test_client& client) {
    std::map<uint64_t, packets> all;
    while (const auto datagram = client.receive(client.stream, 0)) {
        const auto head = parse(*datagram);
        if (!head) continue;
        all[head->block].emplace(head->id, *datagram);
    }
    return all;
}

std::vector<std::byte> payload_of(const packets& from, std::size_t header) {
    std::vector<std::byte> data;
    for (const auto& [id, datagram] : from)
        if (id != 0 && id != from.rbegin()->first)
            data.insert(data.end(), datagram.begin() + static_cast<std::ptrdiff_t>(header), datagram.end());
    return data;
}

struct running {
    std::unique_ptr<camera> cam;
    test_client client;
    running(camera_options options, uint32_t packet_size, uint32_t frames)
        : cam{std::move(*camera::start(options))}, client{options.address} {
        client.open_stream(packet_size);
        EXPECT_EQ(client.write(reg::acquisition_mode, 2), status::success);
        EXPECT_EQ(client.write(reg::acquisition_frame_count, frames), status::success);
    }
    void go() { EXPECT_EQ(client.write(reg::acquisition_control, 1), status::success); }
    void wait_for_end() {
        EXPECT_TRUE(test_support::eventually([&] { return !cam->acquiring(); }));
    }
};

camera_options fast_camera() {
    camera_options options = small_camera(1);
    options.frame_rate = 200;
    return options;
}

TEST(CameraStream, packet_sizes_are_rounded_as_chosen) {
    struct row {
        size_rounding way;
        uint32_t step, max, asked, taken;
    };
    using enum size_rounding;
    for (const row& r : {row{down, 4, 9014, 1502, 1500}, row{down, 4, 9014, 20000, 9012},
                         row{none, 4, 9014, 1501, 1501}, row{none, 4, 9014, 20000, 9014},
                         row{up, 100, 9014, 1501, 1600}, row{up, 100, 9014, 9014, 9014}, row{up, 4, 9014, 0, 576}}) {
        auto options = fast_camera();
        options.packet_size_rounding = r.way;
        options.packet_size_step = r.step;
        options.max_packet_size = r.max;
        running run{options, r.asked, 1};
        EXPECT_EQ(run.client.read(boot::stream_packet_size) & 0xFFFF, r.taken);
    }
}

TEST(CameraStream, the_time_of_each_frames_last_datagram_is_told) {
    using namespace std::chrono_literals;
    for (const double pacing : {0.0, 0.5}) {
        auto options = fast_camera();
        options.pacing = pacing;
        std::vector<std::pair<uint64_t, int64_t>> told;
        options.frame_sent = [&](uint64_t block_id, int64_t time) { told.emplace_back(block_id, time); };
        running run{options, 1500, 3};
        const auto steady_ns = [] { return std::chrono::steady_clock::now().time_since_epoch() / 1ns; };
        const int64_t began = steady_ns();
        run.go();
        run.wait_for_end();
        EXPECT_EQ(collect(run.client).size(), 3U);
        run.cam.reset(); // its thread is gone
        ASSERT_EQ(told.size(), 3U);
        int64_t before = began;
        for (std::size_t i = 0; i < told.size(); ++i) {
            EXPECT_EQ(told[i].first, i + 1);
            EXPECT_GT(told[i].second, before);
            before = told[i].second;
        }
        EXPECT_LT(before, steady_ns());
    }
}

TEST(CameraStream, timestamps_count_ticks_and_a_deaf_camera_streams_on) {
    auto options = fast_camera();
    options.tick_frequency = 1000;
    options.height = 8; // twenty frames fit the smallest socket buffer
    options.faults.deaf_after = 2;
    running run{options, 1500, 20};
    EXPECT_EQ(run.client.read(boot::tick_frequency_low), 1000U);
    run.go();
    run.wait_for_end();
    run.client.send(command::read_reg, test_client::words({boot::privilege}));
    EXPECT_FALSE(run.client.receive_reply(50));
    const auto all = collect(run.client);
    ASSERT_EQ(all.size(), 20U);
    const auto ticks = [&](uint64_t id) { return gige::load64(&all.at(id).at(0)[12]); };
    EXPECT_GE(ticks(20) - ticks(1), 85U) << "19 frames of 5 ms";
    EXPECT_LE(ticks(20) - ticks(1), 10'000U) << "milliseconds";
    run.cam->set_deaf(false);
    EXPECT_EQ(run.client.read(boot::privilege), bits::control);
}

TEST(CameraStream, losses_are_repeatable_and_resends_complete_the_frame) {
    for (const bool extended : {false, true}) {
        std::vector<std::set<uint32_t>> arrived;
        for (int i = 0; i < 2; ++i) {
            auto options = fast_camera();
            options.extended_ids = extended;
            options.faults.loss = 0.2;
            options.faults.burst_length = 3;
            options.faults.seed = 42;
            running run{options, 1500, 1};
            run.go();
            run.wait_for_end();
            auto all = collect(run.client);
            auto& got = all[1];
            std::set<uint32_t> ids;
            for (const auto& [id, datagram] : got) ids.insert(id);
            arrived.push_back(ids);
            const uint32_t trailer =
                (320 * 240 + 1500 - 28 - (extended ? 20 : 8) - 1) / (1500 - 28 - (extended ? 20 : 8)) + 1;
            EXPECT_LT(ids.size(), trailer + 1) << "nothing was lost";
            EXPECT_EQ(run.cam->stats().packets_lost, trailer + 1 - ids.size());

            auto body = extended ? test_client::words({0, 0, 0xFFFFFFFF, 0, 1}) : test_client::words({1, 0, 0xFFFFFF});
            run.client.send(command::packet_resend, body, extended ? 0x10 : 0);
            (void)run.client.read(boot::version); // is answered behind them
            const auto again = collect(run.client);
            std::set<uint32_t> resent;
            for (const auto& [id, datagram] : again.at(1)) {
                resent.insert(id);
                EXPECT_TRUE(parse(datagram)->resend);
                got.emplace(id, datagram);
            }
            EXPECT_EQ(resent.size(), trailer + 1);
            std::vector<std::byte> expected(320 * 240);
            gige::fill_test_picture(0, 320, 240, Mono8, expected);
            EXPECT_EQ(payload_of(got, extended ? 20 : 8), expected);
        }
        EXPECT_EQ(arrived[0], arrived[1]) << "same seed, other losses";
    }
}

TEST(CameraStream, requests_that_cannot_be_met_are_answered_with_their_reason) {
    auto options = fast_camera();
    options.ring_frames = 3;
    running run{options, 1500, 6};
    run.go();
    run.wait_for_end();
    (void)collect(run.client);
    const auto ask = [&](uint32_t block_id, uint32_t first, uint32_t last) {
        run.client.send(command::packet_resend, test_client::words({block_id, first, last}), 0);
        const auto got = run.client.receive(run.client.stream);
        return got ? std::pair{parse(*got)->result, got->size()} : std::pair{uint16_t{0}, std::size_t{0}};
    };
    EXPECT_EQ(ask(1, 5, 5), std::pair(uint16_t{0x8011}, std::size_t{8})) << "left the ring";
    EXPECT_EQ(ask(7, 5, 5), std::pair(uint16_t{0x8010}, std::size_t{8})) << "not sent yet";
    EXPECT_EQ(ask(6, 1000, 1000), std::pair(uint16_t{0x800C}, std::size_t{8})) << "behind the trailer";
    EXPECT_EQ(ask(6, 5, 5).first, 0x0100U);
    // Started over: the ids are those of other frames now.
    EXPECT_EQ(run.client.write(reg::acquisition_frame_count, 1), status::success);
    run.go();
    run.wait_for_end();
    EXPECT_EQ(collect(run.client).size(), 1U);
    EXPECT_EQ(ask(6, 5, 5).first, 0x8010U);
    EXPECT_EQ(ask(1, 5, 5).first, 0x0100U);
}

TEST(CameraStream, chunks_stand_behind_the_picture) {
    for (const bool extended : {false, true}) {
        auto options = fast_camera();
        options.extended_ids = extended;
        running run{options, 1500, 2};
        ASSERT_EQ(run.client.write(reg::chunk_mode, 1), status::success);
        const uint32_t size = run.client.read(reg::payload_size);
        run.go();
        run.wait_for_end();
        const auto all = collect(run.client);
        const auto& got = all.at(2);
        const auto data = payload_of(got, extended ? 20 : 8);
        ASSERT_EQ(data.size(), size);
        std::map<uint32_t, std::pair<std::size_t, std::size_t>> chunks; // id to offset and length
        for (std::size_t at = data.size(); at > 8;) {
            const uint32_t length = gige::load32(&data[at - 4]);
            ASSERT_LE(length, at - 8);
            chunks[gige::load32(&data[at - 8])] = {at - 8 - length, length};
            at -= length + 8;
        }
        ASSERT_EQ(chunks.size(), reg::chunks.size() + 1);
        EXPECT_EQ(gige::load64(&data[chunks.at(0x1002).first]), 1U) << "frame number";
        EXPECT_EQ(chunks.at(reg::image_chunk_id).second, 320U * 240);
        const auto& trailer = got.rbegin()->second;
        EXPECT_EQ(trailer.size(), extended ? 36U : 24U);
        EXPECT_EQ(gige::load16(&trailer[extended ? 22 : 10]), extended ? 0x4001U : 5U);
        EXPECT_EQ(gige::load32(&trailer[extended ? 28 : 12]), size);
    }
}

TEST(CameraStream, software_trigger_gives_one_frame_each_and_width_is_locked) {
    running run{fast_camera(), 1500, 2};
    ASSERT_EQ(run.client.write(reg::trigger_mode, 1), status::success);
    run.go();
    EXPECT_EQ(run.client.write(reg::width, 160), status::access_denied);
    EXPECT_EQ(run.cam->stats().frames_sent, 0U);
    for (const uint64_t frames : {1, 2}) {
        ASSERT_EQ(run.client.write(reg::trigger_software, 1), status::success);
        EXPECT_TRUE(test_support::eventually([&] { return run.cam->stats().frames_sent == frames; }));
        EXPECT_EQ(collect(run.client).size(), 1U);
    }
    run.wait_for_end();
    EXPECT_EQ(run.client.write(reg::width, 160), status::success);
}

} // namespace
