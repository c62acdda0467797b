// The steps of the demosaic, sample by sample; the reference for the vector levels.
//
// A line of a mosaic is two half lines, one sample of each per cell of 2 x 2: the greens `g`, and `c`, the red or blue
// of that line. Samples are 15 bits (`s15`: 0 to 32767). A colour difference c - green is held plus 32768 (`diff`, 16
// bits without sign), so that averages of it need no more bits.
#pragma once
#include "colour_out_rows.h"

namespace img_pipe {
namespace {

using diff = std::uint16_t;

// What the search for the direction sees of a line: half lines of the line itself and its neighbours.
struct green_lines {
    const s15 *c, *g;             // this line
    const s15 *g_above, *g_below; // green above and below each c
    const s15 *c_above, *c_below; // the same colour two lines away
    bool c_first;                 // c stands in the even columns
};

struct vote_lines {
    const diff* step_h[5]; // of lines y - 2 .. y + 2: horizontal steps between cells k and k + 1
    const diff* step_v[3]; // between lines y - 2 and y, y - 1 and y + 1, y and y + 2
    const diff* h;         // differences with green taken along the line,
    const diff* v[3];      // and across it, of lines y - 2, y, y + 2
    bool c_first;
};

struct mosaic_lines {
    const s15 *c, *g;
    const diff* own;              // c - green of this line
    const diff *above, *below;    // of the other colour
    const s15 *c_above, *c_below; // and its samples
    bool c_first;
    bool red; // c is red
};

[[maybe_unused]] std::int32_t step(std::int32_t a, std::int32_t b) { return (a > b ? a - b : b - a) >> 5; }

// `n` samples at the top of 16 bits to half lines. 8-bit samples become value << 7.
[[maybe_unused]] void split_line(const std::uint16_t* line, std::int32_t n, bool bytes, s15* even, s15* odd) {
    const std::uint16_t mask = bytes ? 0x7F80 : 0x7FFF;
    for (std::int32_t x = 0; x < n; ++x) (x % 2 == 0 ? even : odd)[x / 2] = static_cast<s15>(line[x] >> 1U & mask);
}

[[maybe_unused]] void split_bytes(const std::uint8_t* line, std::int32_t n, s15* even, s15* odd) {
    for (std::int32_t x = 0; x < n; ++x) (x % 2 == 0 ? even : odd)[x / 2] = static_cast<s15>(line[x] << 7U);
}

// Green at c along one direction: the mean of its neighbours, and half of what c stands above its own neighbours, but
// no further from the four greens around than they are apart: red and blue may have edges where green has none.
[[maybe_unused]] diff difference(std::int32_t c, std::int32_t g0, std::int32_t g1, std::int32_t c0, std::int32_t c1,
                                 std::int32_t low, std::int32_t high) {
    s15 green = saturate(average(g0, g1) + ((c - average(c0, c1)) >> 1));
    green = green < low ? static_cast<s15>(low) : green;
    green = green > high ? static_cast<s15>(high) : green;
    return static_cast<diff>(c + 32768 - green);
}

[[maybe_unused]] std::int32_t lesser(std::int32_t a, std::int32_t b) { return a < b ? a : b; }
[[maybe_unused]] std::int32_t greater(std::int32_t a, std::int32_t b) { return a > b ? a : b; }

[[maybe_unused]] void candidates(const green_lines& in, std::int32_t first, std::int32_t end, diff* h, diff* v) {
    const std::int32_t w = in.c_first ? -1 : 0;
    for (std::int32_t k = first; k < end; ++k) {
        const std::int32_t left = in.g[k + w], right = in.g[k + w + 1], up = in.g_above[k], down = in.g_below[k];
        const std::int32_t least = lesser(lesser(left, right), lesser(up, down));
        const std::int32_t most = greater(greater(left, right), greater(up, down));
        const std::int32_t low = positive(least - (most - least)), high = saturate(most + (most - least));
        h[k] = difference(in.c[k], left, right, in.c[k - 1], in.c[k + 1], low, high);
        v[k] = difference(in.c[k], up, down, in.c_above[k], in.c_below[k], low, high);
    }
}

// How far two lines of differences stand apart, in 32nds.
[[maybe_unused]] void steps(const diff* a, const diff* b, std::int32_t first, std::int32_t end, diff* out) {
    for (std::int32_t k = first; k < end; ++k) out[k] = static_cast<diff>(step(a[k], b[k]));
}

// The direction along which the colour differences change less in a window of 5 x 5; both where they are alike.
[[maybe_unused]] void choose(const vote_lines& in, std::int32_t first, std::int32_t end, diff* out) {
    const std::int32_t w = in.c_first ? -1 : 0; // cell of the left neighbour in the lines above and below
    for (std::int32_t k = first; k < end; ++k) {
        const auto pair = [&](int line) { return in.step_h[line][k - 1] + in.step_h[line][k]; };
        const auto column = [&](std::int32_t i) { return in.step_v[0][i] + in.step_v[2][i]; };
        const std::int32_t along = 3 * pair(2) + pair(0) + pair(4) + in.step_h[1][k + w] + in.step_h[3][k + w];
        const std::int32_t across =
            3 * column(k) + column(k - 1) + column(k + 1) + in.step_v[1][k + w] + in.step_v[1][k + w + 1];
        const std::int32_t h = average(in.h[k], average(in.h[k - 1], in.h[k + 1]));
        const std::int32_t v = average(in.v[1][k], average(in.v[0][k], in.v[2][k]));
        out[k] = static_cast<diff>(along < across ? h : across < along ? v : average(h, v));
    }
}

[[maybe_unused]] s15 add_difference(std::int32_t green, std::int32_t d) { return saturate(green + (d - 32768)); }

// Whether colour differences that are `d` apart say less than the colour's own samples, which are `c` apart: an edge
// of the other channels alone.
[[maybe_unused]] bool own_is_smoother(std::int32_t d, std::int32_t c) { return d > c - (c >> 2) + 1024; }

[[maybe_unused]] s15 between(std::int32_t green, std::int32_t d0, std::int32_t d1, std::int32_t c0, std::int32_t c1) {
    const bool direct = own_is_smoother(greater(d0, d1) - lesser(d0, d1), greater(c0, c1) - lesser(c0, c1));
    return direct ? static_cast<s15>(average(c0, c1)) : add_difference(green, average(d0, d1));
}

[[maybe_unused]] void colours(const mosaic_lines& in, std::int32_t n, const colour_halves& out) {
    const int at_c = in.c_first ? 0 : 1, at_g = 1 - at_c;
    const std::int32_t w = in.c_first ? 0 : -1; // from a green to the c on its left
    s15* const* own = in.red ? out.r : out.b;
    s15* const* other = in.red ? out.b : out.r;
    for (std::int32_t k = 0; k < n; ++k) {
        const s15 green = saturate(in.c[k] - (in.own[k] - 32768));
        own[at_c][k] = in.c[k];
        out.g[at_c][k] = green;
        // The other colour at c, from its four diagonal neighbours.
        const std::int32_t l = k - 1 - w, r = k - w;
        const std::int32_t d = greater(greater(in.above[l], in.above[r]), greater(in.below[l], in.below[r])) -
                               lesser(lesser(in.above[l], in.above[r]), lesser(in.below[l], in.below[r]));
        const std::int32_t c = greater(greater(in.c_above[l], in.c_above[r]), greater(in.c_below[l], in.c_below[r])) -
                               lesser(lesser(in.c_above[l], in.c_above[r]), lesser(in.c_below[l], in.c_below[r]));
        other[at_c][k] =
            own_is_smoother(d, c)
                ? static_cast<s15>(
                      average(average(in.c_above[l], in.c_below[l]), average(in.c_above[r], in.c_below[r])))
                : add_difference(green, average(average(in.above[l], in.below[l]), average(in.above[r], in.below[r])));
        own[at_g][k] = between(in.g[k], in.own[k + w], in.own[k + w + 1], in.c[k + w], in.c[k + w + 1]);
        out.g[at_g][k] = in.g[k];
        other[at_g][k] = between(in.g[k], in.above[k], in.below[k], in.c_above[k], in.c_below[k]);
    }
}

} // namespace
} // namespace img_pipe
