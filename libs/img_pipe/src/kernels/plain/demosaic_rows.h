// The steps of the demosaic, sample by sample; the reference for the vector levels. All arithmetic is that of unsigned
// lanes of T (8 or 16 bits): averages rounded up, sums and differences that stop at the ends of the range.
//
// A line of a mosaic is two half lines, one sample of each per cell of 2 x 2: the greens `g`, and `c`, the red or blue
// of that line. A colour difference is held halved, around the middle of the range (see half_difference), and only
// compared; colours are computed from the samples themselves, so that no bit of them is lost.
#pragma once
#include "../colour_layout.h"
#include "colour_rows.h"
#include "correct_rows.h"

namespace img_pipe {
namespace {

template <class T>
constexpr std::int32_t most_of = static_cast<T>(~T{0});
// Colour differences that are less than this apart, in counts, show no edge.
template <class T>
constexpr std::int32_t least_edge = 4 * (most_of<T> / 255);
// What green at the samples of red or blue is made from: half lines of the line itself and its neighbours.
template <class T>
struct green_lines {
    const T *c, *g;             // this line
    const T *g_above, *g_below; // green above and below each c
    const T *c_above, *c_below; // the same colour two lines away
    bool c_first;               // c stands in the even columns
};

// Green of cells [first, end) of a line, and `difference`: c less green.
template <class T>
struct green_step {
    green_lines<T> lines;
    std::int32_t first, end;
    T *green, *difference;
};

template <class T>
struct mosaic_lines {
    const T *c, *g;
    const T *green, *difference;                       // green at each c of this line, c's difference from it
    const T *c_above, *green_above, *difference_above; // of the other colour, in the line above
    const T *c_below, *green_below, *difference_below;
    bool c_first;
    bool red; // c is red
};

// A line of BGR3, BGR4 or, of 16-bit lanes, RGB6, and the line of the mosaic that is read next, so that it can be on
// its way.
struct pixel_lines {
    std::uint8_t* to;
    std::int32_t channels;
    bool past_caches;
    const std::uint8_t* next;
    std::int32_t next_step; // bytes of a cell there
};

// Pixels [x, n) of three or four samples.
[[maybe_unused]] void join_pixels(std::int32_t channels, in8 in, std::int32_t x, std::int32_t n, std::uint8_t* to) {
    join_bgr(channels, in, x, n, to);
}
[[maybe_unused]] void join_pixels(std::int32_t, in16 in, std::int32_t x, std::int32_t n, std::uint8_t* to) {
    join_bgr16(in, x, n, to);
}

[[maybe_unused]] std::int32_t average(std::int32_t a, std::int32_t b) { return (a + b + 1) >> 1; }
[[maybe_unused]] std::int32_t lesser(std::int32_t a, std::int32_t b) { return a < b ? a : b; }
[[maybe_unused]] std::int32_t greater(std::int32_t a, std::int32_t b) { return a > b ? a : b; }
[[maybe_unused]] std::int32_t apart(std::int32_t a, std::int32_t b) { return a < b ? b - a : a - b; }

template <class T>
[[maybe_unused]] std::int32_t limited(std::int32_t v) {
    return v < 0 ? 0 : v > most_of<T> ? most_of<T> : v;
}
// (a - b) / 2 around the middle of the range.
template <class T>
[[maybe_unused]] std::int32_t half_difference(std::int32_t a, std::int32_t b) {
    return average(a, most_of<T> - b);
}

// `n` samples of 16 bits to half lines; 8-bit lanes get the upper byte.
template <class T>
[[maybe_unused]] void split_line(const std::uint16_t* line, std::int32_t n, T* even, T* odd) {
    for (std::int32_t x = 0; x < n; ++x) {
        T* half = x % 2 == 0 ? even : odd; // g++ 12 with UBSan gets (c ? a : b)[i] wrong
        half[x / 2] = static_cast<T>(sizeof(T) == 1 ? line[x] >> 8U : line[x]);
    }
}

[[maybe_unused]] void split_bytes(const std::uint8_t* line, std::int32_t n, std::uint8_t* even, std::uint8_t* odd) {
    for (std::int32_t x = 0; x < n; ++x) {
        std::uint8_t* half = x % 2 == 0 ? even : odd;
        half[x / 2] = line[x];
    }
}

// Samples of 16 bits as they lie in an image, `shift` bits free at the top, to their upper bytes.
[[maybe_unused]] void split_words(const std::uint8_t* line, std::int32_t n, int shift, std::uint8_t* even,
                                  std::uint8_t* odd) {
    for (std::int32_t x = 0; x < n; ++x) {
        const unsigned v = (line[2 * x] | static_cast<unsigned>(line[2 * x + 1]) << 8U) << shift;
        std::uint8_t* half = x % 2 == 0 ? even : odd;
        half[x / 2] = static_cast<std::uint8_t>(v >> 8U);
    }
}

// As split_words to samples of 16 bits, each times the gain of its site.
[[maybe_unused]] void split_corrected(const sample_params& p, std::int32_t y, const std::uint8_t* line, std::int32_t n,
                                      int shift, std::uint16_t* even, std::uint16_t* odd) {
    const float* gain = p.gain + (y & 1) * 2;
    for (std::int32_t x = 0; x < n; ++x) {
        const unsigned v = (line[2 * x] | static_cast<unsigned>(line[2 * x + 1]) << 8U) << shift;
        std::uint16_t* half = x % 2 == 0 ? even : odd;
        half[x / 2] = correct_sample(p, gain[x & 1], static_cast<std::uint16_t>(v));
    }
}

// Green at each c, along the line or across it, wherever greens and c itself change less: the mean of its two
// neighbours there, and half of what c stands above its own. That half is no more than the greens around differ: red
// and blue may have edges where green has none.
template <class T>
[[maybe_unused]] void find_green(const green_step<T>& step) {
    const green_lines<T>& in = step.lines;
    const std::int32_t w = in.c_first ? -1 : 0; // from c to the green on its left
    for (std::int32_t k = step.first; k < step.end; ++k) {
        const std::int32_t c = in.c[k], left = in.g[k + w], right = in.g[k + w + 1], up = in.g_above[k],
                           down = in.g_below[k];
        const std::int32_t g_h = average(left, right), g_v = average(up, down);
        const std::int32_t c_h = average(in.c[k - 1], in.c[k + 1]), c_v = average(in.c_above[k], in.c_below[k]);
        const std::int32_t step_h = apart(left, right), step_v = apart(up, down);
        const bool along = average(step_h, apart(c, c_h)) <= average(step_v, apart(c, c_v));
        const std::int32_t limit = limited<T>(apart(g_h, g_v) + lesser(step_h, step_v));
        const std::int32_t c_mean = along ? c_h : c_v;
        const std::int32_t change = lesser((apart(c, c_mean) + 1) / 2, limit);
        const std::int32_t found = limited<T>((along ? g_h : g_v) + (c > c_mean ? change : -change));
        step.green[k] = static_cast<T>(found);
        step.difference[k] = static_cast<T>(half_difference<T>(c, found));
    }
}

// Red or blue beside a sample whose green is `g`, from its neighbours: their mean, and what g stands above theirs, or
// the mean alone where the colour differences change more than the colour itself: an edge of the other channels only.
// `d_apart` is in halves, `c_apart` in whole counts.
template <class T>
[[maybe_unused]] std::int32_t colour_between(std::int32_t g, std::int32_t c_mean, std::int32_t g_mean,
                                             std::int32_t c_apart, std::int32_t d_apart) {
    return d_apart > average(c_apart, least_edge<T>) ? c_mean : limited<T>(c_mean + g - g_mean);
}

template <class T>
[[maybe_unused]] void colours(const mosaic_lines<T>& in, std::int32_t first, std::int32_t end, three<T> out) {
    const int at_c = in.c_first ? 0 : 1, at_g = 1 - at_c;
    const std::int32_t w = in.c_first ? 0 : -1; // from a green to the c on its left
    T *own = out.line[in.red ? 2 : 0], *other = out.line[in.red ? 0 : 2];
    for (std::int32_t k = first; k < end; ++k) {
        const std::int32_t c = 2 * k + at_c, g = 2 * k + at_g;
        own[c] = in.c[k];
        out.line[1][c] = in.green[k];
        out.line[1][g] = in.g[k];
        // The other colour at c, from its four diagonal neighbours.
        const std::int32_t l = k - 1 - w, r = k - w;
        const auto mean = [&](const T* a, const T* b) { return average(average(a[l], b[l]), average(a[r], b[r])); };
        const auto range = [&](const T* a, const T* b) {
            return greater(greater(a[l], b[l]), greater(a[r], b[r])) - lesser(lesser(a[l], b[l]), lesser(a[r], b[r]));
        };
        other[c] = static_cast<T>(colour_between<T>(in.green[k], mean(in.c_above, in.c_below),
                                                    mean(in.green_above, in.green_below), range(in.c_above, in.c_below),
                                                    range(in.difference_above, in.difference_below)));
        own[g] = static_cast<T>(colour_between<T>(
            in.g[k], average(in.c[k + w], in.c[k + w + 1]), average(in.green[k + w], in.green[k + w + 1]),
            apart(in.c[k + w], in.c[k + w + 1]), apart(in.difference[k + w], in.difference[k + w + 1])));
        other[g] = static_cast<T>(colour_between<T>(
            in.g[k], average(in.c_above[k], in.c_below[k]), average(in.green_above[k], in.green_below[k]),
            apart(in.c_above[k], in.c_below[k]), apart(in.difference_above[k], in.difference_below[k])));
    }
}

} // namespace
} // namespace img_pipe
