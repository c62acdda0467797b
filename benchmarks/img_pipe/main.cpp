// Speed of the demosaic beside OpenCV's, one thread, frames cycled through more than the caches hold.
#include <img_pipe/filter_table.h>
#include <img_pipe/kernel_params.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

namespace {

using namespace img_pipe;
using clock_type = std::chrono::steady_clock;

struct frames {
    std::vector<std::vector<std::uint8_t>> in, out;
};

// ns per pixel: the median of 15 rounds, all roads in turn.
std::vector<double> measure(double pixels, std::size_t count,
                            const std::vector<std::function<void(std::size_t)>>& roads) {
    std::vector<std::vector<double>> times(roads.size());
    for (std::size_t round = 0; round < 16; ++round)
        for (std::size_t i = 0; i < roads.size(); ++i) {
            const auto start = clock_type::now();
            roads[i](round % count);
            const std::chrono::duration<double, std::nano> t = clock_type::now() - start;
            if (round > 0) times[i].push_back(t.count() / pixels);
        }
    std::vector<double> out;
    for (auto& t : times) {
        std::ranges::sort(t);
        out.push_back(t[t.size() / 2]);
    }
    return out;
}

} // namespace

int main() {
    cv::setNumThreads(1);
#ifdef ORV_AVX2_MODULE
    if (load_filter_library(ORV_AVX2_MODULE, 0) != load_result::loaded)
        std::fprintf(stderr, "no AVX2 kernels: that column is SSE4's\n");
#endif
    std::printf("| Mpixel | bits | plain | SSE4 | AVX2 | OpenCV bilinear | copy of the same bytes "
                "|\n|---|---|---|---|---|---|---|\n");
    const std::uint32_t masks[] = {cpu::c, cpu::level_sse, cpu::level_avx2};
    for (const auto& [width, height] : {std::pair{640, 480}, std::pair{2448, 2048}, std::pair{4096, 3000}})
        for (const unsigned bytes : {1U, 2U}) {
            const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
            const std::size_t count = std::clamp<std::size_t>((std::size_t{100} << 20) / (pixels * 8), 2, 60);
            frames f;
            for (std::size_t i = 0; i < count; ++i) {
                f.in.emplace_back(pixels * bytes);
                f.out.emplace_back(pixels * 8);
                for (std::size_t k = 0; k < f.in[i].size(); ++k)
                    f.in[i][k] = static_cast<std::uint8_t>(k * 2654435761U >> 24);
            }
            std::vector<std::byte> scratch(kernel_scratch_bytes(width) + 64);
            void* at = scratch.data();
            std::size_t room = scratch.size();
            std::align(64, kernel_scratch_bytes(width), at, room);
            const auto view = [&](std::vector<std::uint8_t>& v, std::uint32_t format) {
                return make_view(v.data(), static_cast<std::uint32_t>(v.size()), format, width, height);
            };
            std::vector<std::function<void(std::size_t)>> roads;
            for (const std::uint32_t mask : masks)
                roads.emplace_back([&, mask](std::size_t i) {
                    const auto from = view(f.in[i], bytes == 1 ? fcc("RGGB") : fcc("RG16"));
                    const auto to = view(f.out[i], fcc("BGR4"));
                    static const filter_table tables[] = {get_filter_table(cpu::c), get_filter_table(cpu::level_sse),
                                                          get_filter_table(cpu_mask() & cpu::level_avx2)};
                    const auto which = static_cast<std::size_t>(std::ranges::find(masks, mask) - masks);
                    find_kernel(tables[which], kernel_slot::transform_by_edge_to_dst, to,
                                from)({to, from, 0, height, f.in[i].data() + f.in[i].size(), nullptr,
                                       static_cast<std::byte*>(at), nullptr, 0, 0});
                });
            roads.emplace_back([&](std::size_t i) {
                const cv::Mat from(height, width, bytes == 1 ? CV_8UC1 : CV_16UC1, f.in[i].data());
                cv::Mat to(height, width, bytes == 1 ? CV_8UC4 : CV_16UC3, f.out[i].data());
                cv::cvtColor(from, to, bytes == 1 ? cv::COLOR_BayerBG2BGRA : cv::COLOR_BayerBG2BGR);
            });
            roads.emplace_back([&](std::size_t i) {
                for (std::size_t done = 0; done < 4; ++done)
                    std::memcpy(f.out[i].data() + done * pixels, f.out[(i + 1) % count].data() + done * pixels, pixels);
            });
            const auto t = measure(static_cast<double>(pixels), count, roads);
            std::printf("| %.1f | %u |", static_cast<double>(pixels) / 1e6, 8 * bytes);
            for (const double v : t) std::printf(" %.2f |", v);
            std::printf("\n");
        }
    return 0;
}
