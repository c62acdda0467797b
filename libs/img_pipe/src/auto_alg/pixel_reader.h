// One pixel of any format that can be measured.
#pragma once
#include "../kernels/colour_layout.h"
#include "../kernels/plain/sample_rows.h"
#include "records.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

namespace auto_alg {

namespace ip = img_pipe;
using ip::fcc;

// Of one source file each, like the layouts that it is made of.
namespace {

enum class picture : std::uint8_t { none, grey, mosaic, grey_float, mosaic_float, bgr, bgr16, yuv };

struct picture_layout {
    picture kind = picture::none;
    ip::sample_layout samples{ip::packing::none, 0, ip::phase::grey};
    std::int32_t channels = 0; // of bgr
};

[[maybe_unused]] picture_layout picture_of(std::uint32_t id) {
    static constexpr std::uint32_t floats[] = {fcc("BGf0"), fcc("GBf0"), fcc("BAf0"), fcc("RGf0")};
    if (const auto* f = std::ranges::find(floats, id); f != std::end(floats))
        return {picture::mosaic_float, {ip::packing::none, 0, static_cast<ip::phase>(f - floats)}, 0};
    if (id == fcc("MONf")) return {picture::grey_float, {ip::packing::none, 0, ip::phase::grey}, 0};
    if (id == fcc("BGR3")) return {picture::bgr, {}, 3};
    if (id == fcc("BGR4")) return {picture::bgr, {}, 4};
    if (id == fcc("RGB6")) return {picture::bgr16, {}, 4};
    const ip::format_description d(id);
    if (d.is_yuv != 0) return {d.is_float != 0 ? picture::none : picture::yuv, {}, 0};
    if (d.is_polarization != 0 || d.is_pwl != 0) return {};
    const ip::sample_layout s = ip::layout_of(id);
    if (s.pack == ip::packing::none) return {};
    if (s.mosaic != ip::phase::grey) return {picture::mosaic, s, 0};
    return {(id & 0xFF) == 'Y' ? picture::grey : picture::none, s, 0};
}

// Pixels are inside the image.
class pixel_reader {
public:
    explicit pixel_reader(const ip::img_descriptor& image_)
        : image(image_),
          layout(picture_of(image_.format)),
          base(image_.plane_data[0].data),
          stride(image_.plane_data[0].stride),
          line_bytes(ip::line_stride(image_.format, image_.width)),
          pixel_bits((line_bytes * 8 + image_.width - 1) / std::max(image_.width, 1)),
          group(ip::yuv_group_of(image_.format)) {}

    picture kind() const { return layout.kind; }
    ip::phase mosaic() const { return layout.samples.mosaic; }

    // Lets the memory of a pixel come; of formats with several planes, the first one's.
    void prefetch(std::int32_t x, std::int32_t y) const { __builtin_prefetch(base + y * stride + x * pixel_bits / 8); }

    // A sample of a grey image or a mosaic, its bits at the top of 16.
    std::uint16_t sample(std::int32_t x, std::int32_t y) const {
        const std::uint8_t* const line = base + y * stride;
        if (layout.samples.pack == ip::packing::plain8) return static_cast<std::uint16_t>(line[x] * 257);
        if (layout.samples.pack == ip::packing::plain16) {
            std::uint16_t v = 0;
            std::memcpy(&v, line + 2 * static_cast<std::ptrdiff_t>(x), 2);
            return static_cast<std::uint16_t>(v << layout.samples.shift);
        }
        return ip::load_sample(layout.samples, line, line + line_bytes, static_cast<std::size_t>(x));
    }

    // 0 where it is no number.
    float float_sample(std::int32_t x, std::int32_t y) const {
        float v = 0;
        std::memcpy(&v, base + y * stride + 4 * static_cast<std::ptrdiff_t>(x), 4);
        return v > 0 ? std::min(v, 1e6F) : 0;
    }

    // A pixel of a colour format.
    byte_record colour(std::int32_t x, std::int32_t y) const {
        if (layout.kind == picture::yuv) return yuv(x, y);
        const std::uint8_t* p = base + y * stride;
        if (layout.kind == picture::bgr16) { // the high bytes
            p += 8 * static_cast<std::ptrdiff_t>(x);
            return {p[5], p[3], p[1], p[3]};
        }
        p += layout.channels * static_cast<std::ptrdiff_t>(x);
        return {p[2], p[1], p[0], p[1]};
    }

    // Whether details() reads several pixels at a time.
    bool is_quick() const {
        return layout.samples.pack == ip::packing::plain8 || layout.samples.pack == ip::packing::plain16 ||
               layout.kind == picture::bgr;
    }

    // What a contrast is measured on, in 10 bits, of `n` pixels from (x, y) on: samples, green of colours, luma of YUV.
    void details(std::int32_t x, std::int32_t y, std::int32_t n, std::int16_t* out) const {
        const std::uint8_t* const line = base + y * stride;
        if (layout.samples.pack == ip::packing::plain8) {
            for (std::int32_t k = 0; k < n; ++k) out[k] = static_cast<std::int16_t>(line[x + k] << 2);
        } else if (layout.samples.pack == ip::packing::plain16) {
            const std::uint8_t* const from = line + 2 * static_cast<std::ptrdiff_t>(x);
            const int down = 6 - layout.samples.shift; // from the format's bits to 10
            for (std::int32_t k = 0; k < n; ++k) {
                std::uint16_t v = 0;
                std::memcpy(&v, from + 2 * k, 2);
                out[k] = static_cast<std::int16_t>(v >> down & 1023);
            }
        } else if (layout.kind == picture::bgr) {
            const std::uint8_t* const from = line + static_cast<std::ptrdiff_t>(layout.channels) * x + 1;
            for (std::int32_t k = 0; k < n; ++k) out[k] = static_cast<std::int16_t>(from[layout.channels * k] << 2);
        } else if (ip::group_of(layout.samples.pack) > 1) {
            packed_details(x, y, n, out);
        } else {
            for (std::int32_t k = 0; k < n; ++k) out[k] = detail(x + k, y);
        }
    }

private:
    // The upper ten bits of packed samples, by whole groups of bytes where the line has them.
    void packed_details(std::int32_t x, std::int32_t y, std::int32_t n, std::int16_t* out) const {
        const std::uint8_t* const line = base + y * stride;
        const auto by_groups = [&]<int samples, int bytes>(std::integral_constant<int, samples>,
                                                           std::integral_constant<int, bytes>, auto ten_bits) {
            const std::int32_t groups_end = static_cast<std::int32_t>(line_bytes / bytes) * samples;
            std::int32_t k = 0;
            for (; k < n && (x + k) % samples != 0; ++k) out[k] = detail(x + k, y);
            const std::uint8_t* p = line + static_cast<std::ptrdiff_t>((x + k) / samples) * bytes;
            for (; k + samples <= n && x + k + samples <= groups_end; k += samples, p += bytes)
                for (int i = 0; i < samples; ++i) out[k + i] = static_cast<std::int16_t>(ten_bits(p, i));
            for (; k < n; ++k) out[k] = detail(x + k, y);
        };
        constexpr std::integral_constant<int, 2> two;
        constexpr std::integral_constant<int, 3> three;
        constexpr std::integral_constant<int, 4> four;
        constexpr std::integral_constant<int, 5> five;
        switch (layout.samples.pack) {
        case ip::packing::p12:
            return by_groups(two, three, [](const std::uint8_t* p, int i) {
                return i == 0 ? p[0] >> 2 | (p[1] & 15) << 6 : p[1] >> 6 | p[2] << 2;
            });
        case ip::packing::packed12:
            return by_groups(two, three, [](const std::uint8_t* p, int i) {
                return i == 0 ? p[0] << 2 | (p[1] >> 2 & 3) : p[2] << 2 | p[1] >> 6;
            });
        case ip::packing::mipi12:
            return by_groups(two, three,
                             [](const std::uint8_t* p, int i) { return p[i] << 2 | (p[2] >> (2 + 4 * i) & 3); });
        case ip::packing::p10:
            return by_groups(four, five, [](const std::uint8_t* p, int i) {
                return (p[i] >> 2 * i | p[i + 1] << (8 - 2 * i)) & 1023;
            });
        default: // four high bytes, then the low bits
            return by_groups(four, five, [](const std::uint8_t* p, int i) { return p[i] << 2 | (p[4] >> 2 * i & 3); });
        }
    }

    std::int16_t detail(std::int32_t x, std::int32_t y) const {
        switch (layout.kind) {
        case picture::grey:
        case picture::mosaic:
            return static_cast<std::int16_t>(sample(x, y) >> 6);
        case picture::grey_float:
        case picture::mosaic_float:
            return static_cast<std::int16_t>(std::min(float_sample(x, y), 1.0F) * 1023);
        case picture::yuv:
            return static_cast<std::int16_t>(luma(x, y) << 2);
        case picture::none:
            return 0;
        default:
            return static_cast<std::int16_t>(colour(x, y).g << 2);
        }
    }

    std::uint8_t luma(std::int32_t x, std::int32_t y) const {
        const std::uint8_t* const line = base + y * stride;
        if (group.pixels != 0) {
            const std::ptrdiff_t at =
                static_cast<std::ptrdiff_t>(x / group.pixels) * group.bytes + group.y[x % group.pixels];
            return at < line_bytes ? line[at] : std::uint8_t{0};
        }
        if (image.format == fcc("IYU2")) return line[3 * static_cast<std::ptrdiff_t>(x) + 1];
        return image.format == fcc("YUGp") ? line[2 * static_cast<std::ptrdiff_t>(x) + 1] : line[x];
    }

    std::uint8_t plane(int i, std::int32_t x, std::int32_t y) const {
        return image.plane_data[i].data[y * static_cast<std::ptrdiff_t>(image.plane_data[i].stride) + x];
    }

    byte_record yuv(std::int32_t x, std::int32_t y) const {
        const std::uint8_t* const line = base + y * stride;
        const std::uint32_t id = image.format;
        const ip::yuv_group& g = group;
        int brightness = 0, u = 128, v = 128;
        if (g.pixels != 0) {
            // A last group that the line cuts short is left out: the one before it stands for it.
            x = std::min(x, std::max(image.width / g.pixels * g.pixels - 1, 0));
            const std::uint8_t* const p = line + static_cast<std::ptrdiff_t>(x / g.pixels) * g.bytes;
            if (p + g.bytes > line + line_bytes) return {};
            brightness = p[g.y[x % g.pixels]];
            u = p[g.u];
            v = p[g.v];
        } else if (id == fcc("IYU2")) {
            const std::uint8_t* const p = line + 3 * static_cast<std::ptrdiff_t>(x);
            u = p[0];
            brightness = p[1];
            v = p[2];
        } else if (id == fcc("YUGp")) {
            const auto high = [&](int i) { return plane(i, 2 * x + 1, y); };
            brightness = high(0);
            u = high(1);
            v = high(2);
        } else if (id == fcc("YU8p")) {
            brightness = line[x];
            u = plane(1, x, y);
            v = plane(2, x, y);
        } else { // 4:2:0; an odd size has no chroma of its own at its end
            brightness = line[x];
            if (image.width > 1 && image.height > 1) {
                const std::int32_t cx = std::min(x / 2, image.width / 2 - 1),
                                   cy = std::min(y / 2, image.height / 2 - 1);
                const bool pairs = id == fcc("NV12"), swapped = id == fcc("YV12");
                u = pairs ? plane(1, 2 * cx, cy) : plane(swapped ? 2 : 1, cx, cy);
                v = pairs ? plane(1, 2 * cx + 1, cy) : plane(swapped ? 1 : 2, cx, cy);
            }
        }
        // Full range; factors in 1/1024.
        const auto bounded = [](int value) { return static_cast<std::uint8_t>(std::clamp(value, 0, 255)); };
        u -= 128;
        v -= 128;
        const std::uint8_t green = bounded(brightness - (352 * u + 731 * v) / 1024);
        return {bounded(brightness + 1436 * v / 1024), green, bounded(brightness + 1815 * u / 1024), green};
    }

    const ip::img_descriptor& image;
    picture_layout layout;
    const std::uint8_t* base;
    std::ptrdiff_t stride, line_bytes, pixel_bits;
    ip::yuv_group group; // of packed YUV
};

} // namespace
} // namespace auto_alg
