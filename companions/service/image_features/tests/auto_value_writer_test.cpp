// Tries of a camera that does not answer or is busy: what counts is how often it was asked, not how long that took.
#include "../auto_value_writer.h"

#include <gds_helper/log.h>
#include <gds_shared/gigecam_error.h>
#include <support/eventually.h>
#include <support/log_capture.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <stop_token>
#include <thread>

using gds_shared::gigecam_errc;
using namespace image_features;
using block_t = gds_producer::settings_block;

namespace {

constexpr std::string_view document = R"(<RegisterDescription ModelName="M" VendorName="V" SchemaMajorVersion="1"
  SchemaMinorVersion="1" SchemaSubMinorVersion="0" xmlns="http://www.genicam.org/GenApi/Version_1_1">
<Category Name="Root"><pFeature>ExposureTime</pFeature><pFeature>AcquisitionFrameRate</pFeature></Category>
<Float Name="ExposureTime"><pIsAvailable>There</pIsAvailable><pValue>E</pValue><Min>1</Min><Max>1000000</Max></Float>
<FloatReg Name="E"><Address>8</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
  <Endianess>LittleEndian</Endianess></FloatReg>
<IntReg Name="There"><Address>0</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
  <Endianess>LittleEndian</Endianess></IntReg>
<FloatReg Name="AcquisitionFrameRate"><Address>16</Address><Length>8</Length><AccessMode>RO</AccessMode>
  <pPort>Device</pPort><Endianess>LittleEndian</Endianess></FloatReg>
<Port Name="Device"/></RegisterDescription>)";

// Fails as often as it is told to: in the look whether the feature is there, or in the write itself.
class failing_camera final : public GenICam::IDevicePort {
public:
    GenICam::result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        if (address == 0) {
            if (!at_write && fails()) return std::unexpected(make_error_code(error));
            data[0] = std::byte{1};
        } else {
            const double value = address == 16 ? rate : exposure.load();
            std::memcpy(data.data(), &value, sizeof value);
        }
        return data.size();
    }
    std::error_code write(int64_t, std::span<const std::byte> data, unsigned) override {
        if (at_write && fails()) return make_error_code(error);
        double value = 0;
        std::memcpy(&value, data.data(), sizeof value);
        exposure = value;
        return {};
    }
    gigecam_errc error = gigecam_errc::timeout;
    bool at_write = false;
    std::atomic<bool> throws = false;
    std::atomic<int> failures_left = 0, failures = 0;
    std::atomic<double> exposure = 100;
    static constexpr double rate = 25;

private:
    bool fails() {
        if (failures_left == 0) return false;
        --failures_left;
        ++failures;
        if (throws) throw std::bad_alloc{};
        return true;
    }
};

struct row {
    const char* name;
    gigecam_errc error;
    bool at_write;
};

void start_exposure(camera_settings& settings, auto_value_writer& writer) {
    settings.reset();
    writer.read_camera();
    settings.block().set_flag(block_t::master_enable, true);
    settings.block().set_flag(block_t::auto_exposure, true);
    writer.start();
}

class AutoValueWriter : public testing::TestWithParam<row> {
protected:
    AutoValueWriter() {
        camera.error = GetParam().error;
        camera.at_write = GetParam().at_write;
        start_exposure(*settings, writer);
    }
    [[nodiscard]] gds_producer::settings_block block() const { return settings->block(); }
    void result(float value) {
        block().store(block_t::result_exposure, value);
        writer.write_results();
    }
    // As a stream does it: more results and more of others' writes than the camera is asked.
    template <class Condition>
    bool comes(const Condition& condition, bool pressed) {
        return test_support::eventually([&] {
            if (pressed) {
                writer.write_results();
                writer.camera_written();
            }
            return condition();
        });
    }
    [[nodiscard]] size_t given_up() const { return log.count("is given up"); }
    const test_support::log_capture log{gds_helper::log::main_logger()}; // outlives the writer's thread
    failing_camera camera;
    std::shared_ptr<camera_settings> settings = std::make_shared<camera_settings>(std::nullopt, std::nullopt);
    // Longer than the distance between two looks at the camera's values: each try has one beside it.
    auto_value_writer writer{settings, camera_nodes::create(document, camera, false), "camera", nullptr,
                             std::chrono::milliseconds{250}};
};

TEST_P(AutoValueWriter, GivesUpAfterThreeTriesInARow) {
    for (int round = 0; round < 2; ++round) {
        camera.failures_left = 2;
        const float wanted = 1000.0F + static_cast<float>(round);
        result(wanted); // once: the rest is the writer's
        EXPECT_TRUE(comes([&] { return block().load<float>(block_t::exposure) == wanted; }, false));
        EXPECT_EQ(camera.exposure, wanted);
    }
    EXPECT_EQ(given_up(), 0U) << "what the camera has taken begins the count anew";
    camera.failures = 0;
    camera.failures_left = 1'000'000;
    result(2000);
    EXPECT_TRUE(comes([&] { return given_up() == 1; }, true));
    if (GetParam().at_write) {
        EXPECT_EQ(camera.failures, 3);
    }
    camera.failures_left = 0;
    camera.exposure = 300; // seen: the result before it was not written
    EXPECT_TRUE(comes([&] { return block().load<float>(block_t::exposure) == 300; }, true));
    EXPECT_EQ(camera.exposure, 300);
    EXPECT_EQ(given_up(), 1U);
    writer.settings_changed();
    EXPECT_TRUE(comes([&] { return camera.exposure == 2000; }, true));
}

TEST_P(AutoValueWriter, WhoNeverAnswersIsLeftAlone) {
    camera.failures_left = 1'000'000;
    result(2000);
    EXPECT_TRUE(comes([&] { return given_up() == 1; }, false));
    EXPECT_TRUE(comes([&] { return writer.is_idle(); }, false));
    EXPECT_LE(camera.failures, 4) << "three tries, and the look that was due after them";
    EXPECT_EQ(block().load<double>(block_t::frame_rate), failing_camera::rate) << "kept while it is silent";
}

TEST_P(AutoValueWriter, LackOfMemoryIsNoReasonToTryForEver) {
    camera.throws = true;
    camera.failures_left = 1'000'000;
    result(2000);
    EXPECT_TRUE(comes([&] { return writer.is_idle(); }, false));
    EXPECT_LE(camera.failures, 4) << "three tries, and the look that was due after them";
    camera.failures_left = 0;
    result(2000);
    EXPECT_TRUE(comes([&] { return camera.exposure == 2000; }, false)) << "nothing is given up for it";
}

INSTANTIATE_TEST_SUITE_P(Cameras, AutoValueWriter,
                         testing::Values(row{"SilentAtWrites", gigecam_errc::timeout, true},
                                         row{"SilentAtLooks", gigecam_errc::timeout, false},
                                         row{"Busy", gigecam_errc::busy, true}),
                         [](const auto& each) { return each.param.name; });

// A camera with a lens that can be locked, and without gains of its own.
constexpr std::string_view lens_document = R"(<RegisterDescription ModelName="M" VendorName="V" SchemaMajorVersion="1"
  SchemaMinorVersion="1" SchemaSubMinorVersion="0" xmlns="http://www.genicam.org/GenApi/Version_1_1">
<Category Name="Root"><pFeature>ExposureTime</pFeature><pFeature>Focus</pFeature></Category>
<Float Name="ExposureTime"><pValue>E</pValue><Min>1</Min><Max>1000000</Max></Float>
<FloatReg Name="E"><Address>8</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
  <Endianess>LittleEndian</Endianess></FloatReg>
<Integer Name="Focus"><pIsLocked>L</pIsLocked><pValue>F</pValue><Min>0</Min><Max>1000</Max></Integer>
<IntReg Name="F"><Address>16</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
  <Endianess>LittleEndian</Endianess></IntReg>
<IntReg Name="L"><Address>24</Address><Length>8</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
  <Endianess>LittleEndian</Endianess></IntReg>
<Port Name="Device"/></RegisterDescription>)";

class lens_camera final : public GenICam::IDevicePort {
public:
    GenICam::result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        const uint64_t value = registers[static_cast<std::size_t>(address / 8)];
        std::memcpy(data.data(), &value, data.size());
        return data.size();
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        uint64_t value = 0;
        std::memcpy(&value, data.data(), data.size());
        registers[static_cast<std::size_t>(address / 8)] = value;
        return {};
    }
    std::atomic<uint64_t>& focus = registers[2];
    std::atomic<uint64_t>& locked = registers[3];

private:
    std::array<std::atomic<uint64_t>, 4> registers{};
};

// What a function that is over has left behind, when another one brings results.
class FinishedFunctions : public testing::Test {
protected:
    FinishedFunctions() { start_exposure(*settings, writer); }
    [[nodiscard]] gds_producer::settings_block block() const { return settings->block(); }
    void exposure_result(float value) {
        block().store(block_t::result_exposure, value);
        writer.write_results();
        EXPECT_TRUE(test_support::eventually([&] { return writer.is_idle(); }));
        EXPECT_EQ(block().load<float>(block_t::exposure), value);
    }
    lens_camera camera;
    std::shared_ptr<camera_settings> settings = std::make_shared<camera_settings>(std::nullopt, std::nullopt);
    auto_value_writer writer{settings, camera_nodes::create(lens_document, camera, false), "camera", nullptr};
};

TEST_F(FinishedFunctions, GainsSetByHandStay) {
    block().store(block_t::result_balance_red, 1.5F);
    block().set_flag(block_t::white_balance_finished, true);
    exposure_result(500);
    EXPECT_EQ(block().load<float>(block_t::balance_red), 1.5F);
    const float by_hand = 2;
    EXPECT_FALSE(settings->write(first_address + block_t::balance_red, std::as_bytes(std::span{&by_hand, 1})));
    exposure_result(600);
    EXPECT_EQ(block().load<float>(block_t::balance_red), by_hand);
}

// Looked at by one client and asked for by another.
TEST_F(FinishedFunctions, ANewRequestStands) {
    uint32_t mode = 0;
    const auto mode_bytes = std::as_writable_bytes(std::span{&mode, 1});
    constexpr uint64_t address = first_address + own_register::white_balance_mode;
    const std::jthread other{[&](const std::stop_token& stop) {
        while (!stop.stop_requested()) settings->take_finished();
    }};
    mode = balance_once;
    for (int i = 0; i < 20'000; ++i) {
        block().set_flag(block_t::white_balance_finished, true);
        EXPECT_FALSE(settings->write(address, mode_bytes));
        ASSERT_TRUE(block().flag(block_t::white_balance_once)) << i;
    }
}

TEST_F(FinishedFunctions, ALensSetByHandStays) {
    camera.locked = 1;
    block().store(block_t::result_focus, int64_t{40});
    block().set_flag(block_t::focus_request, true);
    block().set_flag(block_t::focus_finished, true);
    exposure_result(500);
    EXPECT_FALSE(block().flag(block_t::focus_request)) << "the command is done";
    EXPECT_EQ(camera.focus, 0U);
    camera.locked = 0;
    camera.focus = 70;
    exposure_result(600);
    EXPECT_EQ(camera.focus, 70U);
    // What is computed the next time is brought there.
    block().store(block_t::result_focus, int64_t{50});
    exposure_result(700);
    EXPECT_EQ(camera.focus, 50U);
}

} // namespace
