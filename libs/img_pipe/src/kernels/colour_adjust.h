// Tone and colour matrix on blue-green-red and on YU8p, in place or from one image to another of the same format. Alpha
// becomes opaque. Tone: red, green, blue take the first three gains; of YU8p only luma changes, by the first. The
// matrix of YU8p is over Y, U, V.
#pragma once
#include "colour_steps.h"

namespace img_pipe {
namespace {

// Samples of one image in a block's lines, and back.
template <class Rows>
class adjust_lines {
public:
    static void tone(const kernel_call& call) { adjust_lines(call).all(&adjust_lines::tone_block); }
    static void matrix(const kernel_call& call) { adjust_lines(call).all(&adjust_lines::matrix_block); }

private:
    explicit adjust_lines(const kernel_call& c) : call(c), kind(pixels_of(c.src.format)) {
        std::byte* at = c.scratch;
        for (int i = 0; i < 3; ++i) {
            take_block(at, wide.line[i]);
            take_block(at, bytes.line[i]);
            take_block(at, tables.line[i]);
        }
    }

    void all(void (adjust_lines::*block)(std::int32_t, std::int32_t, std::int32_t)) {
        if (block == &adjust_lines::tone_block) prepare_tone();
        if (block == &adjust_lines::matrix_block) prepare_matrix();
        for (std::int32_t y = 0; y < call.src.height; ++y)
            for (std::int32_t x = 0; x < call.src.width; x += block_pixels) {
                const std::int32_t rest = call.src.width - x;
                (this->*block)(y, x, rest < block_pixels ? rest : block_pixels);
            }
    }

    void prepare_tone() {
        const auto& p = *static_cast<const sample_params*>(call.params);
        for (int i = 0; i < 3; ++i) {
            // The lines are blue, green, red or Y.
            const float gain = kind == pixels::yuv_444 ? p.gain[0] : p.gain[2 - i];
            channel[i] = {{gain, gain, gain, gain}, p.offset, p.table, p.table8, p.curve};
            const bool table_alone = gain == 1.0F && p.offset == 0.0F && p.table8 != nullptr;
            for (std::int32_t v = 0; v < 256; ++v)
                tables.line[i][v] =
                    table_alone ? p.table8[v]
                                : static_cast<std::uint8_t>(
                                      correct_sample(channel[i], gain, static_cast<std::uint16_t>(v * 257)) >> 8);
        }
    }

    void prepare_matrix() {
        const auto& p = *static_cast<const matrix_params*>(call.params);
        const float full = kind == pixels::bgr16 ? 65535.0F : 255.0F;
        for (int i = 0; i < 3; ++i) {
            const int from = kind == pixels::yuv_444 ? i : 2 - i;
            for (int j = 0; j < 3; ++j) lines.m[i][j] = p.m[from][kind == pixels::yuv_444 ? j : 2 - j];
            lines.offset[i] = p.m[from][3] * full;
        }
    }

    void tone_block(std::int32_t y, std::int32_t x, std::int32_t n) {
        const std::uint8_t* in = line_of(call.src, y);
        std::uint8_t* out = line_of(call.dst, y);
        const auto map = [](const std::uint8_t* table, std::uint8_t v) { return table[v]; };
        if (kind == pixels::bgr16) {
            Rows::split16(in + 8 * x, 0, n, wide);
            for (int i = 0; i < 3; ++i) Rows::correct(channel[i], 0, n, wide.line[i]);
            return Rows::join16({{wide.line[0], wide.line[1], wide.line[2]}}, 0, n, out + 8 * x);
        }
        if (kind == pixels::yuv_444) {
            for (std::int32_t k = x; k < x + n; ++k) out[k] = map(tables.line[0], in[k]);
            if (in == out) return;
            for (int i = 1; i < 3; ++i)
                std::memcpy(line_of(call.dst, y, i) + x, line_of(call.src, y, i) + x, static_cast<std::size_t>(n));
            return;
        }
        const std::int32_t channels = kind == pixels::bgr3 ? 3 : 4;
        for (std::int32_t k = channels * x; k < channels * (x + n); k += channels) {
            for (int i = 0; i < 3; ++i) out[k + i] = map(tables.line[i], in[k + i]);
            if (channels == 4) out[k + 3] = 255;
        }
    }

    void matrix_block(std::int32_t y, std::int32_t x, std::int32_t n) {
        if (kind == pixels::bgr16) {
            Rows::split16(line_of(call.src, y) + 8 * x, 0, n, wide);
            const in16 in{{wide.line[0], wide.line[1], wide.line[2]}};
            Rows::matrix16(lines, in, 0, n, wide);
            return Rows::join16(in, 0, n, line_of(call.dst, y) + 8 * x);
        }
        if (kind == pixels::yuv_444) {
            in8 in{};
            three8 out{};
            for (int i = 0; i < 3; ++i) {
                in.line[i] = line_of(call.src, y, i) + x;
                out.line[i] = line_of(call.dst, y, i) + x;
            }
            return Rows::matrix8(lines, in, 0, n, out);
        }
        const std::int32_t channels = kind == pixels::bgr3 ? 3 : 4;
        Rows::split8(channels, line_of(call.src, y) + channels * x, 0, n, bytes);
        const in8 in{{bytes.line[0], bytes.line[1], bytes.line[2]}};
        Rows::matrix8(lines, in, 0, n, bytes);
        Rows::join8(channels, in, 0, n, line_of(call.dst, y) + channels * x);
    }

    const kernel_call& call;
    pixels kind;
    sample_params channel[3]{};
    line_matrix lines{};
    three16 wide{};
    three8 bytes{}, tables{};
};

[[maybe_unused]] bool is_adjustable(std::uint32_t destination, std::uint32_t source) {
    const pixels kind = pixels_of(source);
    return destination == source &&
           (kind == pixels::bgr3 || kind == pixels::bgr4 || kind == pixels::bgr16 || kind == pixels::yuv_444);
}

} // namespace
} // namespace img_pipe
