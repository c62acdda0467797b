// What the parameters mean, on every kind of road through the pipe: pictures of one colour, which no demosaic changes,
// against formulas in double precision.
#include "pipe_test.h"

#include <array>
#include <cmath>
#include <numbers>
#include <string_view>

using namespace kernel_test;

namespace {

using colour = std::array<double, 3>; // R, G, B of 0 to 1

// Letters of the samples of a cell, line by line, a text for each plane; g is the green beside blue.
struct cell_layout {
    const char (&id)[5];
    int bytes;
    std::vector<std::string_view> cells;
    std::size_t lines = 1;
};
const cell_layout mosaics[] = {{"BA81", 1, {"BgGR"}, 2}, {"GBRG", 1, {"gBRG"}, 2}, {"GRBG", 1, {"GRBg"}, 2},
                               {"RGGB", 1, {"RGgB"}, 2}, {"BG16", 2, {"BgGR"}, 2}, {"GB16", 2, {"gBRG"}, 2},
                               {"BA16", 2, {"GRBg"}, 2}, {"RG16", 2, {"RGgB"}, 2}};
const cell_layout grey{"Y800", 1, {"Y"}}, bgr4{"BGR4", 1, {"BGRA"}}, rgb6{"RGB6", 2, {"BGRA"}},
    yuy2{"YUY2", 1, {"YUYV"}}, i420{"I420", 1, {"Y", "U", "V"}};

colour to_ycc(const colour& c) {
    const double y = 0.299 * c[0] + 0.587 * c[1] + 0.114 * c[2];
    return {y, (c[2] - y) / 1.772, (c[0] - y) / 1.402};
}
colour from_ycc(const colour& c) {
    const double r = c[0] + 1.402 * c[2], b = c[0] + 1.772 * c[1];
    return {r, (c[0] - 0.299 * r - 0.114 * b) / 0.587, b};
}

// All but gamma. Growing hue turns red to yellow, as angles of hue do.
colour corrected(colour c, const transform_params& p) {
    const auto within = [](float v, double low, double high) { return std::clamp(static_cast<double>(v), low, high); };
    for (std::size_t i = 0; i < 3; ++i) c[i] *= within(p.wb_gain[i], 0, 4);
    colour m{};
    for (std::size_t i = 0; i < 9; ++i) m[i / 3] += static_cast<double>(p.color_matrix[i]) * c[i % 3];
    const auto [y, cb, cr] = to_ycc(m);
    const double chroma = std::hypot(cb, cr) * within(p.saturation, 0, 4);
    const double angle = std::atan2(cr, cb) + within(p.hue, -1, 1) * std::numbers::pi;
    c = from_ycc({y, chroma * std::cos(angle), chroma * std::sin(angle)});
    for (double& v : c) v = (v - 0.5) * (1 + p.contrast / 256.0) + 0.5 + p.brightness / 256.0;
    return c;
}

// What is stored, of 0 to 1. Gamma acts on colours; on the luma alone where luma comes in and goes out.
double stored(char letter, colour c, transform_params p, bool from_luma) {
    from_luma = from_luma && letter >= 'U';
    if (letter == 'g') p.wb_gain[1] = p.wb_gain[3];
    const auto power = [&](double v) { return std::pow(std::clamp(v, 0.0, 1.0), static_cast<double>(p.gamma)); };
    c = corrected(c, p);
    if (!from_luma) std::ranges::transform(c, c.begin(), power);
    const auto [y, cb, cr] = to_ycc(c);
    return letter == 'R'   ? c[0]
           : letter == 'B' ? c[2]
           : letter == 'Y' ? (from_luma ? power(y) : y)
           : letter == 'U' ? 128 / 255.0 + cb
           : letter == 'V' ? 128 / 255.0 + cr
           : letter == 'A' ? 1
                           : c[1];
}

template <class Visit>
void each_sample(const cell_layout& f, const img_descriptor& view, const Visit& visit) {
    const format_description d(view.format);
    for (std::int32_t i = 0; const std::string_view cell : f.cells) {
        const auto across = static_cast<std::int32_t>(cell.size() / f.lines),
                   lines = static_cast<std::int32_t>(f.lines);
        for (std::int32_t y = 0; y < view.height / d.planes[i].vertical_subsampling; ++y)
            for (std::int32_t x = 0; x < line_stride(view.format, view.width, i) / f.bytes; ++x)
                visit(cell[static_cast<std::size_t>(y % lines * across + x % across)],
                      view.plane_data[i].data + y * view.plane_data[i].stride + x * f.bytes);
        ++i;
    }
}

// Brings the colour into the image; returns it as the image's bytes hold it.
colour paint(const cell_layout& f, const image& to, const colour& c) {
    const double full = f.bytes == 1 ? 255 : 65535;
    colour ycc{};
    each_sample(f, to.view, [&](char letter, std::uint8_t* at) {
        const double value = std::round(full * stored(letter, c, {}, true));
        for (int i = 0; i < f.bytes; ++i) at[i] = static_cast<std::uint8_t>(std::lround(value) >> 8 * i);
        if (letter >= 'U' && letter <= 'Y')
            ycc[letter == 'Y' ? 0 : letter - 'T'] = (letter == 'Y' ? value : value - 128) / full;
    });
    return f.cells[0][0] == 'Y' ? from_ycc(ycc) : c;
}

const std::vector<transform_params> settings{
    {.force_parameter_route = true},
    {.wb_enable = true, .wb_gain = {1.4F, 0.9F, -3, 1.1F}},
    {.wb_enable = true, .wb_gain = {1.3F, 0.8F, 1.2F, 0.8F}},
    {.color_matrix_enable = true, .color_matrix = {1.1F, -0.2F, 0.15F, 0.05F, 0.9F, -0.1F, -0.15F, 0.25F, 0.8F}},
    {.saturation = 1.5F},
    {.saturation = 4},
    {.saturation = -2},
    {.hue = 0.25F},
    {.hue = -3},
    {.contrast = 64, .brightness = -20},
    {.gamma = 0.6F},
    {.color_matrix_enable = true,
     .color_matrix = {1.1F, -0.2F, 0.15F, 0.05F, 0.9F, -0.1F, -0.15F, 0.25F, 0.8F},
     .wb_enable = true,
     .wb_gain = {1.3F, 0.8F, 1.2F, 0.8F},
     .saturation = 0.7F,
     .hue = 0.1F,
     .contrast = -30,
     .brightness = 12,
     .gamma = 1.6F},
};

void check(const cell_layout& from, const cell_layout& to, pipe_set& pipes) {
    const bool in_place = fcc(from.id) == fcc(to.id), repacked = std::string_view{to.id}.starts_with("RAW");
    const double full = to.bytes == 1 ? 255 : 65535;
    // Bytes are rounded before saturation makes four times as much of them, but those of chroma that stay it.
    const double slack = to.bytes == 2 ? 6 : in_place && from.cells[0][0] == 'Y' ? 1.25 : 3.5;
    for (const colour& bytes : {colour{150, 90, 60}, {70, 110, 130}, {100, 100, 100}})
        for (std::size_t i = 0; i < settings.size(); ++i)
            for (const std::uint32_t mask : masks()) {
                transform_params params = settings[i], honoured = params;
                if (repacked) {
                    honoured = {.wb_enable = params.wb_enable};
                    std::ranges::copy(params.wb_gain, honoured.wb_gain);
                }
                // Colours are of one kind of green alone.
                if (params.wb_gain[1] != params.wb_gain[3] && to.lines == 1) continue;
                params.optimization_level = mask;
                params.max_concurrency = 1;
                const image source(fcc(from.id), 72, 8, 0), other(fcc(to.id), 72, 8, 0);
                const image& result = in_place ? source : other;
                const colour c = paint(from, source, {bytes[0] / 255, bytes[1] / 255, bytes[2] / 255});
                transform_pipe& pipe = pipes[{mask, i}];
                ASSERT_TRUE(pipe.transform(result.view, source.view, params));
                double worst = 0;
                each_sample(to, result.view, [&](char letter, const std::uint8_t* at) {
                    const double wanted = stored(letter, c, honoured, from.cells[0][0] == 'Y');
                    worst = std::max(worst, std::abs((to.bytes == 1 ? at[0] : at[0] | at[1] << 8) -
                                                     full * std::clamp(wanted, 0.0, 1.0)));
                });
                EXPECT_LE(worst, slack) << from.id << " to " << to.id << ", setting " << i << ", level " << mask
                                        << ", red " << bytes[0];
            }
}

} // namespace

TEST(ColourParameters, AreTheirFormulas) {
    pipe_set pipes;
    for (std::size_t i = 0; i < std::size(mosaics); ++i) {
        const cell_layout &mosaic = mosaics[i], raw{mosaic.bytes == 1 ? "RAW1" : "RAW2", mosaic.bytes, mosaic.cells, 2};
        for (const cell_layout* to : {&mosaic, &raw, &bgr4, &i420, &grey}) check(mosaic, *to, pipes);
        if (mosaic.bytes == 2) check(mosaic, rgb6, pipes);
    }
    for (const auto& [from, to] :
         {std::pair{&yuy2, &yuy2}, {&yuy2, &bgr4}, {&yuy2, &grey}, {&rgb6, &bgr4}, {&bgr4, &grey}})
        check(*from, *to, pipes);
}
