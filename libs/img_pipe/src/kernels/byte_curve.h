// A table of 256 bytes as a curve that vectors compute: straight pieces of eight entries, each entry up to one above
// its piece. Corrections of light give such tables nearly everywhere; the few blocks of sixteen where a curve is
// steeper or has a corner are kept as they are.
#pragma once
#include <cstdint>
#include <cstring>

namespace img_pipe {
namespace {

constexpr int most_exact_blocks = 4;

struct byte_curve {
    alignas(16) std::uint8_t base[32];  // of entries 8 i on
    alignas(16) std::uint8_t slope[32]; // in parts of 16
    alignas(16) std::uint8_t above[32]; // bit k: entry 8 i + k is one above its piece
    alignas(16) std::uint8_t exact[most_exact_blocks][16];
    std::uint8_t exact_at[most_exact_blocks]; // first entry of the block; a number that is no multiple of 16: none
    int exact_blocks;                         // more than most_exact_blocks: the table is no such curve
    bool unchanged;                           // the table gives each byte itself, as green's mostly does
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
    curve.exact_blocks = 0;
    for (std::uint8_t& at : curve.exact_at) at = 1;
    for (int block = 0; block < 16; ++block) {
        bool fits = true;
        for (int i = 2 * block; i < 2 * block + 2; ++i) {
            curve.base[i] = curve.slope[i] = curve.above[i] = 0;
            fits = fit_piece(table + 8 * i, curve.base[i], curve.slope[i], curve.above[i]) && fits;
        }
        if (fits) continue;
        if (curve.exact_blocks < most_exact_blocks) {
            std::memcpy(curve.exact[curve.exact_blocks], table + 16 * block, 16);
            curve.exact_at[curve.exact_blocks] = static_cast<std::uint8_t>(16 * block);
        }
        ++curve.exact_blocks;
    }
}

} // namespace
} // namespace img_pipe
