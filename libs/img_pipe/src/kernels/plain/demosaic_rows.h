// The steps of the demosaic, sample by sample; the reference for the vector levels. All arithmetic is that of unsigned
// lanes of T (8 or 16 bits): averages rounded up, sums and differences that stop at the ends of the range.
//
// A line of a mosaic is two half lines, one sample of each per cell of 2 x 2: the greens `g`, and `c`, the red or blue
// of that line. A colour difference is held halved, around the middle of the range (see half_difference), and only
// compared; colours are computed from the samples themselves, so that no bit of them is lost.
#pragma once
#include "../colour_layout.h"

namespace img_pipe {
namespace {

template <class T>
constexpr std::int32_t most_of = static_cast<T>(~T{0});
template <class T>
constexpr std::int32_t middle_of = most_of<T> / 2 + 1;
// Colour differences that are less than this apart, in counts, show no edge.
template <class T>
constexpr std::int32_t least_edge = 4 * (most_of<T> / 255);
// Directions whose steps are no further apart than this, in halves of a count, are alike.
template <class T>
constexpr std::int32_t alike = 2 * (most_of<T> / 255);

// What the search for the direction sees of a line: half lines of the line itself and its neighbours.
template <class T>
struct green_lines {
    const T *c, *g;             // this line
    const T *g_above, *g_below; // green above and below each c
    const T *c_above, *c_below; // the same colour two lines away
    bool c_first;               // c stands in the even columns
};

// Green at each c, taken along the line and across it, and c's differences from them.
template <class T>
struct candidate_lines {
    T *h, *v, *difference_h, *difference_v;
    const T* difference_above; // difference_v two lines above
    T* step_v;                 // how far the two stand apart
};

template <class T>
struct vote_lines {
    const T* step_h[3]; // of lines y - 1 .. y + 1: steps of the differences along the line between cells k and k + 1
    const T* step_v[3]; // across: between lines y - 2 and y, y - 1 and y + 1, y and y + 2
    const T* h;         // green of this line along it,
    const T* v[3];      // and of lines y - 2, y, y + 2 across
    const T* c[3];      // samples of these lines
    bool c_first;
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

// Green at c along one direction: the mean of its neighbours, and half of what c stands above its own neighbours, but
// no further from the four greens around than they are apart: red and blue may have edges where green has none.
template <class T>
[[maybe_unused]] std::int32_t green_between(std::int32_t c, std::int32_t g0, std::int32_t g1, std::int32_t c0,
                                            std::int32_t c1, std::int32_t low, std::int32_t high) {
    const std::int32_t above = half_difference<T>(c, average(c0, c1)) - middle_of<T>;
    return lesser(greater(limited<T>(average(g0, g1) + above), low), high);
}

template <class T>
[[maybe_unused]] void candidates(const green_lines<T>& in, std::int32_t first, std::int32_t end,
                                 const candidate_lines<T>& out) {
    const std::int32_t w = in.c_first ? -1 : 0;
    for (std::int32_t k = first; k < end; ++k) {
        const std::int32_t c = in.c[k], left = in.g[k + w], right = in.g[k + w + 1], up = in.g_above[k],
                           down = in.g_below[k];
        const std::int32_t least = lesser(lesser(left, right), lesser(up, down));
        const std::int32_t most = greater(greater(left, right), greater(up, down));
        const std::int32_t low = limited<T>(least - (most - least)), high = limited<T>(most + (most - least));
        const std::int32_t h = green_between<T>(c, left, right, in.c[k - 1], in.c[k + 1], low, high);
        const std::int32_t v = green_between<T>(c, up, down, in.c_above[k], in.c_below[k], low, high);
        out.h[k] = static_cast<T>(h);
        out.v[k] = static_cast<T>(v);
        out.difference_h[k] = static_cast<T>(half_difference<T>(c, h));
        out.difference_v[k] = static_cast<T>(half_difference<T>(c, v));
        out.step_v[k] = static_cast<T>(apart(out.difference_v[k], out.difference_above[k]));
    }
}

// How far two lines of differences stand apart.
template <class T>
[[maybe_unused]] void steps(const T* a, const T* b, std::int32_t first, std::int32_t end, T* out) {
    for (std::int32_t k = first; k < end; ++k) out[k] = static_cast<T>(apart(a[k], b[k]));
}

// The direction along which the colour differences around change less, both where they are alike; then c less the
// difference of this colour from green, smoothed along that direction.
template <class T>
[[maybe_unused]] void choose(const vote_lines<T>& in, std::int32_t first, std::int32_t end, T* green, T* difference) {
    const std::int32_t w = in.c_first ? -1 : 0; // cell of the left neighbour in the lines above and below
    for (std::int32_t k = first; k < end; ++k) {
        const std::int32_t along =
            average(average(in.step_h[1][k - 1], in.step_h[1][k]), average(in.step_h[0][k + w], in.step_h[2][k + w]));
        const std::int32_t across =
            average(average(in.step_v[0][k], in.step_v[2][k]), average(in.step_v[1][k + w], in.step_v[1][k + w + 1]));
        const std::int32_t c = in.c[1][k];
        const auto smoothed = [&](std::int32_t g, std::int32_t g0, std::int32_t g1, std::int32_t c0, std::int32_t c1) {
            return limited<T>(average(g, average(g0, g1)) + c - average(c, average(c0, c1)));
        };
        const std::int32_t h = smoothed(in.h[k], in.h[k - 1], in.h[k + 1], in.c[1][k - 1], in.c[1][k + 1]);
        const std::int32_t v = smoothed(in.v[1][k], in.v[0][k], in.v[2][k], in.c[0][k], in.c[2][k]);
        const std::int32_t chosen = along + alike<T> < across ? h : across + alike<T> < along ? v : average(h, v);
        green[k] = static_cast<T>(chosen);
        difference[k] = static_cast<T>(half_difference<T>(c, chosen));
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
