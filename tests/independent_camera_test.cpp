// A camera that is not ours: Debian's fake camera, grabbed through service and library.
#include "support/test_system.h"

#include <gtest/gtest.h>

using namespace test_support;
using namespace GenTL;

TEST(IndependentCamera, IsFoundReadAndGrabbed) {
    test_system own{{"--discover", "127.0.0.1"}};
    const process fake{{ORV_FAKE_CAMERA, "-i", "127.0.0.1"}, own.folder() / "fake"};
    own.start_service();
    nlohmann::json list;
    ASSERT_TRUE(eventually([&] { // it says nothing when it is ready
        list = nlohmann::json::parse(own.run_consumer({"list", "--json"}).output, nullptr, false);
        return list.is_object() && !list["devices"].empty();
    }));
    ASSERT_EQ(list["devices"].size(), 1U) << list;

    // Off the list for a moment where a busy machine kept it from answering.
    auto features = own.run_consumer({"features", "--json"});
    EXPECT_TRUE(eventually([&] {
        if (features.exit_code == cli::row_of(cli::cause::no_camera).exit_code)
            features = own.run_consumer({"features", "--json"});
        return features.exit_code == 0;
    })) << features.output;
    const auto object = nlohmann::json::parse(features.output, nullptr, false);
    ASSERT_TRUE(object.is_object()) << features.output;
    EXPECT_GE(object["features"].size(), 20U);
    for (const auto& feature : object["features"]) EXPECT_FALSE(feature.contains("error")) << feature;

    auto result = own.grab({"--frames", "20", "--set", "Width=512", "--set", "Height=256"});
    EXPECT_EQ(result["frames_delivered"], 20) << result;
    EXPECT_EQ(result["frames_incomplete"], 0) << result;
    EXPECT_EQ(result["width"], 512) << result;
    EXPECT_EQ(result["height"], 256) << result;
    EXPECT_GE(result["packet_size"], 576) << "its document does not name it: " << result;
}
