// Speed of the pipe's conversions beside OpenCV, libyuv and a plain copy, in one table.
// usage: bench_img_pipe [--only TEXT] [--mpixel 0.3|5|12] [--threads 1|2] [--rounds N] [--busy 1]
// --busy is for a machine with other work: processor time of the calling thread instead of the clock, the fastest round
// instead of the median; one thread only.
//   demosaic   a mosaic to colour, nothing else          peer: OpenCV's bilinear
//   fused      with white balance, matrix and gamma      peer: the same steps by OpenCV
//   in place   what a stream does to a mosaic
//   unpack, mono, YUV, RGB6                              floor: a copy of the same bytes
#include "tasks.h"

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string_view>

namespace {

using namespace img_pipe;

struct options {
    std::string_view only;
    double mpixel = 0; // all
    int threads = 0;   // one, then two
    std::size_t rounds = 11;
    bool busy = false;
};

// Frames of all roads together exceed any last-level cache here.
constexpr std::size_t pool_bytes = std::size_t{160} << 20;

struct frame {
    std::vector<std::uint8_t> in, out;
};

// A slope and noise; unused upper bits of words are 0. Words have noise as of a sensor, a 64th of the range: how far
// they scatter over a table is what looking them up costs.
void fill(std::vector<std::uint8_t>& bytes, std::uint32_t format, std::size_t seed) {
    if (format == fcc("RG16") || format == fcc("Y16 ")) {
        for (std::size_t i = 0; i + 2 <= bytes.size(); i += 2) {
            const std::uint32_t noise = static_cast<std::uint32_t>((i + seed) * 2654435761U) >> 22;
            const auto word = static_cast<std::uint16_t>(i * 5 / 2 + noise);
            std::memcpy(&bytes[i], &word, 2);
        }
        return;
    }
    const bool ten = format == fcc("RG10");
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto noise = static_cast<std::uint32_t>((i + seed) * 2654435761U) >> 27;
        bytes[i] = static_cast<std::uint8_t>(ten && i % 2 == 1 ? noise & 3 : i / 97 + noise);
    }
}

void copy_in_parts(std::uint8_t* to, const std::uint8_t* from, std::size_t bytes, int threads) {
    if (threads == 1) {
        std::memcpy(to, from, bytes);
        return;
    }
    cv::parallel_for_({0, threads}, [&](const cv::Range& part) {
        for (int i = part.start; i < part.end; ++i) {
            const auto begin = bytes * static_cast<std::size_t>(i) / static_cast<std::size_t>(threads);
            const auto end = bytes * static_cast<std::size_t>(i + 1) / static_cast<std::size_t>(threads);
            std::memcpy(to + begin, from + begin, end - begin);
        }
    });
}

double now_ns(bool of_thread) {
    timespec t{};
    clock_gettime(of_thread ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

// ns per pixel: the median, all roads in turn, each on the frame that was used longest ago. Before each round `renew`
// is given every frame, that one first: what is changed in place again and again turns white.
std::vector<double> measure(double pixels, const options& o, std::size_t frames,
                            const std::vector<std::function<void(std::size_t)>>& roads,
                            const std::function<void(std::size_t)>& renew) {
    std::vector<std::vector<double>> times(roads.size());
    std::size_t next = 0;
    for (std::size_t round = 0; round <= o.rounds; ++round) {
        for (std::size_t i = 0; i < frames && renew; ++i) renew((next + i) % frames);
        for (std::size_t i = 0; i < roads.size(); ++i) {
            if (!roads[i] || (i == 0 && round > 3)) continue; // the plain level is slow and steady
            const double start = now_ns(o.busy);
            roads[i](next++ % frames);
            const double t = now_ns(o.busy) - start;
            if (round > 0) times[i].push_back(t / pixels);
        }
    }
    std::vector<double> out;
    for (auto& t : times) {
        std::ranges::sort(t);
        out.push_back(t.empty() ? 0 : o.busy ? t[0] : t[t.size() / 2]);
    }
    return out;
}

void run_by_pipe(transform_pipe& pipe, const task& what, std::uint32_t mask, int threads, const frame_job& f) {
    transform_params params = what.params;
    params.optimization_level = mask;
    params.max_concurrency = static_cast<std::uint32_t>(threads);
    const auto view = [&](std::uint8_t* data, std::uint32_t format) {
        return make_view(data, static_cast<std::uint32_t>(frame_bytes(format, f.width, f.height)), format, f.width,
                         f.height);
    };
    const bool ran = what.to == 0 ? pipe.transform_in_place(view(f.in, what.from), params)
                                  : pipe.transform(view(f.out, what.to), view(f.in, what.from), params);
    if (!ran) {
        std::fprintf(stderr, "%s: refused\n", what.name);
        std::exit(1);
    }
}

constexpr std::uint32_t masks[] = {cpu::c, cpu::level_sse, cpu::level_avx2};

// A time is not believed before all levels gave the same picture.
void check(const task& what, std::vector<transform_pipe>& pipes, int width, int height, int threads) {
    std::vector<std::vector<std::uint8_t>> results;
    for (std::size_t i = 0; i < std::size(masks); ++i) {
        frame f;
        f.in.resize(frame_bytes(what.from, width, height));
        fill(f.in, what.from, 7);
        if (what.to != 0) f.out.resize(frame_bytes(what.to, width, height));
        run_by_pipe(pipes[i], what, masks[i] & cpu_mask(), threads, {width, height, f.in.data(), f.out.data()});
        results.push_back(what.to == 0 ? std::move(f.in) : std::move(f.out));
        if (results.back() == results.front()) continue;
        std::fprintf(stderr, "%s: levels differ\n", what.name);
        std::exit(1);
    }
}

void report(const task& what, int width, int height, int threads, const options& o) {
    const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    const std::size_t in_bytes = frame_bytes(what.from, width, height);
    const std::size_t out_bytes = what.to == 0 ? in_bytes : frame_bytes(what.to, width, height);
    const std::size_t room = std::max(out_bytes, 6 * pixels); // OpenCV's 16-bit result is 6 bytes a pixel
    std::vector<transform_pipe> pipes(std::size(masks));
    check(what, pipes, width, height, threads);
    std::vector<frame> frames(std::clamp<std::size_t>(pool_bytes / (in_bytes + out_bytes), 3, 64));
    for (std::size_t i = 0; i < frames.size(); ++i) {
        frames[i].in.resize(std::max(in_bytes, room / 2));
        fill(frames[i].in, what.from, i);
        frames[i].out.resize(what.to == 0 ? 0 : room, 1);
    }
    const auto job = [&](std::size_t i) {
        return frame_job{width, height, frames[i].in.data(), what.to == 0 ? frames[i].in.data() : frames[i].out.data()};
    };
    std::vector<std::function<void(std::size_t)>> roads;
    for (std::size_t level = 0; level < std::size(masks); ++level)
        roads.emplace_back(
            [&, level](std::size_t i) { run_by_pipe(pipes[level], what, masks[level] & cpu_mask(), threads, job(i)); });
    if (what.opencv != nullptr)
        roads.emplace_back([&](std::size_t i) { what.opencv(job(i)); });
    else
        roads.emplace_back();
    if (what.libyuv != nullptr && threads == 1)
        roads.emplace_back([&](std::size_t i) { what.libyuv(job(i)); });
    else
        roads.emplace_back();
    // As many bytes read and written together; from and to different frames.
    const std::size_t half = (in_bytes + out_bytes) / 2;
    std::vector<std::vector<std::uint8_t>> copies(std::max<std::size_t>(pool_bytes / 2 / half, 4));
    for (auto& c : copies) c.resize(half, 1);
    roads.emplace_back([&](std::size_t i) {
        copy_in_parts(copies[i % copies.size()].data(), copies[(i + copies.size() / 2) % copies.size()].data(), half,
                      threads);
    });
    std::function<void(std::size_t)> renew;
    const std::vector<std::uint8_t> original = frames[0].in;
    if (what.to == 0) renew = [&](std::size_t i) { std::ranges::copy(original, frames[i].in.begin()); };
    const auto t = measure(static_cast<double>(pixels), o, frames.size(), roads, renew);
    std::printf("| %s | %.1f | %d |", what.name, static_cast<double>(pixels) / 1e6, threads);
    for (const double v : t)
        if (v > 0)
            std::printf(" %.3f |", v);
        else
            std::printf(" - |");
    const double best = t[2], bytes = static_cast<double>(in_bytes + out_bytes) / static_cast<double>(pixels);
    std::printf(" %.2f | %.2f |", bytes, best / t[5]);
    const double limit = what.to_opencv > 0 ? what.to_opencv * t[3] : what.to_copy * t[5];
    if (limit > 0)
        std::printf(" %.3f, %s |\n", limit, best <= limit ? "held" : "missed");
    else
        std::printf(" |\n");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    options o;
    for (int i = 1; i < argc; i += 2) {
        const std::string_view name = argv[i];
        const char* const value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (value != nullptr && name == "--only")
            o.only = value;
        else if (value != nullptr && name == "--mpixel")
            o.mpixel = std::atof(value);
        else if (value != nullptr && name == "--threads")
            o.threads = std::atoi(value);
        else if (value != nullptr && name == "--busy")
            o.busy = true;
        else if (value != nullptr && name == "--rounds")
            o.rounds = static_cast<std::size_t>(std::max(1, std::atoi(value)));
        else {
            std::fputs(
                "usage: bench_img_pipe [--only TEXT] [--mpixel 0.3|5|12] [--threads 1|2] [--rounds N] [--busy 1]\n"
                "  --busy  processor time and the fastest round, for a machine with other work; one thread\n",
                name == "--help" ? stdout : stderr);
            return name == "--help" ? 0 : 2;
        }
    }
#ifdef ORV_AVX2_MODULE
    if (load_filter_library(ORV_AVX2_MODULE, 0) != load_result::loaded)
        std::fprintf(stderr, "no AVX2 kernels: that column is SSE4's\n");
#endif
    std::printf("| task | Mpixel | threads | plain | SSE4 | AVX2 | OpenCV | libyuv | copy | bytes/pixel | AVX2 to copy "
                "| limit |\n|---|---|---|---|---|---|---|---|---|---|---|---|\n");
    for (const auto& [width, height] : {std::pair{640, 480}, std::pair{2448, 2048}, std::pair{4096, 3000}})
        for (int threads = 1; threads <= 2; ++threads) {
            const double mpixel = width * height / 1e6;
            if (o.mpixel > 0 && std::abs(mpixel - o.mpixel) > 0.5) continue;
            if ((o.threads > 0 && threads != o.threads) || (o.busy && threads > 1)) continue;
            cv::setNumThreads(threads);
            for (const task& each : all_tasks())
                if (std::string_view(each.name).find(o.only) != std::string_view::npos)
                    report(each, width, height, threads, o);
        }
    return 0;
}
