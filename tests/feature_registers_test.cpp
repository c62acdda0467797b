// The registers behind the features, and their places in the settings block.
#include "image_features_system.h"

#include <gmock/gmock.h>

#include <array>
#include <csignal>
#include <limits>

using namespace test_support;
using testing::HasSubstr;

namespace {

class FeatureRegisters : public image_features {};

} // namespace

TEST_F(FeatureRegisters, RegistersTakeNothingElse) {
    start();
    open_raw();
    constexpr uint64_t invalid_parameter = 0x80008002, invalid_address = 0x80008003, write_protect = 0x80008004;
    EXPECT_EQ(write(software + at::gamma_value, std::numeric_limits<float>::quiet_NaN()), invalid_parameter);
    EXPECT_EQ(write(software + at::gamma_value, std::numeric_limits<float>::infinity()), invalid_parameter);
    EXPECT_EQ(write(software + at::auto_exposure, uint32_t{2}), invalid_parameter);
    EXPECT_EQ(write(software + at::current_exposure, 1.0F), write_protect);
    EXPECT_EQ(write(software + at::gamma_value, uint64_t{0}), invalid_address) << "two registers at once";
    EXPECT_EQ(write(software + at::gamma_value + 2, 1.0F), invalid_address);
    EXPECT_EQ(write(software + at::result_exposure, 1.0F), invalid_address) << "the library's";
    EXPECT_EQ(write(~uint64_t{3}, 1.0F), invalid_address);
    EXPECT_EQ(write(software + at::exposure_max, 9.0F), invalid_parameter)
        << "below the minimum, which is the camera's";
    EXPECT_EQ(write(software + at::exposure_max - 4, 1.1e6F), invalid_parameter) << "a minimum above the maximum";
    EXPECT_EQ(block->get<float>(at::gamma_value), 1);
    // Nothing of it came to the camera.
    EXPECT_EQ(camera_value<double>(exposure_register), 10000);
    own->camera(0).signal(SIGTERM);
    own->camera(0).wait();
    EXPECT_THAT(own->camera(0).output(), HasSubstr("\"requests_refused\":0"));
}

// Each feature writes its own place in the block, in the width and unit of its own, and no other.
TEST_F(FeatureRegisters, EachFeatureHasItsOwnPlace) {
    std::string text = own_document();
    const size_t end = text.rfind("</RegisterDescription>");
    ASSERT_NE(end, text.npos);
    text.insert(end, R"(<Integer Name="Iris"><Value>3</Value><Min>-100</Min><Max>100</Max></Integer>
<Integer Name="Focus"><Value>7</Value><Min>0</Min><Max>1000</Max></Integer>)");
    start_with_document(text, {"--pixel-format", "BayerRG8"});
    open_camera camera{test_system::serial(0)};
    const cli::node_map& nodes = camera.remote();
    const mapped_block shared{own->service().pid()};
    const auto flag = std::pair{"true", uint32_t{1}};
    const auto place = [&](const char* name, size_t offset, auto value) {
        SCOPED_TRACE(name);
        constexpr size_t words = 1024 / 4; // the service's own registers are behind them
        std::array<uint32_t, words> before{};
        for (size_t i = 0; i < words; ++i) before[i] = shared.get<uint32_t>(4 * i);
        EXPECT_TRUE(takes(nodes, name, value.first)) << value.first;
        EXPECT_EQ(shared.get<decltype(value.second)>(offset), value.second);
        for (size_t i = 0; i < words; ++i) {
            if (4 * i >= offset && 4 * i < offset + sizeof value.second) continue;
            EXPECT_EQ(shared.get<uint32_t>(4 * i), before[i]) << "at " << 4 * i;
        }
    };
    place("SoftwareOverlay", 0, flag);
    place("SoftwareBrightness", 16, std::pair{"-17", int32_t{-17}});
    place("SoftwareGamma", 20, std::pair{"0.5", 0.5F});
    place("SoftwareSaturation", 24, std::pair{"150", 150.0F});
    place("SoftwareHue", 28, std::pair{"-90", -90.0F});
    place("SoftwareSharpness", 32, std::pair{"-9", int32_t{-9}});
    place("SoftwareDenoise", 36, std::pair{"11", int32_t{11}});
    place("SoftwareColorMatrixEnable", 40, flag);
    place("SoftwareColorMatrixValue", 44, std::pair{"1.5", 1.5F});
    place("SoftwareToneMapping", 80, flag);
    place("SoftwareToneMappingIntensity", 84, std::pair{"2", 2.0F});
    place("SoftwareToneMappingGlobalBrightness", 88, std::pair{"0.25", 0.25F});
    place("AutoExposureLimitByFrameRate", 108, flag);
    place("AutoBrightnessTarget", 112, std::pair{"99", uint32_t{99}});
    place("AutoExposureMinimum", 124, std::pair{"50", 50.0F});
    place("AutoExposureMaximum", 128, std::pair{"5000", 5000.0F});
    place("AutoGainMinimum", 144, std::pair{"1", 1.0F});
    place("AutoGainMaximum", 148, std::pair{"9", 9.0F});
    place("AutoIrisMinimum", 168, std::pair{"-50", int64_t{-50}});
    place("AutoIrisMaximum", 176, std::pair{"60", int64_t{60}});
    place("AutoIrisSeparate", 184, flag);
    place("AutoFocusRegionEnable", 248, flag);
    place("AutoRegionEnable", 252, flag);
    place("AutoRegionOffsetX", 256, std::pair{"11", int64_t{11}});
    place("AutoRegionOffsetY", 264, std::pair{"12", int64_t{12}});
    place("AutoRegionWidth", 272, std::pair{"13", int64_t{13}});
    place("AutoRegionHeight", 280, std::pair{"14", int64_t{14}});
    place("AutoWhiteBalanceMethod", at::by_temperature, std::pair{"ColorTemperature", uint32_t{1}});
    place("AutoColorTemperatureMinimum", 516, std::pair{"3100", uint32_t{3100}});
    place("AutoColorTemperatureMaximum", 520, std::pair{"6000", uint32_t{6000}});
    EXPECT_TRUE(takes(nodes, "AutoColorTemperatureLightSelector", "Light7"));
    place("AutoColorTemperatureLight", 640, std::pair{"2850", uint32_t{2850}});
    place("AutoColorTemperatureLightRed", 644, std::pair{"1.25", 1.25F});
    place("AutoColorTemperatureLightGreen", 648, std::pair{"1.5", 1.5F});
    place("AutoColorTemperatureLightBlue", 652, std::pair{"2.5", 2.5F});
    place("SoftwareImageProcessingEnable", 12, flag);
    EXPECT_EQ(text_of(nodes, "AutoExposureCurrent"), "10000");
}

TEST_F(FeatureRegisters, ANewControllerBeginsNeutral) {
    start();
    open_raw();
    raw_client onlooker{own->folder(), "raw"}; // keeps the block alive
    ASSERT_NE(open(onlooker, 1), 0U);
    EXPECT_EQ(write(software + at::gamma_value, 2.0F), 0U);
    switch_on(at::auto_exposure);
    EXPECT_TRUE(client->close_object(stream));
    EXPECT_TRUE(client->close_object(device));
    open_raw();
    EXPECT_EQ(mapped_block::names(own->service().pid()).size(), 1U);
    EXPECT_EQ(block->get<uint32_t>(at::auto_exposure), 0U);
    EXPECT_EQ(block->get<float>(at::gamma_value), 1);
    EXPECT_EQ(block->get<float>(at::current_exposure), 10000);
}
