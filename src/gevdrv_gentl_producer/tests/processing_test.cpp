// What is done to frames between their last packet and the consumer: the overlay, the profiler, padded lines, the
// transform's options, and settings that make no sense.
#include "device_stream.h"

#include <gds_helper/log.h>
#include <img_pipe/filter_module.h>
#include <img_pipe/overlay.h>
#include <img_pipe/transform_pipe.h>
#include <support/log_capture.h>

#include <gmock/gmock.h>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>

namespace {

using namespace fake;
using block = gds_producer::settings_block;

using picture = std::vector<uint8_t>;

// A running stream of one buffer more than needed, all zeros.
class picture_stream {
public:
    explicit picture_stream(const camera_traits& traits) : own(device_stream::make(traits)) {
        for (int i = 0; i < 5; ++i) {
            const BUFFER_HANDLE handle = own->announce();
            std::fill_n(own->bytes_of(handle), own->info<size_t>(handle, BUFFER_INFO_SIZE), std::byte{0});
            EXPECT_FALSE(own->stream->QueueBuffer(handle).failed());
        }
        own->patient();
    }
    [[nodiscard]] block settings() const { return own->settings(); }
    void start() const { ASSERT_TRUE(own->start()); }
    // The next frame's bytes; none when it did not come.
    picture frame(uint16_t block_id, uint32_t skip = UINT32_MAX) {
        own->cam.send_frame(block_id, nullptr, skip);
        return take(block_id);
    }
    picture take(uint16_t block_id) {
        const BUFFER_HANDLE handle = own->next(long_enough_ms);
        if (handle == nullptr) return {};
        EXPECT_EQ(own->info<uint64_t>(handle, BUFFER_INFO_FRAMEID), block_id);
        EXPECT_EQ(own->info<uint8_t>(handle, BUFFER_INFO_IS_INCOMPLETE), 0);
        padding = own->info<size_t>(handle, BUFFER_INFO_XPADDING);
        const auto* bytes = reinterpret_cast<const uint8_t*>(own->bytes_of(handle));
        picture found(bytes, bytes + own->info<size_t>(handle, BUFFER_INFO_SIZE));
        std::fill_n(own->bytes_of(handle), found.size(), std::byte{0});
        EXPECT_FALSE(own->stream->QueueBuffer(handle).failed());
        return found;
    }
    std::unique_ptr<device_stream> own;
    size_t padding = 0; // of the last frame taken
};

picture sent(uint16_t block_id, size_t size) {
    picture made(size);
    for (size_t i = 0; i < std::min<size_t>(size, camera::payload_size); ++i)
        made[i] = static_cast<uint8_t>(camera::pixel(block_id, i));
    return made;
}

picture with_rows(picture on, int32_t width, int32_t height, const std::vector<std::string>& rows, int32_t row = 0) {
    const auto view =
        img_pipe::make_view(on.data(), static_cast<uint32_t>(on.size()), img_pipe::fcc("Y800"), width, height);
    for (const std::string& text : rows) img_pipe::draw_overlay_text(view, row++, text);
    return on;
}

constexpr uint32_t width = 900, height = 100;
constexpr camera_traits wide{.width = width, .height = height};

size_t threads_named(std::string_view beginning) {
    size_t count = 0;
    for (const auto& task : std::filesystem::directory_iterator{"/proc/self/task"}) {
        std::string name;
        std::ifstream file{task.path() / "comm"};
        std::getline(file, name);
        if (name.starts_with(beginning)) ++count;
    }
    return count;
}

} // namespace

TEST(Processing, TheOverlayTellsOfTheStreamRowByRow) {
    picture_stream b{wide};
    b.settings().set_flag(block::overlay, true);
    b.start();
    EXPECT_EQ(b.frame(1), with_rows(sent(1, width * height), width, height,
                                    {"1.3.1.860", "flt: drop=(pck=0,tx-queue=0,underrun=0) fps=0.00",
                                     "frm: [    1] cam-time=           1 complete?=true gev: resends-requested=0",
                                     "tx: Mono8 auto=false tx=false avg-tx=0us"}));
    // A frame that never comes, and one with a packet that is asked for.
    (void)b.frame(2);
    b.own->cam.send_frame(7);
    for (const uint16_t recovered : {5, 6, 7}) (void)b.take(recovered);
    const auto lost = b.own->info<uint64_t>(STREAM_INFO_KRV_NUM_TRANSMISSION_DROP);
    EXPECT_EQ(lost, 2U);
    const picture repaired = b.frame(8, 3);
    const auto asked = feature<uint64_t>{dynamic_cast<IPort&>(*b.own->stream), "StreamResendRequestedPackets"}.get();
    EXPECT_GT(asked, 0U);
    ASSERT_FALSE(repaired.empty());
    const std::string counts = "flt: drop=(pck=2,tx-queue=0,underrun=0) fps=",
                      settings = "tx: Mono8 auto=false tx=false avg-tx=";
    const auto without_rates = [&](picture of) { // they are of the last three seconds, if so many have passed
        constexpr uint32_t cell_height = img_pipe::overlay_cell_height;
        for (const auto& [row, text] : {std::pair{1U, counts}, std::pair{3U, settings}})
            for (uint32_t line = row * cell_height; line < (row + 1) * cell_height; ++line)
                std::fill_n(of.begin() + line * width + text.size() * img_pipe::overlay_cell_width, 100, 0);
        return of;
    };
    EXPECT_EQ(without_rates(repaired),
              without_rates(with_rows(
                  sent(8, width * height), width, height,
                  {"1.3.1.860", counts + "0.00",
                   "frm: [    8] cam-time=           8 complete?=true gev: resends-requested=" + std::to_string(asked),
                   settings + "0us"})));
    b.settings().set_flag(block::overlay, false);
    EXPECT_EQ(b.frame(9), sent(9, width * height));
}

// The text is there before the transform, and is changed with the image.
TEST(Processing, MeasureThenDrawThenTransform) {
    picture_stream b{wide};
    b.settings().set_flag(block::overlay, true);
    b.settings().set_flag(block::master_enable, true);
    b.settings().set_flag(block::auto_gain, true);
    b.settings().store(block::brightness, int32_t{64});
    b.start();
    const picture found = b.frame(1);
    const picture drawn = with_rows(sent(1, width * height), width, height,
                                    {"1.3.1.860", "flt: drop=(pck=0,tx-queue=0,underrun=0) fps=0.00",
                                     "frm: [    1] cam-time=           1 complete?=true gev: resends-requested=0",
                                     "tx: Mono8 auto=true tx=true avg-tx=0us"});
    picture expected = drawn;
    for (uint8_t& value : expected) value = static_cast<uint8_t>(std::min(value + 64, 255));
    ASSERT_EQ(found.size(), expected.size());
    for (size_t i = 0; i < found.size(); ++i) ASSERT_NEAR(found[i], expected[i], 1) << "byte " << i;
    // Without the master enable the overlay is all that is left.
    b.settings().set_flag(block::master_enable, false);
    EXPECT_EQ(b.frame(2), with_rows(sent(2, width * height), width, height,
                                    {"1.3.1.860", "flt: drop=(pck=0,tx-queue=0,underrun=0) fps=0.00",
                                     "frm: [    2] cam-time=           2 complete?=true gev: resends-requested=0",
                                     "tx: Mono8 auto=false tx=false avg-tx=0us"}));
}

// The last result of a run is brought to the camera, however full the way to the service was when it came.
TEST(Processing, AResultThatWasNotSentIsSentWithTheNextFrame) {
    picture_stream b{wide};
    for (const auto at : {block::master_enable, block::focus_request}) b.settings().set_flag(at, true);
    b.own->connection->auto_values_refused = 2;
    b.start();
    (void)b.frame(1);
    EXPECT_EQ(b.own->connection->auto_values_asked, 1) << "the first position";
    b.settings().set_flag(block::focus_request, false);
    for (uint16_t id = 2; id <= 6; ++id) (void)b.frame(id);
    EXPECT_EQ(b.own->connection->auto_values_asked, 3);
}

TEST(Processing, IncompleteFramesAreNotMeasured) {
    for (const bool whole : {true, false}) {
        picture_stream b{{}};
        for (const auto at : {block::master_enable, block::auto_exposure}) b.settings().set_flag(at, true);
        b.settings().store(block::exposure, 1000.0F);
        b.settings().store(block::exposure_max, 1e6F);
        b.settings().store(block::result_exposure, 1000.0F);
        b.own->resends().enable = false;
        b.start();
        for (const uint32_t id : {0U, 1U, camera::trailer_id})
            if (!whole) b.own->cam.send(b.own->cam.own_packet(1, id));
        if (whole) b.own->cam.send_frame(1);
        const BUFFER_HANDLE handle = b.own->next(long_enough_ms);
        ASSERT_NE(handle, nullptr);
        EXPECT_EQ(b.own->info<uint8_t>(handle, BUFFER_INFO_IS_INCOMPLETE) == 0, whole);
        EXPECT_EQ(b.settings().real(block::result_exposure) == 1000, !whole);
    }
}

// Bytes behind the lines are the camera's: they are no pixels.
TEST(Processing, PaddedLinesAreRespected) {
    for (const uint32_t padding : {0U, 1U, 8U}) {
        SCOPED_TRACE(padding);
        const uint32_t line = camera::payload_size / 8;
        picture_stream b{{.width = line - padding, .height = 8, .padding = padding}};
        b.settings().set_flag(block::master_enable, true);
        b.settings().store(block::brightness, int32_t{64});
        b.start();
        const picture found = b.frame(1);
        const picture plain = sent(1, found.size());
        ASSERT_EQ(found.size(), camera::payload_size);
        for (size_t i = 0; i < found.size(); ++i) {
            const bool pixel = i % line < line - padding;
            ASSERT_NEAR(found[i], pixel ? std::min(plain[i] + 64, 255) : plain[i], pixel ? 1 : 0) << "byte " << i;
        }
        EXPECT_EQ(b.padding, padding);
    }
}

// Of three samples of 12 bits the second line begins inside a byte; of four on one.
TEST(Processing, LinesThatEndInsideAByteAreLeftAlone) {
    for (const uint32_t line : {3U, 4U})
        for (const uint32_t padding : {0U, 1U}) {
            picture_stream b{{.width = line, .height = 8, .padding = padding, .pixel_format = 0x010C0047}};
            b.settings().set_flag(block::master_enable, true);
            b.settings().store(block::brightness, int32_t{64});
            b.start();
            const picture found = b.frame(1);
            ASSERT_EQ(found.size(), camera::payload_size);
            EXPECT_EQ(found == sent(1, found.size()), line == 3) << line << " samples, padding " << padding;
        }
}

TEST(Processing, TheProfilerTellsOfTheLastThreeSeconds) {
    picture_stream b{wide};
    b.settings().set_flag(block::master_enable, true);
    b.settings().store(block::brightness, int32_t{1});
    const feature<uint32_t> to_log{*b.own->device, "DataStreamTransformProfilerLog"};
    const feature<uint32_t> to_image{*b.own->device, "DataStreamTransformProfilerOverlay"};
    to_log.set(1);
    to_image.set(1);
    const test_support::log_capture log{gds_helper::log::gvsp_logger()};
    b.start();
    uint16_t id = 0;
    // Only the first two lines of the picture come from the camera; what is below shows what is written.
    const auto below = [](const picture& whole) { return picture(whole.begin() + 4 * width, whole.end()); };
    const picture plain(width * (height - 4), 1);
    EXPECT_EQ(below(b.frame(++id)), plain);
    picture last;
    const auto begun = std::chrono::steady_clock::now();
    while (log.holding("prof: ").empty() && std::chrono::steady_clock::now() - begun < std::chrono::seconds{30})
        last = b.frame(++id);
    const auto lines = log.holding("prof: ");
    ASSERT_GE(lines.size(), 3U);
    EXPECT_THAT(lines[0], testing::MatchesRegex("prof: .gds_producer::process_image. +#[ 0-9]+ time=.*us, 100.00%"));
    EXPECT_THAT(lines[1], testing::StartsWith("prof:   {img_pipe::transform_pipe}"));
    EXPECT_EQ(lines[0].find('#'), lines[1].find('#'));
    EXPECT_EQ(std::stoul(lines[0].substr(lines[0].find('#') + 1)), id) << "each frame is counted";
    const picture told = below(with_rows(picture(width * height, 1), width, height, {lines.begin(), lines.end()}, 4));
    EXPECT_EQ(below(last), told) << "with the frame that ends the interval";
    EXPECT_EQ(below(b.frame(++id)), told) << "and until the next";
    to_image.set(0);
    to_log.set(0);
    EXPECT_EQ(below(b.frame(++id)), plain);
    to_image.set(1);
    EXPECT_EQ(below(b.frame(++id)), plain) << "what was found then is forgotten";
}

TEST(Processing, TheTransformsOptionsAreTheDevices) {
    picture_stream b{{.width = 640, .height = 400}};
    auto& device = *b.own->device;
    const feature<int64_t> level{device, "DataStreamTransformOptimizationLevel"};
    for (const auto& [value, mask] : std::initializer_list<std::pair<int64_t, uint32_t>>{
             {1, 1}, {2, 15}, {3, img_pipe::cpu_mask()}, {4, 0}, {-1, 0}, {INT64_MAX, 0}, {0, 0}}) {
        level.set(value);
        EXPECT_EQ(device.transform().optimization_level, mask) << value;
    }
    const feature<int64_t> concurrency{device, "DataStreamTransformMaxConcurrency"};
    for (const auto& [value, threads] :
         std::initializer_list<std::pair<int64_t, uint32_t>>{{-5, 0}, {int64_t{1} << 40, UINT32_MAX}, {7, 7}, {1, 1}}) {
        concurrency.set(value);
        EXPECT_EQ(device.transform().max_concurrency, threads) << value;
    }
    b.settings().set_flag(block::master_enable, true);
    b.settings().store(block::brightness, int32_t{1});
    b.start();
    EXPECT_FALSE(b.frame(1).empty());
    EXPECT_TRUE(eventually([] { return threads_named("pixkit") == 0; })) << "one thread is the delivering one";
    concurrency.set(4);
    EXPECT_FALSE(b.frame(2).empty());
    // A thread names itself when it comes to run.
    EXPECT_TRUE(eventually([] { return threads_named("pixkit") == 3; }))
        << "while the stream runs, from the next frame on";
}

TEST(Processing, TheQueueModeIsChosenAtTheStart) {
    picture_stream b{{}};
    const feature<uint32_t> mode{*b.own->device, "ImageTransformQueueMode"};
    const feature<uint32_t> locked{*b.own->device, "ImageTransformQueueMode_Locked"};
    EXPECT_FALSE(mode.takes(2));
    struct row {
        bool master;
        uint32_t chosen;
        size_t running;
    };
    for (const auto& [master, chosen, running] : {row{true, 1, 1}, row{true, 0, 0}, row{false, 1, 0}}) {
        mode.set(chosen);
        b.settings().set_flag(block::master_enable, master);
        EXPECT_EQ(locked.get(), 0U);
        b.start();
        EXPECT_FALSE(b.frame(1).empty());
        EXPECT_TRUE(eventually([&] { return threads_named("gds-buf-deliver") == running; })) << master << chosen;
        EXPECT_EQ(locked.get(), 1U);
        EXPECT_FALSE(mode.takes(0));
        ASSERT_TRUE(b.own->stop());
    }
}

// Another process changes the block while frames are measured and transformed by it.
TEST(Processing, SettingsThatChangeMeanwhile) {
    for (const uint32_t format : {0x01080009U, 0x010C0047U, 0x02100032U}) { // BayerRG8, Mono12p, YUV
        SCOPED_TRACE(format);
        picture_stream b{{.width = 320, .height = 200, .pixel_format = format}};
        const auto memory = b.settings();
        b.start();
        const pid_t child = fork();
        if (child == 0) { // async-signal-safe from here on
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            uint32_t random = 1;
            for (;;) {
                random = random * 1664525 + 1013904223;
                const size_t at = (random >> 8) % (block::minimum_size / 4) * 4;
                if (at != block::drop_incomplete_frames) memory.store(at, random % 3 == 0 ? random : random % 2);
            }
        }
        ASSERT_GT(child, 0);
        for (uint16_t id = 1; id <= 150; ++id) {
            if (b.frame(id).empty()) {
                ADD_FAILURE() << "frame " << id << " is missing";
                break;
            }
        }
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
        EXPECT_TRUE(b.own->all_accounted_for());
    }
}
