// The features in the document, and what they do to pictures.
#include "image_features_system.h"
#include "support/document_log_capture.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <sstream>

using namespace test_support;
using namespace GenICam;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

class ImageFeatures : public image_features {};

#ifdef ORV_ARAVIS_LOAD
// The features that libaravis finds below Root, and what it has to say, "[time] level category> text": a line each.
std::string load_by_aravis(const std::filesystem::path& file, const std::filesystem::path& output) {
    test_support::process load{{ORV_ARAVIS_LOAD, file}, output};
    EXPECT_EQ(load.wait(), 0) << load.output();
    return load.output();
}

std::vector<std::string> messages_in(const std::string& output) {
    std::vector<std::string> lines;
    std::istringstream text{output};
    for (std::string line; std::getline(text, line);)
        if (line.starts_with('[')) lines.push_back(line.substr(line.find(']') + 1));
    std::ranges::sort(lines);
    return lines;
}
#endif

// A camera's document, with the features added: in this engine, and in an independent one where that is there.
void expect_loads_everywhere(const std::filesystem::path& file) {
    SCOPED_TRACE(file.filename());
    test_system each;
    each.start_camera({"--document", file});
    each.start_service();
    open_camera camera{test_system::serial(0)};
    const GenICam::testing::log_capture log;
    const IGenICamDoc& document = camera.remote().document();
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_THAT(feature_names(document), Contains("SoftwareGamma"));
    document.for_each_node([](INode* node) { EXPECT_EQ(node->get_fault(), "") << node->get_name(); });
#ifdef ORV_ARAVIS_LOAD
    const auto merged = each.folder() / "merged.xml";
    std::ofstream{merged, std::ios::binary} << document_of(camera);
    const std::string loaded = load_by_aravis(merged, each.folder() / "loaded");
    EXPECT_THAT(loaded, HasSubstr("\nSoftwareGamma\n"));
    // It knows not every tag of the standard's, and says so.
    EXPECT_EQ(messages_in(loaded), messages_in(load_by_aravis(file, each.folder() / "original")))
        << "but nothing about what was added";
#endif
}

} // namespace

TEST_F(ImageFeatures, AreFeaturesOfTheCameraAndKeepTheirLimits) {
    start({"--pixel-format", "BayerRG8"});
    open_camera camera{test_system::serial(0)};
    const cli::node_map& nodes = camera.remote();
    const auto names = feature_names(nodes.document());
    for (const char* name :
         {"SoftwareImageProcessingEnable", "AutoExposure", "AutoGain", "AutoWhiteBalance", "AutoRegionWidth",
          "SoftwareGamma", "SoftwareSaturation", "SoftwareColorMatrixValue", "SoftwareToneMapping", "SoftwareOverlay"})
        EXPECT_THAT(names, Contains(name));
    EXPECT_THAT(names, Not(Contains("AutoIris"))) << "the camera has none";

    const mapped_block shared{own->service().pid()};
    EXPECT_EQ(shared.get<float>(at::gamma_value), 1);
    EXPECT_EQ(shared.get<float>(at::saturation), 100);
    EXPECT_EQ(shared.get<float>(at::matrix + 16), 1);
    EXPECT_EQ(shared.get<float>(at::current_exposure), 10000);
    EXPECT_EQ(shared.get<double>(at::frame_rate), 30);
    EXPECT_EQ(text_of(nodes, "AutoExposureMaximum"), "1000000");

    EXPECT_TRUE(takes(nodes, "AutoExposureMaximum", "20000"));
    EXPECT_EQ(shared.get<float>(at::exposure_max), 20000);
    EXPECT_FALSE(takes(nodes, "AutoExposureMinimum", "20001")) << "above the maximum";
    EXPECT_FALSE(takes(nodes, "AutoExposureMaximum", "1000001")) << "above the camera's";
    EXPECT_FALSE(takes(nodes, "SoftwareHue", "181"));
    EXPECT_TRUE(takes(nodes, "SoftwareColorMatrixSelector", "Gain12"));
    EXPECT_TRUE(takes(nodes, "SoftwareColorMatrixValue", "-0.25"));
    EXPECT_EQ(shared.get<float>(at::matrix + 4 * 5), -0.25F);
    EXPECT_TRUE(takes(nodes, "AutoExposure", "true"));
    EXPECT_EQ(shared.get<uint32_t>(at::auto_exposure), 1U);

    EXPECT_TRUE(takes(nodes, "AutoWhiteBalance", "Once"));
    EXPECT_EQ(shared.get<uint32_t>(at::balance_once), 1U);
    shared.set(at::balance_finished, uint32_t{1});
    EXPECT_EQ(text_of(nodes, "AutoWhiteBalance"), "Off") << "it is over";
    EXPECT_EQ(shared.get<uint32_t>(at::balance_once), 0U);
    EXPECT_TRUE(takes(nodes, "AutoWhiteBalance", "Continuous"));
    EXPECT_EQ(shared.get<uint32_t>(at::auto_balance), 1U);

    // Another client of the same camera sees the same, and may not write.
    const auto reader = own->run_consumer({"get", "--access", "readonly", "AutoExposureMaximum"});
    EXPECT_THAT(reader.output, HasSubstr("20000"));
    const auto refused = own->ask({"set", "--access", "readonly", "AutoExposureMaximum=30000"});
    EXPECT_EQ(refused.value("/error/cause"_json_pointer, ""), "feature") << refused;
    EXPECT_EQ(shared.get<float>(at::exposure_max), 20000);
    EXPECT_EQ(mapped_block::names(own->service().pid()).size(), 1U);
}

TEST_F(ImageFeatures, TheDocumentIsMadeOnce) {
    for (const bool zipped : {false, true}) {
        SCOPED_TRACE(zipped);
        test_system each;
        each.start_camera(zipped ? std::vector<std::string>{"--zip"} : std::vector<std::string>{});
        each.start_service();
        open_camera camera{test_system::serial(0)};
        const std::string text = document_of(camera);
        EXPECT_TRUE(text.ends_with("</RegisterDescription>\n")) << "the length in the URL is the document's";
        EXPECT_THAT(feature_names(camera.remote().document()), Contains("AutoExposure"));
        EXPECT_EQ(text, document_of(camera));
    }
    start();
    open_raw();
    const std::string first = urls();
    EXPECT_THAT(first, HasSubstr("local:orv_simcam_1_0_0_"));
    EXPECT_EQ(write(software + at::auto_exposure, uint32_t{1}), 0U);
    EXPECT_EQ(urls(), first);
}

TEST_F(ImageFeatures, CanBeSwitchedOff) {
    const std::string text = own_document();
    EXPECT_THAT(text, HasSubstr("ExposureTime"));
    EXPECT_THAT(text, Not(HasSubstr("SoftwareImageProcessing")));
}

TEST_F(ImageFeatures, ACamerasOwnFeaturesStayItsOwn) {
    std::string text = own_document();
    const size_t end = text.rfind("</RegisterDescription>");
    ASSERT_NE(end, text.npos);
    text.insert(end, R"(<Integer Name="AutoExposure"><Value>17</Value></Integer>
<Integer Name="SoftwareColorMatrixSelector"><Value>3</Value></Integer>)");
    start_with_document(text);
    open_camera camera{test_system::serial(0)};
    const auto names = feature_names(camera.remote().document());
    EXPECT_EQ(text_of(camera.remote(), "AutoExposure"), "17");
    for (const char* name : {"AutoExposure", "AutoExposureMaximum", "AutoExposureCurrent", "SoftwareColorMatrixValue",
                             "SoftwareColorMatrixSelector"})
        EXPECT_THAT(names, Not(Contains(name)));
    for (const char* name : {"AutoGain", "AutoGainMaximum", "SoftwareColorMatrixEnable"})
        EXPECT_THAT(names, Contains(name));
}

TEST_F(ImageFeatures, ADocumentThatCannotBeUsedIsServedAsItIs) {
    start_with_document("<RegisterDescription><Category Name=\"Root\"><pFeature>");
    open_raw();
    EXPECT_THAT(urls(), HasSubstr("Local:orv_simcam_1_0_0.xml;100000;"));
    EXPECT_THAT(urls(), HasSubstr("Local:orv_simcam_1_0_0.xml;100000;"));
    EXPECT_EQ(count_of(own->logged(), "served without software features"), 1);
    EXPECT_EQ(write(software + at::gamma_value, 2.0F), 0U);
}

TEST_F(ImageFeatures, MergedDocumentLoadsEverywhere) {
    const std::string text = own_document();
    own = std::make_unique<test_system>();
    const auto file = own->folder() / "own.xml";
    std::ofstream{file, std::ios::binary} << text;
    expect_loads_everywhere(file);
}

// Of makers' cameras, which are not ours to hand on.
TEST_F(ImageFeatures, MergedDocumentsOfMakersLoadEverywhere) {
    std::vector<std::filesystem::path> files;
    if (const char* folder = std::getenv("ORV_TEST_DOCUMENTS")) {
        for (const auto& entry : std::filesystem::directory_iterator{folder})
            if (entry.path().extension() == ".xml") files.push_back(entry.path());
    }
    if (files.empty()) GTEST_SKIP() << "ORV_TEST_DOCUMENTS names no folder with .xml files of cameras";
    for (const auto& file : files) expect_loads_everywhere(file);
}

// Through the whole producer. What the automatic functions do to pictures: image_loops_test.
TEST_F(ImageFeatures, ShowInThePictures) {
    start({"--frame-rate", "50"});
    const auto mean_of_last = [&](const std::string& name, std::vector<std::string> settings, const char* frames) {
        const auto folder = own->folder() / name;
        std::vector<std::string> options{"--frames", frames, "--save", "3", "--raw", "--output", folder.string()};
        for (std::string& each : settings) options.insert(options.end(), {"--set", std::move(each)});
        const auto result = own->grab(options);
        EXPECT_EQ(result.value("frames_complete", -1), std::stoi(frames)) << result;
        if (result.value("files", nlohmann::json::array()).empty()) return -1.0;
        std::ifstream in{result["files"].back().at("path").get<std::string>(), std::ios::binary};
        double sum = 0, count = 0;
        for (char c = 0; in.get(c); ++count) sum += static_cast<unsigned char>(c);
        return count == 0 ? -1.0 : sum / count;
    };
    const double plain = mean_of_last("plain", {"SoftwareBrightness=64"}, "3");
    ASSERT_GT(plain, 0);
    const double bright = mean_of_last("bright", {"SoftwareImageProcessingEnable=true", "SoftwareBrightness=64"}, "3");
    EXPECT_GT(bright, plain + 20) << "a quarter of full scale, but for what is white already";
}
