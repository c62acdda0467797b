// Steps that change colours, pixel by pixel on [x, n): the matrix, and the detail that sharpening and denoising add.
#pragma once
#include "colour_rows.h"
#include "correct_rows.h"

namespace img_pipe {
namespace {

// out[i] = sum of m[i][j] * in[j] + offset, in the order of the lines.
struct line_matrix {
    float m[3][3];
    float offset[3]; // in counts of the samples
};

template <class T>
[[maybe_unused]] void apply_matrix(const line_matrix& f, three<const T> in, std::int32_t x, std::int32_t n,
                                   three<T> out) {
    constexpr float most = static_cast<float>(static_cast<T>(~T{0}));
    for (; x < n; ++x) {
        T result[3];
        for (int i = 0; i < 3; ++i) {
            float r = static_cast<float>(in.line[0][x]) * f.m[i][0] + static_cast<float>(in.line[1][x]) * f.m[i][1];
            r = r + static_cast<float>(in.line[2][x]) * f.m[i][2];
            r = r + f.offset[i];
            r = r > 0.0F ? r < most ? r : most : 0.0F; // no number counts as 0
            result[i] = static_cast<T>(nearest(r));
        }
        for (int i = 0; i < 3; ++i) out.line[i][x] = result[i];
    }
}

// Amounts in counts of 16 bits.
struct detail_amounts {
    std::uint16_t reach; // twice the difference up to which a neighbour counts in full; 0: no denoising
    std::uint16_t gain;  // of the difference from the neighbourhood's mean, in 1/8192; 0: no sharpening
    bool soften;         // the difference is taken away instead of added
};
// Differences below this are noise and not sharpened; those above `detail_most` count as that, which limits halos.
constexpr std::uint16_t detail_least = 257, detail_most = 8191;

[[maybe_unused]] std::uint16_t less(std::uint16_t a, std::uint16_t b) {
    return a > b ? static_cast<std::uint16_t>(a - b) : std::uint16_t{0};
}
[[maybe_unused]] std::uint16_t lower(std::uint16_t a, std::uint16_t b) { return a < b ? a : b; }

// What to add to and to take from each sample of the middle line; one of the two is 0. Lines have a sample before and
// behind them. Denoising moves a sample towards those neighbours that differ little: a neighbour's pull grows with its
// difference up to reach / 2, and falls to nothing at reach. Sharpening adds the difference from the mean with the
// weights 1 2 1.
[[maybe_unused]] void find_detail(const detail_amounts& d, const std::uint16_t* above, const std::uint16_t* middle,
                                  const std::uint16_t* below, std::int32_t x, std::int32_t n, std::uint16_t* plus,
                                  std::uint16_t* minus) {
    for (; x < n; ++x) {
        const std::uint16_t c = middle[x];
        const std::uint16_t near[8] = {above[x],     middle[x - 1], middle[x + 1], below[x],
                                       above[x - 1], above[x + 1],  below[x - 1],  below[x + 1]};
        std::uint32_t up = 0, down = 0, over = 0, under = 0;
        for (int i = 0; i < 8; ++i) {
            const std::uint16_t more = less(near[i], c), fewer = less(c, near[i]);
            up += lower(more, less(d.reach, more));
            down += lower(fewer, less(d.reach, fewer));
            over += static_cast<std::uint32_t>(fewer >> (i < 4 ? 3 : 4));
            under += static_cast<std::uint32_t>(more >> (i < 4 ? 3 : 4));
        }
        // A ninth, the sample itself being one of nine.
        up = (up + 4) * 7282 >> 16;
        down = (down + 4) * 7282 >> 16;
        const auto scaled = [&](std::uint32_t a, std::uint32_t b) {
            const std::uint16_t most = lower(
                less(less(static_cast<std::uint16_t>(a), static_cast<std::uint16_t>(b)), detail_least), detail_most);
            return static_cast<std::uint32_t>(most) * 8 * d.gain >> 16;
        };
        const std::uint32_t add = scaled(over, under), take = scaled(under, over);
        up += d.soften ? take : add;
        down += d.soften ? add : take;
        plus[x] = static_cast<std::uint16_t>(up > down ? (up - down > 65535 ? 65535 : up - down) : 0);
        minus[x] = static_cast<std::uint16_t>(down > up ? (down - up > 65535 ? 65535 : down - up) : 0);
    }
}

// Adds detail, given in counts of 16 bits, to samples.
[[maybe_unused]] void add_detail8(const std::uint16_t* plus, const std::uint16_t* minus, const std::uint8_t* in,
                                  std::int32_t x, std::int32_t n, std::uint8_t* out) {
    const auto rounded = [](std::int32_t v) { return (v - (v >> 8) + 128) >> 8; };
    for (; x < n; ++x) out[x] = clamp8(in[x] + rounded(plus[x]) - rounded(minus[x]));
}
[[maybe_unused]] void add_detail16(const std::uint16_t* plus, const std::uint16_t* minus, const std::uint16_t* in,
                                   std::int32_t x, std::int32_t n, std::uint16_t* out) {
    for (; x < n; ++x) {
        const std::int32_t v = in[x] + plus[x] - minus[x];
        out[x] = static_cast<std::uint16_t>(v < 0 ? 0 : v > 65535 ? 65535 : v);
    }
}

} // namespace
} // namespace img_pipe
