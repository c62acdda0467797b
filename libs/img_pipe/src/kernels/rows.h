// Lines as the kernels hold them: padded line buffers of 16-bit samples, mirrored at their ends, and a ring of them.
//
// A sample in a line buffer is 16 bits, the format's own bits at the top: 10 bits are value << 6, 12 bits value << 4,
// 8 bits value << 8 | value. So kernels need no depth, and going back is a shift right. The mirror does not repeat the
// edge sample (-k -> k, n - 1 + k -> n - 1 - k), which keeps a mosaic's phase.
//
// Included by kernel objects of every level: everything here has internal linkage, so that no code of a higher level
// can be taken for another's.
#pragma once
#include <img_pipe/filter_module.h>

namespace img_pipe {
namespace {

// Samples a line buffer holds on each side of the line: a whole vector of any level, and more than any kernel reaches.
constexpr std::int32_t line_pad = 32;

// Index of the mirrored line or sample of `i` in [0, n); for any i and n >= 1.
[[maybe_unused]] std::int32_t mirror(std::int32_t i, std::int32_t n) {
    if (n == 1) return 0;
    while (i < 0 || i >= n) i = i < 0 ? -i : 2 * (n - 1) - i;
    return i;
}

// Fills `count` samples on each side of line[0 .. n). `count` <= line_pad.
[[maybe_unused]] void mirror_ends(std::uint16_t* line, std::int32_t n, std::int32_t count) {
    for (std::int32_t k = 1; k <= count; ++k) {
        line[-k] = line[mirror(-k, n)];
        line[n - 1 + k] = line[mirror(n - 1 + k, n)];
    }
}

// Samples from one line of a ring to the next: no multiple of 4096 bytes, so that lines fall into different cache sets.
[[maybe_unused]] std::size_t ring_pitch(std::int32_t width) {
    std::size_t pitch = (static_cast<std::size_t>(width) + 2 * line_pad + 63) / 64 * 64;
    if (pitch % 2048 == 0) pitch += 64;
    return pitch;
}

// `count` padded lines over a strip's scratch, found by their line number in the image: line y lies in place y mod
// count.
struct row_ring {
    std::uint16_t* base;
    std::size_t pitch;
    std::int32_t count;
    std::uint16_t* line(std::int32_t y) const {
        return base + pitch * static_cast<std::size_t>((y + count * 4) % count) + line_pad;
    }
};

// Takes `count` lines from *at, and moves it on. kernel_scratch_bytes holds 96 lines of 16-bit samples.
[[maybe_unused]] row_ring take_ring(std::byte*& at, std::int32_t width, std::int32_t count) {
    row_ring ring{reinterpret_cast<std::uint16_t*>(at), ring_pitch(width), count};
    at += ring.pitch * sizeof(std::uint16_t) * static_cast<std::size_t>(count);
    return ring;
}

// How the samples of a one-sample-per-pixel format lie in memory.
enum class packing : std::uint8_t {
    none,     // no such format
    plain8,   // a byte
    plain16,  // little-endian 16 bits; `shift` bits free at the top
    p10,      // least significant bit first, no gap
    p12,      //
    packed12, // two high bytes around a byte of both low parts
    mipi10,   // four high bytes, then a byte of low parts
    mipi12,   // two high bytes, then a byte of low parts
    real,     // 32-bit float; 0 to 1 are the range of 16 bits, what lies outside counts as its end
};

// A mosaic's phase: the colour of the upper left sample and of its right neighbour.
enum class phase : std::int8_t { grey = -1, bg = 0, gb = 1, gr = 2, rg = 3 };

struct sample_layout {
    packing pack;
    std::uint8_t shift; // from the format's value to the top of 16 bits (plain16 and packed)
    phase mosaic;
};

// Samples that share bytes: a line of another number of them ends inside a group.
[[maybe_unused]] std::int32_t group_of(packing pack) {
    if (pack == packing::p10 || pack == packing::mipi10) return 4;
    return pack == packing::p12 || pack == packing::packed12 || pack == packing::mipi12 ? 2 : 1;
}

// The layout of mono, mosaic, raw and polarisation formats; packing::none for all others.
[[maybe_unused]] sample_layout layout_of(std::uint32_t id) {
    struct entry {
        std::uint32_t id;
        packing pack;
        std::uint8_t shift;
    };
    static constexpr entry grey[] = {
        {fcc("Y800"), packing::plain8, 8},   {fcc("Y10 "), packing::plain16, 6},  {fcc("Y12 "), packing::plain16, 4},
        {fcc("Y16 "), packing::plain16, 0},  {fcc("Y10p"), packing::p10, 6},      {fcc("Y10P"), packing::mipi10, 6},
        {fcc("Y12p"), packing::p12, 4},      {fcc("Y12P"), packing::packed12, 4}, {fcc("Y1DP"), packing::mipi12, 4},
        {fcc("RAW1"), packing::plain8, 8},   {fcc("RAW2"), packing::plain16, 0},  {fcc("P180"), packing::plain8, 8},
        {fcc("P280"), packing::plain8, 8},   {fcc("P116"), packing::plain16, 0},  {fcc("P216"), packing::plain16, 0},
        {fcc("P1CP"), packing::packed12, 4}, {fcc("P2CP"), packing::packed12, 4}, {fcc("P1Cp"), packing::p12, 4},
        {fcc("P2Cp"), packing::p12, 4},
    };
    static constexpr entry companded[] = {
        // red first
        {fcc("PWL1"), packing::mipi12, 4},
        {fcc("PWL2"), packing::packed12, 4},
        {fcc("PWL3"), packing::p12, 4},
    };
    struct group {
        std::uint32_t id[4]; // by phase
        packing pack;
        std::uint8_t shift;
    };
    static constexpr group mosaics[] = {
        {{fcc("BA81"), fcc("GBRG"), fcc("GRBG"), fcc("RGGB")}, packing::plain8, 8},
        {{fcc("BG10"), fcc("GB10"), fcc("BA10"), fcc("RG10")}, packing::plain16, 6},
        {{fcc("BG12"), fcc("GB12"), fcc("BA12"), fcc("RG12")}, packing::plain16, 4},
        {{fcc("BG16"), fcc("GB16"), fcc("BA16"), fcc("RG16")}, packing::plain16, 0},
        {{fcc("BGAp"), fcc("GBAp"), fcc("GRAp"), fcc("RGAp")}, packing::p10, 6},
        {{fcc("BGAP"), fcc("GBAP"), fcc("GRAP"), fcc("RGAP")}, packing::mipi10, 6},
        {{fcc("BGCp"), fcc("GBCp"), fcc("GRCp"), fcc("RGCp")}, packing::p12, 4},
        {{fcc("BGCP"), fcc("GBCP"), fcc("GRCP"), fcc("RGCP")}, packing::packed12, 4},
        {{fcc("BGDP"), fcc("GBDP"), fcc("GRDP"), fcc("RGDP")}, packing::mipi12, 4},
        {{fcc("BGf0"), fcc("GBf0"), fcc("BAf0"), fcc("RGf0")}, packing::real, 0},
    };
    for (const entry& e : grey)
        if (e.id == id) return {e.pack, e.shift, phase::grey};
    for (const entry& e : companded)
        if (e.id == id) return {e.pack, e.shift, phase::rg};
    for (const group& g : mosaics)
        for (std::int8_t i = 0; i < 4; ++i)
            if (g.id[i] == id) return {g.pack, g.shift, static_cast<phase>(i)};
    return {packing::none, 0, phase::grey};
}

// The kernel of a table's row for the pair; null when there is none.
[[maybe_unused]] kernel_fn find_in(const kernel_row* row, std::uint32_t destination, std::uint32_t source) {
    for (; row->function != nullptr; ++row)
        if (row->destination == destination && row->source == source) return row->function;
    return nullptr;
}

} // namespace
} // namespace img_pipe
