// A table of 256 bytes as a curve that vectors compute: straight pieces of eight entries, each entry up to one above
// its piece. Corrections of light give such tables nearly everywhere; the few pieces where a curve bends or has
// a corner are kept as they are.
#pragma once
#include <cstdint>
#include <cstring>

namespace img_pipe {
namespace {

constexpr int most_exact = 4;

struct byte_curve {
    alignas(16) std::uint8_t base[32];              // of entries 8 i on
    alignas(16) std::uint8_t slope[32];             // in parts of 16
    alignas(16) std::uint8_t above[32];             // bit k: entry 8 i + k is one above its piece
    alignas(16) std::uint8_t exact[most_exact][16]; // the eight entries of a piece that is kept
    std::uint8_t exact_at[most_exact];              // which piece; 255: none
    int exact_count;                                // more than most_exact: the table is no such curve
    bool unchanged;                                 // the table gives each byte itself, as green's mostly does
    std::uint8_t table[256];
};

[[maybe_unused]] std::int32_t on_piece(std::int32_t base, std::int32_t slope, std::int32_t k) {
    const std::int32_t v = (16 * base + slope * k) >> 4;
    return v < 255 ? v : 255;
}

// Whether the piece's eight entries lie on a straight one, or one above.
[[maybe_unused]] bool fit_piece(const std::uint8_t* entries, std::uint8_t& base, std::uint8_t& slope,
                                std::uint8_t& above) {
    for (std::int32_t b = entries[0]; b >= entries[0] - 1 && b >= 0; --b) {
        std::int32_t least = 0, most = 255;
        for (std::int32_t k = 1; k < 8; ++k) {
            const std::int32_t rise = entries[k] - b, low = (16 * (rise - 1) + k - 1) / k;
            if (rise > 0) least = low > least ? low : least;
            if (rise < 0) most = -1;
            if (const std::int32_t high = (16 * rise + 15) / k; entries[k] != 255 && high < most) most = high;
        }
        if (least > most) continue;
        base = static_cast<std::uint8_t>(b);
        slope = static_cast<std::uint8_t>(least);
        above = 0;
        for (std::int32_t k = 0; k < 8; ++k)
            if (on_piece(b, least, k) != entries[k]) above = static_cast<std::uint8_t>(above | 1 << k);
        return true;
    }
    return false;
}

[[maybe_unused]] void fit_curve(const std::uint8_t* table, byte_curve& curve) {
    std::memcpy(curve.table, table, 256);
    curve.unchanged = true;
    for (int v = 0; v < 256; ++v) curve.unchanged = curve.unchanged && table[v] == v;
    curve.exact_count = 0;
    std::memset(curve.exact, 0, sizeof(curve.exact));
    std::memset(curve.exact_at, 255, sizeof(curve.exact_at));
    for (int i = 0; i < 32; ++i) {
        curve.base[i] = curve.slope[i] = curve.above[i] = 0;
        if (fit_piece(table + 8 * i, curve.base[i], curve.slope[i], curve.above[i])) continue;
        if (curve.exact_count < most_exact) {
            std::memcpy(curve.exact[curve.exact_count], table + 8 * i, 8);
            curve.exact_at[curve.exact_count] = static_cast<std::uint8_t>(i);
        }
        ++curve.exact_count;
    }
}

} // namespace
} // namespace img_pipe
