#include <gige/test_picture.h>

#include <gige/test_picture_format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

namespace gige {

namespace {

constexpr uint32_t ramp_period = 512; // pixels; a multiple of every group and of 8
constexpr uint32_t cell = 8;          // pixels that always end on a byte boundary, in any format
constexpr uint32_t mark_size = 64;    // pixels and lines

struct bit_writer {
    std::byte* to;
    uint64_t pending = 0;
    unsigned count = 0;

    void put(uint64_t value, unsigned bits) {
        for (; bits > 32; bits -= 32, value >>= 32) put(value & 0xFFFFFFFF, 32);
        pending |= value << count;
        count += bits;
        for (; count >= 8; count -= 8, pending >>= 8) *to++ = static_cast<std::byte>(pending);
    }
};

// Lines long enough for every phase of the ramp, and the light and dark cells that marks are made of.
struct texture {
    uint32_t pfnc = 0;
    uint32_t width = 0;
    double brightness = 0;
    std::size_t cell_bytes = 0;
    std::array<std::vector<std::byte>, 2> ramp;  // even and odd lines
    std::array<std::vector<std::byte>, 2> light; // mark_size pixels
    std::array<std::vector<std::byte>, 2> dark;

    void build(uint32_t new_pfnc, uint32_t new_width, double new_brightness);
};

enum class shade { ramp, light, dark };

// A sample at its full scale of 0..1.
double sample_level(char sample, uint32_t x, shade what, double brightness) {
    const bool chroma = sample == 'U' || sample == 'V';
    if (sample == 'A') return 1.0;
    if (what != shade::ramp && chroma) return 0.5;
    if (what == shade::light) return std::min(1.0, brightness);
    if (what == shade::dark) return 0.0;
    uint32_t shift = 0;
    if (sample == 'G' || sample == 'U') shift = ramp_period / 3;
    if (sample == 'B' || sample == 'V') shift = 2 * ramp_period / 3;
    const double level = static_cast<double>((x + shift) % ramp_period) / (ramp_period - 1);
    return chroma ? level : std::min(1.0, level * brightness);
}

uint64_t quantise(double level, unsigned bits) {
    const uint64_t top = bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
    if (bits > 52) return static_cast<uint64_t>(level * 0x1p52) << (bits - 52);
    return static_cast<uint64_t>(level * static_cast<double>(top) + 0.5);
}

std::vector<std::byte> render(const picture_format& format, std::string_view samples, uint32_t pixels, shade what,
                              double brightness) {
    std::vector<std::byte> line(std::size_t{pixels} / 8 * (format.pfnc >> 16 & 0xFF));
    bit_writer bits{line.data()};
    uint64_t held = 0; // first sample of a legacy pair
    bool holding = false;
    for (uint32_t x = 0; x < pixels; x += format.pixels) {
        uint32_t luma = 0;
        uint64_t word = 0;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const bool own_pixel = format.pixels > 1 && samples[i] != 'U' && samples[i] != 'V';
            const double level = sample_level(samples[i], x + (own_pixel ? luma++ : 0), what, brightness);
            if (format.packing == sample_packing::rgb565) {
                constexpr std::array<unsigned, 3> widths{5, 6, 5};
                constexpr std::array<unsigned, 3> places{0, 5, 11};
                word |= quantise(level, widths[i]) << places[i];
                continue;
            }
            const uint64_t value = quantise(level, format.bits);
            if (format.packing == sample_packing::stream) {
                bits.put(value, format.container);
            } else if (!holding) {
                held = value;
                holding = true;
            } else {
                const unsigned low = format.bits - 8U;
                const uint64_t mask = (1U << low) - 1; // NOLINT(clang-analyzer-core.BitwiseShift): 10 or 12 bits
                bits.put(held >> low, 8);
                bits.put((held & mask) | (value & mask) << 4, 8);
                bits.put(value >> low, 8);
                holding = false;
            }
        }
        if (format.packing == sample_packing::rgb565) bits.put(word, 16);
    }
    return line;
}

void texture::build(uint32_t new_pfnc, uint32_t new_width, double new_brightness) {
    pfnc = new_pfnc;
    width = new_width;
    brightness = new_brightness;
    cell_bytes = pfnc >> 16 & 0xFF;
    const auto format = find_picture_format(pfnc);
    const uint32_t length = (width + cell - 1) / cell * cell + ramp_period;
    for (std::size_t odd = 0; odd < 2; ++odd) {
        const auto samples = odd != 0 && !format.second_line.empty() ? format.second_line : format.samples;
        ramp[odd] = render(format, samples, length, shade::ramp, brightness);
        light[odd] = render(format, samples, mark_size, shade::light, brightness);
        dark[odd] = render(format, samples, mark_size, shade::dark, brightness);
    }
}

// Lines that do not end on a byte boundary: appends `bits` bits of a line at a bit position.
void append_bits(std::span<std::byte> out, std::size_t at, const std::vector<std::byte>& line, std::size_t bits) {
    for (std::size_t i = 0; i < bits; ++i) {
        const auto bit = line[i / 8] >> (i % 8) & std::byte{1};
        out[(at + i) / 8] |= bit << ((at + i) % 8);
    }
}

} // namespace

std::size_t test_picture_size(uint32_t width, uint32_t height, uint32_t pfnc) noexcept {
    return (std::size_t{width} * height * (pfnc >> 16 & 0xFF) + 7) / 8;
}

void fill_test_picture(uint64_t frame, uint32_t width, uint32_t height, uint32_t pfnc, std::span<std::byte> out,
                       double brightness) {
    const std::size_t size = test_picture_size(width, height, pfnc);
    if (size == 0 || out.size() < size) return;
    thread_local texture drawn;
    if (drawn.pfnc != pfnc || drawn.width != width || drawn.brightness != brightness)
        drawn.build(pfnc, width, brightness);

    const std::size_t line_bits = std::size_t{width} * drawn.cell_bytes;
    const std::size_t line_bytes = (line_bits + 7) / 8;
    const bool whole_bytes = line_bits % 8 == 0;
    const uint32_t cells = width / cell; // whole ones
    const uint32_t mark_cells = std::min(mark_size / cell, cells);
    const uint32_t mark_lines = std::min(mark_size, height);
    const auto mark_cell = static_cast<uint32_t>(frame * 3 % (cells - mark_cells + 1));
    const auto mark_line = static_cast<uint32_t>(frame * 5 % (height - mark_lines + 1));

    std::vector<std::byte> scratch(whole_bytes ? 0 : line_bytes + drawn.cell_bytes);
    if (!whole_bytes) std::fill_n(out.begin(), size, std::byte{0});
    for (uint32_t y = 0; y < height; ++y) {
        const std::size_t odd = y & 1;
        std::byte* line = whole_bytes ? &out[y * line_bytes] : scratch.data();
        const uint64_t phase = (y / cell + frame) % (ramp_period / cell);
        std::memcpy(line, &drawn.ramp[odd][phase * drawn.cell_bytes], line_bytes);
        if (y >= mark_line && y < mark_line + mark_lines)
            std::memcpy(line + mark_cell * drawn.cell_bytes, drawn.light[odd].data(), mark_cells * drawn.cell_bytes);
        if (y < cell) {
            for (uint32_t bit = 0; bit < std::min(cells, 64U); ++bit) {
                const auto& bar = (frame >> bit & 1) != 0 ? drawn.light : drawn.dark;
                std::memcpy(line + bit * drawn.cell_bytes, bar[odd].data(), drawn.cell_bytes);
            }
        }
        if (!whole_bytes) append_bits(out, y * line_bits, scratch, line_bits);
    }
}

} // namespace gige
