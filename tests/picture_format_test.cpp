// Pictures that `orv-gentl grab --format` writes, from every format that the simulated camera sends, against what the
// camera's pattern is made of.
#include "support/test_system.h"

#include <img_pipe/format.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <string_view>

using namespace test_support;

namespace {

constexpr int width = 256, height = 96;

using colour = std::array<double, 3>; // red, green, blue of 255

// A ramp of 512 pixels' period, colours a third of it apart, one cell of 8 pixels further on in each frame and each 8
// lines.
double ramp(int x, int y, int frame, int shift) { return (x + 8 * ((y / 8 + frame) % 64) + shift) % 512 / 511.0; }

// Nothing near the bars of the frame's number, the travelling square and the places where a ramp begins anew.
bool is_smooth(int x, int y, int frame) {
    if (y < 16) return false;
    const int square_x = frame * 3 % (width / 8 - 8 + 1) * 8, square_y = frame * 5 % (height - 64 + 1);
    if (x > square_x - 8 && x < square_x + 72 && y > square_y - 8 && y < square_y + 72) return false;
    for (const int line : {y - 8, y, y + 8})
        for (const int shift : {0, 170, 341})
            if (const int at = (x + 8 * ((line / 8 + frame) % 64) + shift) % 512; at < 8 || at >= 504) return false;
    return true;
}

colour expected(const std::string& format, int x, int y, int frame) {
    const double first = ramp(x, y, frame, 0), second = ramp(x, y, frame, 170), third = ramp(x, y, frame, 341);
    if (format.starts_with("Mono")) return {255 * first, 255 * first, 255 * first};
    if (!format.starts_with("Y")) return {255 * first, 255 * second, 255 * third};
    // Full range, weights 0.299, 0.587 and 0.114; the second and third ramp are the chroma.
    const double luma = 255 * first, u = 255 * second - 128, v = 255 * third - 128;
    colour all{luma + 1.402 * v, luma - 0.344136 * u - 0.714136 * v, luma + 1.772 * u};
    for (double& c : all) c = std::clamp(c, 0.0, 255.0);
    return all;
}

class GrabFormat : public testing::TestWithParam<const char*> {};

} // namespace

TEST_P(GrabFormat, WritesThePatternFromEveryFormat) {
    const std::string target = GetParam();
    test_system own;
    own.start_camera({"--width", std::to_string(width), "--height", std::to_string(height), "--frame-rate", "50"});
    own.start_service();
    std::vector<std::string> formats;
    {
        open_camera camera;
        const auto* node = camera.remote().document().find<GenICam::IEnumeration>("PixelFormat");
        ASSERT_NE(node, nullptr);
        for (const auto* entry : node->get_entries())
            formats.emplace_back(entry->get_symbolic().empty() ? entry->get_name() : entry->get_symbolic());
    }
    // All of the pipeline's formats that have a number and come in lines of pixels.
    for (std::uint32_t place = 0; const std::uint32_t id = img_pipe::format_at(place); ++place) {
        const std::uint32_t number = img_pipe::pfnc_from_fcc(id);
        const std::string name{img_pipe::pfnc_name(number)};
        if (number == 0 || name.starts_with("Data") || name.ends_with("Semiplanar")) continue;
        EXPECT_NE(std::ranges::find(formats, name), formats.end()) << "the camera does not send " << name;
    }
    const std::size_t channels = target.starts_with("Mono") ? 1 : 3, bytes = target == "Mono16" ? 2 : 1;
    for (const std::string& format : formats) {
        SCOPED_TRACE(format + " to " + target);
        const auto folder = own.folder() / (format + target);
        const auto result = own.grab({"--frames", "3", "--save", "3", "--set", "PixelFormat=" + format, "--format",
                                      target, "--output", folder.string(), "--raw"});
        ASSERT_FALSE(result.value("files", nlohmann::json::array()).empty()) << result;
        const std::filesystem::path file = result["files"].back().at("path").get<std::string>();
        const std::string picture = read_file(file);
        ASSERT_EQ(picture.size(), static_cast<std::size_t>(width * height) * channels * bytes);
        const std::string stem = file.stem().string(); // device, time, block id, which begins with 1
        const int frame = std::stoi(stem.substr(stem.rfind('-') + 1)) - 1;
        double worst = 0;
        int seen = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                if (!is_smooth(x, y, frame)) continue;
                ++seen;
                const colour want = expected(format, x, y, frame);
                for (std::size_t c = 0; c < channels; ++c) {
                    const auto at = (static_cast<std::size_t>(y * width + x) * channels + c) * bytes;
                    const double got = bytes == 2 ? (static_cast<unsigned char>(picture[at]) +
                                                     256 * static_cast<unsigned char>(picture[at + 1])) /
                                                        257.0
                                                  : static_cast<unsigned char>(picture[at]);
                    double wanted = want[target == "BGR8" ? 2 - c : c];
                    if (channels == 1 && format.starts_with("Y"))
                        wanted = 255 * ramp(x, y, frame, 0);
                    else if (channels == 1)
                        wanted = 0.299 * want[0] + 0.587 * want[1] + 0.114 * want[2];
                    worst = std::max(worst, std::abs(got - wanted));
                }
            }
        EXPECT_GT(seen, 2000);
        // Chroma of four pixels in one, or five bits of a colour, are further from the ramp.
        EXPECT_LE(worst, format == "RGB565p" ? 5 : format.find("411") != format.npos ? 4 : 2) << file;
    }
}

// As some cameras send them, for the alignment of lines.
TEST(GrabPadding, BytesBehindLinesAreNoPartOfAPicture) {
    test_support::test_system own;
    own.start_camera({"--width", "328", "--height", "96", "--line-padding", "5"});
    own.start_service();
    const struct {
        const char *format, *file_format;
        std::size_t bytes;
    } rows[] = {{"Mono8", nullptr, 328 * 96}, {"Mono12p", nullptr, 328 * 96 * 3 / 2}, {"RGB8", "BGR8", 328 * 96 * 3}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        const auto folder = own.folder() / row.format;
        std::vector<std::string> options{
            "--frames", "2",        "--save",        "1",     "--raw",
            "--verify", "--output", folder.string(), "--set", std::string{"PixelFormat="} + row.format};
        if (row.file_format != nullptr) options.insert(options.end(), {"--format", row.file_format});
        const auto result = own.grab(options);
        EXPECT_EQ(result.value("verified", false), true) << result;
        ASSERT_FALSE(result.value("files", nlohmann::json::array()).empty()) << result;
        EXPECT_EQ(std::filesystem::file_size(result["files"][0].at("path").get<std::string>()), row.bytes);
    }
}

INSTANTIATE_TEST_SUITE_P(Targets, GrabFormat, testing::Values("BGR8", "Mono16"),
                         [](const auto& chosen) { return std::string{chosen.param}; });
