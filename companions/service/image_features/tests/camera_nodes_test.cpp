// The camera's own features: what may not be written, and selectors, which go back to the user's entry, also when the
// camera falls silent then.
#include "../camera_nodes.h"

#include <GenICam/error.h>
#include <gds_shared/gigecam_error.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <utility>

using namespace image_features;

namespace {

constexpr std::string_view camera_document = R"(<RegisterDescription ModelName="M" VendorName="V" SchemaMajorVersion="1"
  SchemaMinorVersion="1" SchemaSubMinorVersion="0" xmlns="http://www.genicam.org/GenApi/Version_1_1">
<Category Name="Root"><pFeature>GainSelector</pFeature><pFeature>Gain</pFeature></Category>
<Enumeration Name="GainSelector"><EnumEntry Name="All"><Value>0</Value></EnumEntry>
  <EnumEntry Name="Tap1"><Value>1</Value></EnumEntry><EnumEntry Name="Tap2"><Value>2</Value></EnumEntry>
  <pValue>S</pValue><pSelected>Gain</pSelected></Enumeration>
<Float Name="Gain"><pValue>G</pValue><Min>0</Min><Max>48</Max></Float>
<IntReg Name="S"><Address>0</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
  <Endianess>LittleEndian</Endianess></IntReg>
<FloatReg Name="G"><Address>8</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
  <Endianess>LittleEndian</Endianess></FloatReg>
<Port Name="Device"/></RegisterDescription>)";

class small_camera final : public GenICam::IDevicePort {
public:
    GenICam::result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        ++reads;
        if (address == 8 && wait_until) std::this_thread::sleep_until(*std::exchange(wait_until, {}));
        std::memcpy(data.data(), memory.data() + address, data.size());
        return data.size();
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        std::ranges::copy(data, memory.begin() + address); // it is the answer that gets lost
        return address == unanswered ? make_error_code(gds_shared::gigecam_errc::timeout) : std::error_code{};
    }
    [[nodiscard]] int selected() const { return std::to_integer<int>(memory[0]); }
    void select(int entry) { memory[0] = static_cast<std::byte>(entry); }
    void put(std::size_t address, double value) { std::memcpy(memory.data() + address, &value, sizeof value); }
    int64_t unanswered = -1; // address of the writes that get no answer
    int reads = 0;
    std::optional<camera_nodes::clock::time_point> wait_until; // at the gain's next read

private:
    std::array<std::byte, 24> memory{};
};

} // namespace

TEST(CameraNodes, ASelectorGoesBackAfterASilence) {
    constexpr int64_t selector = 0, gain = 8;
    const struct {
        const char* what;
        int64_t unanswered;
        int chosen_meanwhile; // by the user; -1: nothing
        int in_the_end;
    } rows[] = {{"silent at the value", gain, -1, 1},
                {"silent at the selector", selector, -1, 1},
                {"another entry chosen meanwhile", gain, 2, 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        small_camera camera;
        const auto nodes = camera_nodes::create(camera_document, camera, false);
        ASSERT_NE(nodes, nullptr);
        camera.select(1);
        camera.unanswered = row.unanswered;
        EXPECT_TRUE(nodes->write(camera_nodes::control::gain, 6));
        EXPECT_EQ(camera.selected(), 0) << "nothing more is written to a silent camera";
        if (row.chosen_meanwhile >= 0) camera.select(row.chosen_meanwhile);
        camera.unanswered = -1;
        nodes->ask_again();
        EXPECT_TRUE(nodes->read(camera_nodes::control::gain));
        EXPECT_EQ(camera.selected(), row.in_the_end);
    }
}

TEST(CameraNodes, AReadOnlyFeatureIsReadAndWaitedFor) {
    std::string text{camera_document};
    text.replace(text.rfind("RW"), 2, "RO");
    small_camera camera;
    const auto nodes = camera_nodes::create(text, camera, false);
    ASSERT_NE(nodes, nullptr);
    EXPECT_EQ(nodes->write(camera_nodes::control::gain, 6), make_error_code(GenICam::genicam_errc::node_locked));
    EXPECT_EQ(nodes->read(camera_nodes::control::gain), 0);
}

// However long its answers take: when the time is over, the camera is left alone until it is to be asked again.
TEST(CameraNodes, ACameraIsAskedForSoLong) {
    small_camera camera;
    const auto late = camera_nodes::create(camera_document, camera, false, camera_nodes::clock::now());
    ASSERT_NE(late, nullptr);
    EXPECT_FALSE(late->read(camera_nodes::control::gain));
    EXPECT_TRUE(late->is_silent());
    EXPECT_EQ(camera.reads, 0);
    late->ask_again();
    EXPECT_TRUE(late->read(camera_nodes::control::gain));
    EXPECT_FALSE(late->is_silent());
}

// The first look at a raw gain goes by the selector, too.
TEST(CameraNodes, ASelectorGoesBackWithTheSecondLook) {
    std::string text{camera_document};
    for (const auto& [from, to] :
         {std::pair{"<Float Name=\"Gain\"", "<Integer Name=\"GainRaw\""}, std::pair{"</Float>", "</Integer>"},
          std::pair{"<FloatReg Name=\"G\"", "<IntReg Name=\"G\""}, std::pair{"</FloatReg>", "</IntReg>"}})
        text.replace(text.find(from), std::string_view{from}.size(), to);
    small_camera camera;
    camera.select(1);
    camera.unanswered = 0;
    const auto nodes = camera_nodes::create(text, camera, false);
    ASSERT_NE(nodes, nullptr);
    EXPECT_TRUE(nodes->is_silent());
    EXPECT_EQ(camera.selected(), 0);
    camera.unanswered = -1;
    nodes->look_again(camera_nodes::clock::time_point::max());
    EXPECT_TRUE(nodes->abilities().gain);
    EXPECT_EQ(camera.selected(), 1);
}

// The time may be over between the choice of an entry and the way back from it.
TEST(CameraNodes, ASelectorGoesBackWhenTheTimeIsOver) {
    std::string masked{camera_document}; // such a register is read before it is written
    for (const std::string_view tag : {"<IntReg Name=\"S\">", "</IntReg>"})
        masked.insert(masked.find(tag) + (tag[1] == '/' ? 2 : 1), "Masked");
    masked.insert(masked.find("</MaskedIntReg>"), "<LSB>0</LSB><MSB>7</MSB>");
    for (const std::string_view text : {camera_document, std::string_view{masked}}) {
        small_camera camera;
        const auto until = camera_nodes::clock::now() + std::chrono::milliseconds{500};
        const auto nodes = camera_nodes::create(text, camera, false, until);
        ASSERT_NE(nodes, nullptr);
        camera.select(1);
        camera.wait_until = until;
        EXPECT_EQ(nodes->read(camera_nodes::control::gain), 0) << "the answer that came late";
        EXPECT_TRUE(nodes->is_silent());
        EXPECT_EQ(camera.selected(), 1);
    }
}

// Of the formats only those are asked for that would tell colour.
TEST(CameraNodes, ColourIsLookedForByName) {
    std::string formats = "<Enumeration Name=\"PixelFormat\">";
    for (int i = 0; i < 100; ++i)
        formats += "<EnumEntry Name=\"Mono" + std::to_string(i) +
                   "\"><pIsImplemented>S</pIsImplemented><Value>1</Value></EnumEntry>";
    formats += "<EnumEntry Name=\"BayerRG8\"><pIsImplemented>S</pIsImplemented><Value>2</Value></EnumEntry>"
               "<Value>1</Value></Enumeration>";
    std::string text{camera_document};
    text.insert(text.find("<Float"), formats);
    for (const bool colour : {false, true}) {
        small_camera camera;
        camera.select(colour ? 1 : 0);
        const auto nodes = camera_nodes::create(text, camera, true);
        ASSERT_NE(nodes, nullptr);
        camera.reads = 0;
        EXPECT_EQ(nodes->abilities().colour, colour);
        EXPECT_EQ(camera.reads, 1);
    }
}

TEST(CameraNodes, AFrameRateCountsWhileItIsOn) {
    std::string text{camera_document};
    text.insert(text.find("<IntReg"), "<Float Name=\"AcquisitionFrameRate\"><pValue>G</pValue></Float>");
    const std::string without = text;
    text.insert(text.find("<IntReg"), "<Boolean Name=\"AcquisitionFrameRateEnable\"><pValue>S</pValue></Boolean>");
    for (const bool on : {true, false}) {
        small_camera camera;
        camera.put(8, 25);
        camera.select(on ? 1 : 0); // its other meaning here: the switch
        const auto nodes = camera_nodes::create(text, camera, true);
        ASSERT_NE(nodes, nullptr);
        EXPECT_EQ(nodes->frame_rate(), on ? std::optional{25.0} : std::nullopt);
        const auto free = camera_nodes::create(without, camera, true);
        ASSERT_NE(free, nullptr);
        EXPECT_EQ(free->frame_rate(), 25.0) << "without a switch";
    }
}

// Who computes with it divides by it, or makes a whole number of it.
TEST(CameraNodes, AnIncrementThatIsNoNumberIsNone) {
    std::string text{camera_document};
    text.replace(text.find("<Max>48</Max>"), 0, "<pInc>Step</pInc>");
    text.insert(text.find("<Port"), "<FloatReg Name=\"Step\"><Address>16</Address><Length>8</Length>"
                                    "<AccessMode>RO</AccessMode><pPort>Device</pPort>"
                                    "<Endianess>LittleEndian</Endianess></FloatReg>");
    for (const double step : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
        small_camera camera;
        camera.put(16, step);
        const auto nodes = camera_nodes::create(text, camera, false);
        ASSERT_NE(nodes, nullptr);
        const auto range = nodes->range_of(camera_nodes::control::gain);
        ASSERT_TRUE(range);
        EXPECT_EQ(range->increment, 0);
        EXPECT_FALSE(nodes->write(camera_nodes::control::gain, 6));
        EXPECT_EQ(nodes->read(camera_nodes::control::gain), 6);
    }
}
