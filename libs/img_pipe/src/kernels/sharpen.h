// Sharpness and denoise in one pass over the 3 x 3 neighbourhood of luma; what it finds is added to every colour alike.
//
// sharpness: 1/32 of the difference from the local mean, -32 (that mean) to 255. denoise: difference in counts of 8
// bits up to which a neighbour counts in full, 0 to 31. Outside these ranges the nearest value holds.
#pragma once
#include "colour_steps.h"

namespace img_pipe {
namespace {

[[maybe_unused]] detail_amounts amounts_of(const sharpness_params& p) {
    const auto within = [](std::int32_t v, std::int32_t low, std::int32_t high) {
        return v < low ? low : v > high ? high : v;
    };
    const std::int32_t sharp = within(p.sharpness, -32, 255), noise = within(p.denoise, 0, 31);
    return {static_cast<std::uint16_t>(noise * 257 * 2), static_cast<std::uint16_t>((sharp < 0 ? -sharp : sharp) * 256),
            sharp < 0};
}

template <class Rows>
class sharpen_lines {
public:
    static void run(const kernel_call& call) { sharpen_lines(call).all(); }

private:
    explicit sharpen_lines(const kernel_call& c)
        : call(c), kind(pixels_of(c.src.format)), amounts(amounts_of(*static_cast<const sharpness_params*>(c.params))) {
        std::byte* at = c.scratch;
        ring = take_ring(at, c.src.width, 3);
        const row_ring rest = take_ring(at, c.src.width, 2);
        plus = rest.line(0);
        minus = rest.line(1);
        for (int i = 0; i < 3; ++i) {
            take_block(at, wide.line[i]);
            take_block(at, bytes.line[i]);
        }
    }

    // Line y of the strip, y from -1 to its height, at the image's edges mirrored.
    void load(std::int32_t y) {
        std::uint16_t* luma = ring.line(y);
        const std::int32_t from = mirror(call.first_line + y, call.image_height) - call.first_line;
        if (y > 0 && from < y) { // mirrored; in place that line has changed by now, but the ring has it
            std::memcpy(luma - 1, ring.line(from) - 1, 2 * (static_cast<std::size_t>(call.src.width) + 2));
            return;
        }
        const std::uint8_t* in = line_of(call.src, from);
        for (std::int32_t x = 0; x < call.src.width; x += block_pixels) {
            const std::int32_t rest = call.src.width - x, n = rest < block_pixels ? rest : block_pixels;
            if (kind == pixels::bgr16) {
                Rows::split16(in + 8 * x, 0, n, wide);
                Rows::luma16({{wide.line[0], wide.line[1], wide.line[2]}}, 0, n, luma + x);
            } else if (kind == pixels::bgr3 || kind == pixels::bgr4) {
                const std::int32_t channels = kind == pixels::bgr3 ? 3 : 4;
                Rows::split8(channels, in + channels * x, 0, n, bytes);
                Rows::luma8({{bytes.line[0], bytes.line[1], bytes.line[2]}}, 0, n, bytes.line[0]);
                Rows::widen(bytes.line[0], 0, n, reinterpret_cast<std::uint8_t*>(luma + x));
            } else if (is_wide()) {
                std::memcpy(luma + x, in + 2 * x, 2 * static_cast<std::size_t>(n));
            } else {
                Rows::widen(in + x, 0, n, reinterpret_cast<std::uint8_t*>(luma + x));
            }
        }
        mirror_ends(luma, call.src.width, 1);
    }

    void all() {
        load(-1);
        load(0);
        for (std::int32_t y = 0; y < call.src.height; ++y) {
            load(y + 1);
            Rows::find_detail(amounts, ring.line(y - 1), ring.line(y), ring.line(y + 1), 0, call.src.width, plus,
                              minus);
            for (std::int32_t x = 0; x < call.src.width; x += block_pixels) {
                const std::int32_t rest = call.src.width - x;
                store(y, x, rest < block_pixels ? rest : block_pixels);
            }
            if (kind == pixels::yuv_444 && line_of(call.src, y) != line_of(call.dst, y))
                for (int i = 1; i < 3; ++i)
                    std::memcpy(line_of(call.dst, y, i), line_of(call.src, y, i),
                                static_cast<std::size_t>(call.src.width));
        }
    }

    void store(std::int32_t y, std::int32_t x, std::int32_t n) {
        const std::uint8_t* in = line_of(call.src, y);
        std::uint8_t* out = line_of(call.dst, y);
        if (kind == pixels::bgr16) {
            Rows::split16(in + 8 * x, 0, n, wide);
            for (auto* line : wide.line) Rows::add_detail16(plus + x, minus + x, line, 0, n, line);
            Rows::join16({{wide.line[0], wide.line[1], wide.line[2]}}, 0, n, out + 8 * x);
        } else if (kind == pixels::bgr3 || kind == pixels::bgr4) {
            const std::int32_t channels = kind == pixels::bgr3 ? 3 : 4;
            Rows::split8(channels, in + channels * x, 0, n, bytes);
            for (auto* line : bytes.line) Rows::add_detail8(plus + x, minus + x, line, 0, n, line);
            Rows::join8(channels, {{bytes.line[0], bytes.line[1], bytes.line[2]}}, 0, n, out + channels * x);
        } else if (is_wide()) {
            std::memcpy(wide.line[0], in + 2 * x, 2 * static_cast<std::size_t>(n));
            Rows::add_detail16(plus + x, minus + x, wide.line[0], 0, n, wide.line[0]);
            std::memcpy(out + 2 * x, wide.line[0], 2 * static_cast<std::size_t>(n));
        } else {
            Rows::add_detail8(plus + x, minus + x, in + x, 0, n, out + x);
        }
    }

    bool is_wide() const { return call.src.format == fcc("Y16 "); }

    const kernel_call& call;
    pixels kind;
    detail_amounts amounts;
    row_ring ring{};
    std::uint16_t *plus = nullptr, *minus = nullptr;
    three16 wide{};
    three8 bytes{};
};

[[maybe_unused]] bool is_sharpenable(std::uint32_t destination, std::uint32_t source) {
    const pixels kind = pixels_of(source);
    return destination == source && (kind == pixels::bgr3 || kind == pixels::bgr4 || kind == pixels::bgr16 ||
                                     kind == pixels::yuv_444 || source == fcc("Y800") || source == fcc("Y16 "));
}

} // namespace
} // namespace img_pipe
