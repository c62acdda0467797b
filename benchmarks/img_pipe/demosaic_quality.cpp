// Quality of the demosaic beside OpenCV's and a slow reference, on generated scenes or on photographs.
// usage: demosaic_quality [first seed [number of seeds [plain|best [PNG file for crops side by side]]]]
//        demosaic_quality --photographs FOLDER
#include "scenes.h"

#include <img_pipe/filter_table.h>
#include <img_pipe/kernel_params.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <png.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

namespace {

using namespace img_pipe;
using mosaic16 = std::vector<std::uint16_t>;

kernel_fn kernel_for(bool plain, const img_descriptor& to, const img_descriptor& from) {
    return find_kernel(get_filter_table(plain ? cpu::c : cpu_mask()), kernel_slot::transform_by_edge_to_dst, to, from);
}

std::vector<std::uint8_t> bytes_of(const mosaic16& m) {
    std::vector<std::uint8_t> out(m.size());
    std::ranges::transform(m, out.begin(), [](unsigned v) { return static_cast<std::uint8_t>((v + 128) / 257); });
    return out;
}

void run(bool plain, void* from, std::size_t size, std::uint32_t from_format, void* to, std::size_t to_size,
         std::uint32_t to_format) {
    const img_descriptor src = make_view(from, static_cast<std::uint32_t>(size), from_format, scene_size, scene_size);
    const img_descriptor dst = make_view(to, static_cast<std::uint32_t>(to_size), to_format, scene_size, scene_size);
    std::vector<std::byte> scratch(kernel_scratch_bytes(scene_size) + 64);
    void* at = scratch.data();
    std::size_t room = scratch.size();
    std::align(64, kernel_scratch_bytes(scene_size), at, room);
    kernel_for(plain, dst, src)({dst, src, 0, scene_size, static_cast<std::uint8_t*>(from) + size, nullptr,
                                 static_cast<std::byte*>(at), nullptr, 0, 0});
}

picture from_bgr(const std::uint8_t* bgr) {
    picture out(scene_size, scene_size);
    for (int y = 0; y < scene_size; ++y)
        for (int x = 0; x < scene_size; ++x, bgr += 3)
            for (int c = 0; c < 3; ++c) out.at(c, x, y) = bgr[2 - c];
    return out;
}

picture ours_8(const mosaic16& m, bool plain) {
    auto bytes = bytes_of(m);
    std::vector<std::uint8_t> bgr(m.size() * 3);
    run(plain, bytes.data(), bytes.size(), fcc("RGGB"), bgr.data(), bgr.size(), fcc("BGR3"));
    return from_bgr(bgr.data());
}

picture ours_12(const mosaic16& m, bool plain) {
    mosaic16 samples(m.size()), bgra(m.size() * 4);
    std::ranges::transform(m, samples.begin(), [](unsigned v) { return static_cast<std::uint16_t>(v >> 4); });
    run(plain, samples.data(), samples.size() * 2, fcc("RG12"), bgra.data(), bgra.size() * 2, fcc("RGB6"));
    picture out(scene_size, scene_size);
    for (int y = 0, i = 0; y < scene_size; ++y)
        for (int x = 0; x < scene_size; ++x, i += 4)
            for (int c = 0; c < 3; ++c)
                out.at(c, x, y) = static_cast<float>(bgra[static_cast<std::size_t>(i + 2 - c)]) / 65520.0F * 255.0F;
    return out;
}

picture ours_12_to_8(const mosaic16& m, bool plain) {
    mosaic16 samples(m.size());
    std::ranges::transform(m, samples.begin(), [](unsigned v) { return static_cast<std::uint16_t>(v >> 4); });
    std::vector<std::uint8_t> bgr(m.size() * 3);
    run(plain, samples.data(), samples.size() * 2, fcc("RG12"), bgr.data(), bgr.size(), fcc("BGR3"));
    return from_bgr(bgr.data());
}

// OpenCV names a mosaic by its second line and column: red at the upper left is BayerBG there.
picture opencv(const mosaic16& m, int code) {
    auto bytes = bytes_of(m);
    cv::Mat bgr;
    cv::cvtColor(cv::Mat(scene_size, scene_size, CV_8UC1, bytes.data()), bgr, code);
    return from_bgr(bgr.data);
}

struct road {
    const char* name;
    picture (*run)(const mosaic16& m, bool plain);
};
const road roads[] = {
    {"ours, 8 bits", ours_8},
    {"ours, 12 bits to 16", ours_12},
    {"ours, 12 bits to 8", ours_12_to_8},
    {"bilinear", [](const mosaic16& m, bool) { return opencv(m, cv::COLOR_BayerBG2BGR); }},
    {"edge-aware", [](const mosaic16& m, bool) { return opencv(m, cv::COLOR_BayerBG2BGR_EA); }},
    {"reference", [](const mosaic16& m, bool) { return reference_demosaic(m, scene_size, scene_size); }},
};
constexpr std::size_t road_count = std::size(roads);
constexpr std::size_t of_ours = 0, of_edge_aware = 4, of_reference = 5;

// Truth and roads side by side, a line of crops for each of some scenes, every pixel three times as large.
bool write_crops(const char* path, unsigned seed, bool plain) {
    constexpr int crop = 48, scale = 3, gap = 4;
    constexpr struct {
        std::size_t scene;
        int x, y;
    } places[] = {{0, 60, 60}, {3, 96, 144}, {4, 200, 120}, {5, 24, 216}, {6, 150, 150}};
    constexpr std::size_t columns[] = {of_ours, 3, of_edge_aware, of_reference};
    constexpr int cell = crop * scale + gap, wide = cell * (1 + static_cast<int>(std::size(columns))) - gap,
                  high = cell * static_cast<int>(std::size(places)) - gap;
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(wide * high * 3), 255);
    for (std::size_t row = 0; row < std::size(places); ++row) {
        const auto& [scene, x0, y0] = places[row];
        std::vector<picture> pictures{scenes[scene].render(seed)};
        const mosaic16 m = mosaic_of(pictures[0], noise_levels[1], seed + 1000);
        for (const std::size_t i : columns) pictures.push_back(roads[i].run(m, plain));
        for (std::size_t i = 0; i < pictures.size(); ++i)
            for (int y = 0; y < crop * scale; ++y)
                for (int x = 0; x < crop * scale; ++x)
                    for (int c = 0; c < 3; ++c) {
                        const int at = (static_cast<int>(row) * cell + y) * wide + static_cast<int>(i) * cell + x;
                        const float v = pictures[i].at(c, x0 + x / scale, y0 + y / scale);
                        rgb[static_cast<std::size_t>(3 * at + c)] =
                            static_cast<std::uint8_t>(std::clamp(v + 0.5F, 0.0F, 255.0F));
                    }
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(wide);
    image.height = static_cast<png_uint_32>(high);
    image.format = PNG_FORMAT_RGB;
    return png_image_write_to_file(&image, path, 0, rgb.data(), 0, nullptr) != 0;
}

// The table: a line for each scene and noise, and what they come to.
class table {
public:
    explicit table(bool plain_) : plain(plain_) {
        std::printf("| scene, noise |");
        for (const road& r : roads) std::printf(" %s |", r.name);
        std::printf("\n|---|---|---|---|---|---|---|\n");
    }
    // The mean of a scene's pictures.
    void add(const std::string& name, const std::vector<picture>& truths, const noise_level& noise, unsigned seed) {
        measures sum[road_count]{};
        const auto count = static_cast<double>(truths.size());
        for (const picture& truth : truths) {
            const mosaic16 m = mosaic_of(truth, noise, seed++ + 1000);
            for (std::size_t i = 0; i < road_count; ++i) {
                const measures one = compare(truth, roads[i].run(m, plain));
                sum[i].cpsnr += one.cpsnr / count;
                sum[i].zipper += one.zipper / count;
                sum[i].false_colour += one.false_colour / count;
            }
        }
        std::printf("| %s, %s |", name.c_str(), noise.name);
        for (std::size_t i = 0; i < road_count; ++i) {
            std::printf(" %.2f %.1f %.2f |", sum[i].cpsnr, sum[i].zipper, sum[i].false_colour);
            total[i].cpsnr += sum[i].cpsnr;
            total[i].zipper += sum[i].zipper;
            total[i].false_colour += sum[i].false_colour;
        }
        std::printf("\n");
        worst_lead = std::min(worst_lead, sum[of_ours].cpsnr - sum[of_edge_aware].cpsnr);
        worst_gap = std::max(worst_gap, sum[of_reference].cpsnr - sum[of_ours].cpsnr);
        ++rows;
    }
    void end() const {
        std::printf("| mean |");
        for (const measures& m : total)
            std::printf(" %.2f %.1f %.2f |", m.cpsnr / rows, m.zipper / rows, m.false_colour / rows);
        std::printf("\n\nahead of edge-aware by %.2f dB on average, %.2f at worst; behind the reference by %.2f dB on "
                    "average, %.2f at worst\n",
                    (total[of_ours].cpsnr - total[of_edge_aware].cpsnr) / rows, worst_lead,
                    (total[of_reference].cpsnr - total[of_ours].cpsnr) / rows, worst_gap);
    }

private:
    bool plain;
    measures total[road_count]{};
    double worst_lead = 1e9, worst_gap = -1e9;
    int rows = 0;
};

// Every photograph of a folder that is large enough to be made smaller, which takes away what its own camera's demosaic
// and compression left: each pixel the mean of at least 2 x 2, and of these the middle.
int judge_photographs(const char* folder) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) files.push_back(entry.path());
    std::ranges::sort(files);
    table out(false);
    int used = 0;
    for (const auto& file : files) {
        const cv::Mat whole = cv::imread(file.string(), cv::IMREAD_COLOR);
        const int by = std::min(whole.cols, whole.rows) / scene_size;
        if (by < 2) continue;
        cv::Mat small;
        cv::resize(whole(cv::Rect((whole.cols - by * scene_size) / 2, (whole.rows - by * scene_size) / 2,
                                  by * scene_size, by * scene_size)),
                   small, cv::Size(scene_size, scene_size), 0, 0, cv::INTER_AREA);
        const picture truth = from_bgr(small.data);
        for (const noise_level& noise : noise_levels) out.add(file.stem().string(), {truth}, noise, 1);
        ++used;
    }
    if (used == 0) {
        std::fprintf(stderr, "no photograph of at least %d pixels a side in %s\n", 2 * scene_size, folder);
        return 1;
    }
    out.end();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--photographs") == 0) return judge_photographs(argv[2]);
    const unsigned first = argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 1;
    const unsigned seeds = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 1;
    const bool plain = argc > 3 && std::strcmp(argv[3], "plain") == 0;
    if (argc > 4 && !write_crops(argv[4], first, plain)) {
        std::fprintf(stderr, "cannot write %s\n", argv[4]);
        return 1;
    }
    table out(plain);
    for (const scene_kind& scene : scenes) {
        std::vector<picture> truths;
        for (unsigned seed = first; seed < first + seeds; ++seed) truths.push_back(scene.render(seed));
        for (const noise_level& noise : noise_levels) out.add(scene.name, truths, noise, first);
    }
    out.end();
    return 0;
}
