// Conversions between colour formats on every level, against formulas in double precision.
#include "kernel_test.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>

using namespace kernel_test;

namespace {

using colour = std::array<double, 3>; // B, G, R or Y, U, V

// The bytes of a group, as the formats' names tell them.
std::string order_of(std::uint32_t id) {
    if (id == fcc("YUY2")) return "YUYV";
    if (id == fcc("UYVY")) return "UYVY";
    if (id == fcc("Y411")) return "UYYVYY";
    return id == fcc("Y412") ? "YYUYYV" : "";
}
int pixels_in(const std::string& order) { return static_cast<int>(std::ranges::count(order, 'Y')); }
// Place of the sample in the line, or of the one before it where the line ends too early; -1: none.
int place(const std::string& order, char sample, int x, int bytes) {
    const int group = pixels_in(order), size = static_cast<int>(order.size());
    for (;; x -= sample == 'Y' ? 1 : group) {
        if (x < 0) return -1;
        std::size_t at = order.find(sample);
        if (sample == 'Y')
            for (int i = x % group; i > 0; --i) at = order.find('Y', at + 1);
        if (const int found = x / group * size + static_cast<int>(at); found < bytes) return found;
    }
}

// The only sample of pixel (x, y), in counts of 8 bits.
double only_sample(const img_descriptor& v, int x, int y) {
    const bit_packing p = bit_packing_of(v.format);
    return p.get(line(v, y), static_cast<std::size_t>(x)) / static_cast<double>(1U << (p.bits - 8));
}

// Pixel (x, y) in counts of 8 bits; of 16 bits' samples all bits.
colour pixel(const img_descriptor& v, int x, int y) {
    const std::uint8_t* p = line(v, y);
    if (v.format == fcc("BGR3")) return {double(p[3 * x]), double(p[3 * x + 1]), double(p[3 * x + 2])};
    if (v.format == fcc("BGR4")) return {double(p[4 * x]), double(p[4 * x + 1]), double(p[4 * x + 2])};
    if (v.format == fcc("RGB6"))
        return {word(p + 8 * x) / 256.0, word(p + 8 * x + 2) / 256.0, word(p + 8 * x + 4) / 256.0};
    if (v.format == fcc("YU8p")) return {double(p[x]), double(line(v, y, 1)[x]), double(line(v, y, 2)[x])};
    if (const std::string order = order_of(v.format); !order.empty()) {
        const auto sample = [&](char s) {
            const int at = place(order, s, x, line_stride(v.format, v.width));
            return at < 0 ? s == 'Y' ? 0.0 : 128.0 : double(p[at]);
        };
        return {sample('Y'), sample('U'), sample('V')};
    }
    const double grey = only_sample(v, x, y);
    return {grey, grey, grey};
}

colour to_bgr(colour yuv) {
    const double u = yuv[1] - 128, v = yuv[2] - 128;
    colour c{yuv[0] + 1.772 * u, yuv[0] - 0.344136 * u - 0.714136 * v, yuv[0] + 1.402 * v};
    for (double& s : c) s = std::clamp(s, 0.0, 255.0);
    return c;
}
colour to_yuv(colour c) {
    const double y = 0.114 * c[0] + 0.587 * c[1] + 0.299 * c[2];
    return {y, std::min(128 + (c[0] - y) / 1.772, 255.0), std::min(128 + (c[2] - y) / 1.402, 255.0)};
}

// A stored sample in counts of 8 bits: of which channel, and the pixels that it stands for.
struct stored_sample {
    double value;
    int channel, x, y, width, height;
};

bool is_yuv(std::uint32_t id) { return format_description(id).is_yuv != 0 || id == fcc("Y800"); }

std::vector<stored_sample> samples_of(const img_descriptor& v) {
    std::vector<stored_sample> all;
    const auto put = [&](double value, int channel, int x, int y, int width = 1, int height = 1) {
        all.push_back({value, channel, x, y, width, height});
    };
    const std::string order = order_of(v.format);
    const std::string_view name = fcc_name(v.format);
    const auto is = [&](const char(&id)[5]) { return v.format == fcc(id); };
    for (int y = 0; y < v.height; ++y) {
        const std::uint8_t* p = line(v, y);
        if (!order.empty()) {
            const int group = pixels_in(order), bytes = line_stride(v.format, v.width);
            for (int at = 0, luma = 0; at < bytes; ++at) {
                const char c = order[static_cast<std::size_t>(at) % order.size()];
                const int first = at / static_cast<int>(order.size()) * group;
                if (c == 'Y')
                    put(p[at], 0, luma++, y);
                else
                    put(p[at], c == 'U' ? 1 : 2, first, y, std::min(group, v.width - first));
            }
            continue;
        }
        for (int x = 0; x < v.width; ++x)
            if (is("BGR3") || is("BGR4")) {
                const int size = is("BGR3") ? 3 : 4;
                for (int i = 0; i < size; ++i) put(p[size * x + i], i, x, y);
            } else if (is("RGB6")) {
                for (int i = 0; i < 4; ++i) put(word(p + 8 * x + 2 * i) / 256.0, i, x, y);
            } else if (name.find_first_not_of("BGR") == 4) { // a mosaic's cell
                put(only_sample(v, x, y),
                    static_cast<int>(std::string_view{"BGR"}.find(name[static_cast<std::size_t>(y % 2 * 2 + x % 2)])),
                    x, y);
            } else if (is("YU8p")) {
                for (int i = 0; i < 3; ++i) put(line(v, y, i)[x], i, x, y);
            } else {
                put(p[x], 0, x, y); // Y800 and the first plane of 4:2:0
                if ((is("I420") || is("YV12")) && x % 2 == 1 && y % 2 == 1)
                    for (int i = 1; i < 3; ++i)
                        put(line(v, y / 2, is("I420") ? i : 3 - i)[x / 2], i, x - 1, y - 1, 2, 2);
            }
    }
    return all;
}

::testing::AssertionResult agrees(const img_descriptor& to, const img_descriptor& from) {
    const bool grey = format_description(from.format).is_mono != 0, yuv = is_yuv(to.format);
    const bool from_yuv = is_yuv(from.format) && !grey;
    const bool wide = to.format == fcc("RGB6") || to.format == fcc("RG16") || to.format == fcc("GBCp");
    const bool wide_in = from.format == fcc("RGB6") || from.format == fcc("Y16 ") || from.format == fcc("Y12p");
    const bool exact_luma = from.format == fcc("RGB6") && to.format == fcc("Y800");
    const double scale = wide && !wide_in ? 257 / 256.0 : 1;
    const auto wanted = [&](int channel, int x, int y) {
        if (channel == 3 && from.format == fcc("BGR4")) return line(from, y)[4 * x + 3] * scale;
        if (channel == 3 && from.format == fcc("RGB6")) return std::floor(word(line(from, y) + 8 * x + 6) / 256.0);
        if (channel == 3) return wide ? 65535 / 256.0 : 255;
        colour c = pixel(from, x, y);
        if (!wide && !exact_luma)
            for (double& s : c) s = std::floor(s);
        if (grey && yuv)
            c = {c[0], 128, 128};
        else if (from_yuv && !yuv)
            c = to_bgr(c);
        else if (!from_yuv && !grey && yuv)
            c = to_yuv(c);
        return c[static_cast<std::size_t>(channel)] * scale;
    };
    for (const stored_sample& s : samples_of(to)) {
        double want = 0;
        for (int y = s.y; y < s.y + s.height; ++y)
            for (int x = s.x; x < s.x + s.width; ++x) want += wanted(s.channel, x, y) / (s.width * s.height);
        double tolerance = grey || from_yuv == yuv ? 1e-9 : 0.6;
        if (s.width * s.height > 1) tolerance += 0.5;
        if (exact_luma) tolerance = 1.01; // rounded to 16 bits, then the lower ones cut
        if (to.format == fcc("GBCp")) tolerance += 1 / 16.0;
        if (std::abs(s.value - want) > tolerance)
            return ::testing::AssertionFailure()
                   << "channel " << s.channel << " at " << s.x << ',' << s.y << " is " << s.value << ", not " << want;
    }
    return ::testing::AssertionSuccess();
}

struct pair_row {
    std::vector<const char*> from, to;
};
const pair_row rows[] = {
    {{"Y800", "Y16 ", "Y12p"}, {"BGR3", "BGR4", "RGB6", "I420", "YV12", "YU8p"}},
    {{"YUY2", "UYVY", "Y411", "Y412"},
     {"BGR3", "BGR4", "RGB6", "YU8p", "I420", "Y800", "UYVY", "Y411", "Y412", "YUY2"}},
    {{"YU8p"}, {"YUY2", "UYVY", "Y411", "Y412", "BGR3", "BGR4", "RGB6", "I420", "YV12", "Y800"}},
    {{"BGR3", "BGR4", "RGB6"},
     {"BGR3", "BGR4", "RGB6", "Y800", "YU8p", "YUY2", "Y411", "I420", "YV12", "BA81", "GBRG", "GRBG", "RGGB", "RG16",
      "GBCp"}},
};

} // namespace

TEST(ColourLines, EveryPairOnEveryLevel) {
    for (const pair_row& row : rows)
        for (const char* in : row.from)
            for (const char* out : row.to)
                for (const std::int32_t width :
                     {2, 3, 4, 5, 7, 8, 16, 17, 31, 33, 47, 62, 66, 79, 99, 1031, 1034, 2049})
                    for (const std::int32_t height : {2, 5}) {
                        if (std::string(in) == out || (fcc_from_text(out) == fcc("GBCp") && width % 2 != 0)) continue;
                        if (fcc_from_text(in) == fcc("Y12p") && width % 2 != 0) continue;
                        const std::int32_t pad = width % 4 == 1 ? 5 : 0;
                        const image from(fcc_from_text(in), width, height, pad),
                            to(fcc_from_text(out), width, height, 2 * pad);
                        from.noise(21);
                        if (width % 2 != 0) // extremes alone
                            for (std::size_t i = image::front; i < from.memory.size; ++i)
                                from.memory.bytes[i] = from.memory.bytes[i] % 2 == 0 ? 0 : 255;
                        on_each_level(kernel_slot::convert_lines, to, from, nullptr,
                                      [&] { ASSERT_TRUE(agrees(to.view, from.view)); });
                        if (HasFatalFailure()) return;
                    }
}
