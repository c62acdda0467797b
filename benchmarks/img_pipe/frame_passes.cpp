// What a delivered frame costs before it is handed on, beside a copy of its bytes: tone mapping, by the kernels alone
// and whole with its measures, the colour road in place, and the automatic functions. One thread; frames are cycled
// through more memory than the caches hold. `bench_frame_passes [tone|auto]`
#include <auto_alg/auto_pass.h>
#include <img_pipe/filter_table.h>
#include <img_pipe/kernel_params.h>
#include <img_pipe/tonemapping.h>
#include <img_pipe/transform_pipe.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace {

using namespace img_pipe;
using clock_type = std::chrono::steady_clock;

struct size {
    std::int32_t width, height;
};
constexpr size sizes[] = {{640, 480}, {2448, 2048}, {4096, 3000}};

// Frames of one content: shades over the picture, texture and noise.
class frames {
public:
    frames(std::uint32_t format_, size s) : format(format_), of(s), bytes(image_size(format_, s.width, s.height)) {
        master.resize(bytes);
        std::uint32_t seed = 1;
        const std::int32_t stride = line_stride(format, s.width);
        for (std::int32_t y = 0; y < s.height; ++y)
            for (std::int32_t x = 0; x < stride; ++x) {
                seed = seed * 1664525U + 1013904223U;
                const double shade =
                    90 + 70 * std::sin(x * 3.0 / stride) * std::cos(y * 4.0 / s.height) + (x / 40 + y / 30) % 2 * 40;
                master[static_cast<std::size_t>(y) * static_cast<std::size_t>(stride) + static_cast<std::size_t>(x)] =
                    static_cast<std::uint8_t>(shade + (seed >> 24) % 12);
            }
        count = std::max<std::size_t>((std::size_t{96} << 20) / bytes, 3);
        in.assign(count, master);
        out.assign(count, master);
    }
    void refill() {
        for (auto& f : in) std::memcpy(f.data(), master.data(), bytes);
    }
    img_descriptor view(std::vector<std::uint8_t>& v) const {
        return make_view(v.data(), bytes, format, of.width, of.height);
    }

    std::uint32_t format;
    size of;
    std::uint32_t bytes;
    std::size_t count = 0;
    std::vector<std::uint8_t> master;
    std::vector<std::vector<std::uint8_t>> in, out;
};

struct contender {
    const char* name;
    std::function<void(std::size_t)> run;
};

// The median of 21 rounds in us, all contenders in turn, each on a cold frame.
std::vector<double> measure(frames& f, const std::vector<contender>& contenders) {
    std::vector<std::vector<double>> times(contenders.size());
    for (std::size_t round = 0; round < 22; ++round) {
        f.refill();
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            const std::size_t which = (round * contenders.size() + i) % f.count;
            const auto start = clock_type::now();
            contenders[i].run(which);
            const std::chrono::duration<double, std::micro> t = clock_type::now() - start;
            if (round > 0) times[i].push_back(t.count());
        }
    }
    std::vector<double> median;
    for (auto& t : times) {
        std::ranges::nth_element(t, t.begin() + static_cast<std::ptrdiff_t>(t.size() / 2));
        median.push_back(t[t.size() / 2]);
    }
    return median;
}

void print(const frames& f, const std::vector<contender>& contenders, const std::vector<double>& t) {
    const double pixels = static_cast<double>(f.of.width) * f.of.height;
    for (std::size_t i = 0; i < t.size(); ++i)
        std::printf("| %.1f | %s | %s | %.0f | %.3f | %.2f |\n", pixels / 1e6, fcc_name(f.format).data(),
                    contenders[i].name, t[i], t[i] * 1000 / pixels, t[0] / t[i]);
}

// The bytes at the places, and nothing else: what a table with an entry for each luminance and sample costs at least.
// Places are read four at once, and what is found goes into vectors, as in the fastest kernel.
#ifdef __x86_64__
[[gnu::target("sse4.1")]]
#endif
void look_up(const std::uint8_t* table, const std::uint16_t* places, std::int32_t n, std::uint8_t* out) {
    std::int32_t x = 0;
#ifdef __x86_64__
    for (; x + 8 <= n; x += 8) {
        std::uint64_t p[2];
        std::memcpy(p, places + x, sizeof p);
        __m128i v = _mm_cvtsi32_si128(table[p[0] & 0xFFFF]);
        v = _mm_insert_epi8(v, table[p[0] >> 16 & 0xFFFF], 1);
        v = _mm_insert_epi8(v, table[p[0] >> 32 & 0xFFFF], 2);
        v = _mm_insert_epi8(v, table[p[0] >> 48], 3);
        v = _mm_insert_epi8(v, table[p[1] & 0xFFFF], 4);
        v = _mm_insert_epi8(v, table[p[1] >> 16 & 0xFFFF], 5);
        v = _mm_insert_epi8(v, table[p[1] >> 32 & 0xFFFF], 6);
        v = _mm_insert_epi8(v, table[p[1] >> 48], 7);
        std::memcpy(out + x, &v, 8);
    }
#endif
    for (; x < n; ++x) out[x] = table[places[x]];
}

// Places of the byte table as a frame's lines have them: luminances of neighbours' mean, and the samples. A few lines,
// so that they stay in the nearest cache as those do that a kernel makes.
std::vector<std::uint16_t> places_of(const frames& f) {
    std::vector<std::uint16_t> places(static_cast<std::size_t>(f.of.width) * 2);
    const std::uint8_t* const from = f.master.data() + f.master.size() / 2;
    for (std::size_t i = 0; i < places.size(); ++i)
        places[i] = static_cast<std::uint16_t>((from[i] + from[i + 1] + from[i + 2]) / 3 << 8 | from[i]);
    return places;
}

void tone() {
    std::printf("| Mpixel | format | what | us | ns/pixel | share of the copy's speed |\n|---|---|---|---|---|---|\n");
    for (const size s : sizes)
        for (const std::uint32_t format : {fcc("RGGB"), fcc("RG16"), fcc("RGCp"), fcc("Y800")}) {
            frames f(format, s);
            adaptation_table table;
            table.build(1, 0.3F, 0.4F, 0.6F);
            const tonemapping_params params{1.5F, -0.05F, table.adaptation(), table.adaptation_scaled(),
                                            table.byte_table(1.5F, -0.05F)};
            std::vector<std::byte> scratch(kernel_scratch_bytes(s.width) + 64);
            void* at = scratch.data();
            std::size_t room = scratch.size();
            std::align(64, kernel_scratch_bytes(s.width), at, room);
            const auto kernel = [&](std::uint32_t mask, bool in_place) {
                return [&, mask, in_place](std::size_t i) {
                    static const filter_table plain = get_filter_table(cpu::c), sse = get_filter_table(cpu::level_sse),
                                              avx2 = get_filter_table(cpu_mask() & cpu::level_avx2);
                    const filter_table& level = mask == cpu::c ? plain : mask == cpu::level_sse ? sse : avx2;
                    const img_descriptor from = f.view(f.in[i]), to = in_place ? from : f.view(f.out[i]);
                    find_kernel(level, kernel_slot::apply_tonemapping, to,
                                from)({to, from, 0, s.height, f.in[i].data() + f.bytes, &params,
                                       static_cast<std::byte*>(at), nullptr, 0, 0});
                };
            };
            transform_pipe whole, road, balanced;
            transform_params tones, colours;
            tones.max_concurrency = colours.max_concurrency = 1;
            tones.tonemapping_enable = colours.tonemapping_enable = true;
            colours.wb_enable = true;
            colours.wb_gain[0] = 1.5F;
            colours.color_matrix_enable = true;
            colours.color_matrix[1] = -0.2F;
            colours.gamma = 0.8F;
            const std::vector<std::uint16_t> places = places_of(f);
            std::vector<contender> all = {
                {"copy", [&](std::size_t i) { std::memcpy(f.out[i].data(), f.in[i].data(), f.bytes); }},
                {"kernel, plain", kernel(cpu::c, true)},
                {"kernel, SSE4", kernel(cpu::level_sse, true)},
                {"kernel, AVX2", kernel(cpu::level_avx2, true)},
                {"kernel, AVX2, to another image", kernel(cpu::level_avx2, false)},
                {"measured and mapped in place",
                 [&](std::size_t i) { (void)whole.transform_in_place(f.view(f.in[i]), tones); }},
                {"white balance, tones, matrix, gamma in place",
                 [&](std::size_t i) { (void)road.transform_in_place(f.view(f.in[i]), colours); }},
            };
            if (format == fcc("RGGB"))
                all.push_back({"look-ups alone", [&](std::size_t i) {
                                   const auto width = static_cast<std::size_t>(s.width);
                                   for (std::size_t y = 0; y < static_cast<std::size_t>(s.height); ++y)
                                       look_up(params.byte_table, &places[y % 2 * width], s.width,
                                               &f.out[i][y * width]);
                               }});
            print(f, all, measure(f, all));
        }
}

void automatic() {
    std::printf("| Mpixel | format | what | us | ns/pixel | copy / it |\n|---|---|---|---|---|---|\n");
    static auto_alg::temperature_table table;
    for (auto& row : table.gain)
        for (float& g : row) g = 1;
    for (const size s : sizes)
        for (const std::uint32_t format : {fcc("RGGB"), fcc("RG16"), fcc("RGCp"), fcc("YUY2"), fcc("BGR3")}) {
            frames f(format, s);
            using auto_alg::auto_pass_params;
            const auto pass = [&](auto change) {
                auto state = std::make_shared<auto_alg::auto_alg_state>();
                auto number = std::make_shared<std::uint64_t>(0);
                return [&, state, number, change](std::size_t i) {
                    auto_pass_params p;
                    p.block_id = *number += 10;
                    p.time_ns = p.block_id * 1'000'000'000;
                    change(p);
                    (void)auto_pass(*state, f.view(f.in[i]), p);
                };
            };
            const auto exposure = [](auto_pass_params& p) {
                p.exposure = {true, 1, 10000, 5000, 0, 0};
                p.gain = {true, 0, 24, 0};
            };
            // Every third frame of a run measures the contrast.
            auto focused = pass([](auto_pass_params& p) { p.focus = {true, 0, 0, 1e9F, 1, false}; });
            const std::vector<contender> all = {
                {"copy", [&](std::size_t i) { std::memcpy(f.out[i].data(), f.in[i].data(), f.bytes); }},
                {"exposure and gain", pass(exposure)},
                {"exposure, gain, white balance by steps", pass([=](auto_pass_params& p) {
                     exposure(p);
                     p.white_balance.continuous = true;
                 })},
                {"exposure, gain, white balance by temperature", pass([=](auto_pass_params& p) {
                     exposure(p);
                     p.white_balance.continuous = true;
                     p.white_balance.table = &table;
                 })},
                {"three frames of a focus run",
                 [&](std::size_t i) {
                     for (int k = 0; k < 3; ++k) focused((i + static_cast<std::size_t>(k)) % f.count);
                 }},
            };
            print(f, all, measure(f, all));
        }
}

} // namespace

int main(int argc, char** argv) {
#ifdef ORV_AVX2_MODULE
    if (load_filter_library(ORV_AVX2_MODULE, 0) != load_result::loaded)
        std::fprintf(stderr, "no AVX2 kernels: those rows are SSE4's\n");
#endif
    const std::string_view what = argc > 1 ? argv[1] : "";
    if (what != "auto") tone();
    if (what != "tone") automatic();
    return 0;
}
