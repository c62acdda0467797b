// Quality of the demosaic beside OpenCV's and a slow reference, on generated scenes.
// usage: demosaic_quality [first seed [number of seeds [plain|best [folder for crops]]]]
#include "scenes.h"

#include <img_pipe/filter_table.h>
#include <img_pipe/kernel_params.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

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
    {"ours, 12 bits", ours_12},
    {"bilinear", [](const mosaic16& m, bool) { return opencv(m, cv::COLOR_BayerBG2BGR); }},
    {"edge-aware", [](const mosaic16& m, bool) { return opencv(m, cv::COLOR_BayerBG2BGR_EA); }},
    {"reference", [](const mosaic16& m, bool) { return reference_demosaic(m, scene_size, scene_size); }},
};
constexpr std::size_t road_count = std::size(roads);

} // namespace

int main(int argc, char** argv) {
    const unsigned first = argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 1;
    const unsigned seeds = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 1;
    const bool plain = argc > 3 && std::strcmp(argv[3], "plain") == 0;
    std::printf("| scene, noise |");
    for (const road& r : roads) std::printf(" %s |", r.name);
    std::printf("\n|---|---|---|---|---|---|\n");
    measures total[road_count]{};
    double worst_lead = 1e9, worst_gap = -1e9;
    int rows = 0;
    for (const scene_kind& scene : scenes)
        for (const noise_level& noise : noise_levels) {
            measures sum[road_count]{};
            for (unsigned seed = first; seed < first + seeds; ++seed) {
                const picture truth = scene.render(seed);
                const mosaic16 m = mosaic_of(truth, noise, seed + 1000);
                for (std::size_t i = 0; i < road_count; ++i) {
                    const measures one = compare(truth, roads[i].run(m, plain));
                    sum[i].cpsnr += one.cpsnr / seeds;
                    sum[i].zipper += one.zipper / seeds;
                    sum[i].false_colour += one.false_colour / seeds;
                }
            }
            std::printf("| %s, %s |", scene.name, noise.name);
            for (std::size_t i = 0; i < road_count; ++i) {
                std::printf(" %.2f %.1f %.2f |", sum[i].cpsnr, sum[i].zipper, sum[i].false_colour);
                total[i].cpsnr += sum[i].cpsnr;
                total[i].zipper += sum[i].zipper;
                total[i].false_colour += sum[i].false_colour;
            }
            std::printf("\n");
            worst_lead = std::min(worst_lead, sum[0].cpsnr - sum[3].cpsnr);
            worst_gap = std::max(worst_gap, sum[4].cpsnr - sum[0].cpsnr);
            ++rows;
        }
    std::printf("| mean |");
    for (const measures& m : total)
        std::printf(" %.2f %.1f %.2f |", m.cpsnr / rows, m.zipper / rows, m.false_colour / rows);
    std::printf("\n\nahead of edge-aware by %.2f dB on average, %.2f at worst; behind the reference by %.2f dB on "
                "average, %.2f at worst\n",
                (total[0].cpsnr - total[3].cpsnr) / rows, worst_lead, (total[4].cpsnr - total[0].cpsnr) / rows,
                worst_gap);
    return 0;
}
