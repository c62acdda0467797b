// From any colour format to any other, block by block through lines of samples that stay in the first cache. The
// level's steps come as `Rows`, those of plain/colour_rows.h and sample_rows.h.
#pragma once
#include "colour_steps.h"

namespace img_pipe {
namespace {

template <class Rows>
class colour_lines {
public:
    static void run(const kernel_call& call) { colour_lines(call).all(); }

private:
    explicit colour_lines(const kernel_call& c)
        : call(c),
          from(pixels_of(c.src.format)),
          to(pixels_of(c.dst.format)),
          in_group(yuv_group_of(c.src.format)),
          out_group(yuv_group_of(c.dst.format)),
          in_samples(layout_of(c.src.format)),
          out_samples(layout_of(c.dst.format)),
          samples(static_cast<const sample_params*>(c.params)) {
        std::byte* at = c.scratch;
        for (int i = 0; i < 3; ++i) {
            take_block(at, wide.line[i]);
            take_block(at, first.line[i]);
            take_block(at, second.line[i]);
            take_block(at, third.line[i]);
        }
        take_block(at, grey16);
        take_block(at, grey);
        take_block(at, neutral);
        std::memset(neutral, 128, block_pixels + block_rest);
    }

    void all() {
        const std::int32_t step = to == pixels::yuv_420 ? 2 : 1;
        for (std::int32_t y = 0; y < call.src.height; y += step)
            for (std::int32_t x = 0; x < call.src.width;) {
                const std::int32_t rest = call.src.width - x,
                                   n = rest <= block_pixels + block_rest ? rest : block_pixels;
                std::int32_t done = straight(y, x, n);
                // A cut group at the end looks at the one before it.
                if (done > 0 && done < n && n - done < block_rest) done -= block_rest;
                if (done < n) block(y, x + done, n - done);
                x += n;
            }
    }

    // Pixels of a block that the level converts without lines of samples between.
    std::int32_t straight(std::int32_t y, std::int32_t x, std::int32_t n) {
        const std::uint8_t* in = line_of(call.src, y);
        std::uint8_t* out = line_of(call.dst, y);
        if (const std::int32_t channels = channels_of(to); channels != 0) {
            if (from == pixels::yuv) {
                in += yuv_line_bytes(in_group, x);
                return Rows::yuv_to_bgr_straight(in_group, in, n, channels, out + channels * x);
            }
            if (from == pixels::grey && in_samples.pack == packing::plain8 && samples == nullptr)
                return Rows::grey_to_bgr_straight(in + x, n, channels, out + channels * x);
        }
        if (to == pixels::grey && out_samples.pack == packing::plain8) {
            if (const std::int32_t channels = channels_of(from); channels != 0)
                return Rows::bgr_to_luma_straight(channels, in + channels * x, n, out + x);
            if (from == pixels::yuv) return Rows::luma_straight(in_group, in + yuv_line_bytes(in_group, x), n, out + x);
        }
        return 0;
    }
    static std::int32_t channels_of(pixels p) { return p == pixels::bgr3 ? 3 : p == pixels::bgr4 ? 4 : 0; }

    void block(std::int32_t y, std::int32_t x, std::int32_t n) {
        switch (to) {
        case pixels::bgr3:
            return Rows::join8(3, bgr(y, x, n), 0, n, line_of(call.dst, y) + 3 * x);
        case pixels::bgr4:
            if (from == pixels::bgr16) // the same order, alpha included
                return Rows::narrow(line_of(call.src, y) + 8 * x, 0, 4 * n, line_of(call.dst, y) + 4 * x);
            return Rows::join8(4, bgr(y, x, n), 0, n, line_of(call.dst, y) + 4 * x);
        case pixels::bgr16: {
            std::uint8_t* out = line_of(call.dst, y) + 8 * x;
            if (from == pixels::bgr4) return Rows::widen(line_of(call.src, y) + 4 * x, 0, 4 * n, out);
            return Rows::join16(bgr16(y, x, n), 0, n, out);
        }
        case pixels::yuv: {
            const std::int32_t before = yuv_line_bytes(out_group, x);
            return Rows::pack_yuv(out_group, yuv(y, x, n, first), 0, n, line_of(call.dst, y) + before,
                                  yuv_line_bytes(out_group, call.dst.width) - before);
        }
        case pixels::yuv_444: {
            const in8 in = yuv(y, x, n, first);
            for (int i = 0; i < 3; ++i)
                std::memcpy(line_of(call.dst, y, i) + x, in.line[i], static_cast<std::size_t>(n));
            return;
        }
        case pixels::yuv_420:
            return block_420(y, x, n);
        case pixels::mosaic:
            return block_mosaic(y, x, n);
        case pixels::grey:
            return block_grey(y, x, n);
        case pixels::none:
            return;
        }
    }

    void block_grey(std::int32_t y, std::int32_t x, std::int32_t n) {
        if (from == pixels::bgr16) {
            Rows::luma16(bgr16(y, x, n), 0, n, grey16);
            return store16(y, x, n, grey16);
        }
        if (from == pixels::yuv || from == pixels::yuv_444) return store8(y, x, n, yuv(y, x, n, first).line[0]);
        Rows::luma8(bgr(y, x, n), 0, n, grey);
        store8(y, x, n, grey);
    }

    void block_mosaic(std::int32_t y, std::int32_t x, std::int32_t n) {
        const std::int32_t line = call.first_line + y;
        const int even = colour_of_site(out_samples.mosaic, line, 0), odd = colour_of_site(out_samples.mosaic, line, 1);
        if (from == pixels::bgr16) {
            const in16 in = bgr16(y, x, n);
            Rows::pick16(in.line[even], in.line[odd], 0, n, grey16);
            return store16(y, x, n, grey16);
        }
        const in8 in = bgr(y, x, n);
        if (out_samples.pack == packing::plain8)
            return Rows::pick8(in.line[even], in.line[odd], 0, n, line_of(call.dst, y) + x);
        Rows::pick8(in.line[even], in.line[odd], 0, n, grey);
        store8(y, x, n, grey);
    }

    // Two lines at once; a last odd line or column has no chroma of its own.
    void block_420(std::int32_t y, std::int32_t x, std::int32_t n) {
        const bool pair = y + 1 < call.src.height;
        const in8 upper = yuv(y, x, n, first), lower = pair ? yuv(y + 1, x, n, third) : upper;
        std::memcpy(line_of(call.dst, y) + x, upper.line[0], static_cast<std::size_t>(n));
        if (!pair) return;
        std::memcpy(line_of(call.dst, y + 1) + x, lower.line[0], static_cast<std::size_t>(n));
        const bool v_first = call.dst.format == fcc("YV12");
        for (int i = 1; i < 3; ++i) {
            std::uint8_t* out = line_of(call.dst, y / 2, v_first ? 3 - i : i) + x / 2;
            if (from == pixels::grey)
                std::memset(out, 128, static_cast<std::size_t>(n / 2));
            else
                Rows::halve(upper.line[i], lower.line[i], 0, n / 2, out);
        }
    }

    // Source pixels [x, x + n) of line y as Y, U, V; `out` is memory for them where they do not lie there already.
    in8 yuv(std::int32_t y, std::int32_t x, std::int32_t n, three8 out) {
        switch (from) {
        case pixels::yuv: {
            const std::int32_t before = yuv_line_bytes(in_group, x);
            Rows::unpack_yuv(in_group, line_of(call.src, y) + before, yuv_line_bytes(in_group, call.src.width) - before,
                             0, n, out);
            return as_input(out);
        }
        case pixels::yuv_444:
            return {{line_of(call.src, y) + x, line_of(call.src, y, 1) + x, line_of(call.src, y, 2) + x}};
        case pixels::grey:
            return {{grey8(y, x, n, out.line[0]), neutral, neutral}};
        default:
            Rows::bgr_to_yuv(bgr(y, x, n), 0, n, out);
            return as_input(out);
        }
    }

    in8 bgr(std::int32_t y, std::int32_t x, std::int32_t n) {
        switch (from) {
        case pixels::bgr3:
        case pixels::bgr4: {
            const std::int32_t channels = from == pixels::bgr3 ? 3 : 4;
            Rows::split8(channels, line_of(call.src, y) + channels * x, 0, n, second);
            return as_input(second);
        }
        case pixels::bgr16: {
            const in16 in = bgr16(y, x, n);
            for (int i = 0; i < 3; ++i) Rows::narrow(bytes_of(in.line[i]), 0, n, second.line[i]);
            return as_input(second);
        }
        case pixels::grey: {
            const std::uint8_t* line = grey8(y, x, n, grey);
            return {{line, line, line}};
        }
        default:
            Rows::yuv_to_bgr(yuv(y, x, n, first), 0, n, second);
            return as_input(second);
        }
    }

    in16 bgr16(std::int32_t y, std::int32_t x, std::int32_t n) {
        if (from == pixels::grey) {
            load16(y, x, n);
            return {{grey16, grey16, grey16}};
        }
        if (from == pixels::bgr16) {
            Rows::split16(line_of(call.src, y) + 8 * x, 0, n, wide);
        } else {
            const in8 in = bgr(y, x, n);
            for (int i = 0; i < 3; ++i) Rows::widen(in.line[i], 0, n, bytes_of(wide.line[i]));
        }
        return {{wide.line[0], wide.line[1], wide.line[2]}};
    }

    const std::uint8_t* grey8(std::int32_t y, std::int32_t x, std::int32_t n, std::uint8_t* out) {
        if (in_samples.pack == packing::plain8 && samples == nullptr) return line_of(call.src, y) + x;
        load16(y, x, n);
        Rows::narrow(bytes_of(grey16), 0, n, out);
        return out;
    }

    void load16(std::int32_t y, std::int32_t x, std::int32_t n) {
        Rows::load(in_samples, line_of(call.src, y) + line_bytes(in_samples, x), read_end(call, in_samples, y), n,
                   grey16);
        if (samples != nullptr) Rows::correct(*samples, call.first_line + y, n, grey16);
    }

    void store8(std::int32_t y, std::int32_t x, std::int32_t n, const std::uint8_t* line) {
        if (out_samples.pack == packing::plain8) {
            std::memcpy(line_of(call.dst, y) + x, line, static_cast<std::size_t>(n));
            return;
        }
        Rows::widen(line, 0, n, bytes_of(grey16));
        store16(y, x, n, grey16);
    }

    void store16(std::int32_t y, std::int32_t x, std::int32_t n, const std::uint16_t* line) {
        Rows::store(out_samples, line_of(call.dst, y) + line_bytes(out_samples, x),
                    line_end(call.dst, y, line_bytes(out_samples, call.dst.width)), n, line);
    }

    static const std::uint8_t* bytes_of(const std::uint16_t* line) {
        return reinterpret_cast<const std::uint8_t*>(line);
    }
    static std::uint8_t* bytes_of(std::uint16_t* line) { return reinterpret_cast<std::uint8_t*>(line); }
    static in8 as_input(three8 lines) { return {{lines.line[0], lines.line[1], lines.line[2]}}; }

    const kernel_call& call;
    pixels from, to;
    yuv_group in_group, out_group;
    sample_layout in_samples, out_samples;
    const sample_params* samples;
    three16 wide{};
    three8 first{}, second{}, third{};
    std::uint16_t* grey16 = nullptr;
    std::uint8_t *grey = nullptr, *neutral = nullptr;
};

template <class Rows>
kernel_fn find_colour_lines_of(std::uint32_t destination, std::uint32_t source) {
    const pixels from = pixels_of(source), to = pixels_of(destination);
    const bool colour = from == pixels::bgr3 || from == pixels::bgr4 || from == pixels::bgr16 || from == pixels::yuv ||
                        from == pixels::yuv_444;
    if (destination == source || to == pixels::none) return nullptr;
    if (!colour && (from != pixels::grey || to == pixels::grey || to == pixels::mosaic)) return nullptr;
    return &colour_lines<Rows>::run;
}

} // namespace
} // namespace img_pipe
