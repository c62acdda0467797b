// Packings, written here bit by bit, against every level of kernels.
#include "kernel_test.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace kernel_test;

namespace {

// One of each packing; 16 bits of which fewer count, too.
struct format {
    explicit format(const char (&id_)[5], unsigned bits_ = 0) : id(fcc(id_)), pack(bit_packing_of(id)) {
        if (bits_ != 0) pack.bits = bits_;
    }
    std::uint32_t id;
    bit_packing pack;
};
const format formats[] = {format{"Y800"}, format{"BA10", 10}, format{"Y12 ", 12}, format{"RG16"}, format{"Y10p"},
                          format{"GBCp"}, format{"Y12P"},     format{"BGDP"},     format{"Y10P"}};

// Random samples; the unused upper bits of unpacked ones are 0.
void fill(const image& to, const format& f, unsigned seed) {
    to.noise(seed);
    if (f.pack.group == 1 && f.pack.bits > 8) to.clear_unused_bits(f.pack.bits);
}

constexpr sample_params tones[] = {{{1, 1, 1, 1}, 0, nullptr, nullptr},
                                   {{1.3F, 0.5F, 4, 0.9F}, -700.25F, nullptr, nullptr}};

} // namespace

TEST(SampleLines, PublishedVectors) {
    struct {
        std::size_t format;
        std::vector<unsigned> values;
        std::vector<std::uint8_t> bytes;
    } const rows[] = {{5, {0x123, 0xABC}, {0x23, 0xC1, 0xAB}},
                      {6, {0x123, 0xABC}, {0x12, 0xC3, 0xAB}},
                      {7, {0x123, 0xABC}, {0x12, 0xAB, 0xC3}},
                      {4, {0x155, 0x2AA, 0x0F3, 0x31C}, {0x55, 0xA9, 0x3A, 0x0F, 0xC7}},
                      {8, {0x155, 0x2AA, 0x0F3, 0x31C}, {0x55, 0xAA, 0x3C, 0xC7, 0x39}}};
    for (const auto& row : rows)
        for (std::size_t x = 0; x < row.values.size(); ++x)
            EXPECT_EQ(formats[row.format].pack.get(row.bytes.data(), x), row.values[x]) << row.format << ' ' << x;
}

TEST(SampleLines, EveryPackingToEveryOtherOnEveryLevel) {
    for (const format& in : formats)
        for (const format& out : formats)
            for (std::int32_t width : {1, 2, 3, 4, 7, 8, 12, 15, 16, 17, 20, 32, 36, 63, 64, 100, 642})
                for (const sample_params* tone : {static_cast<const sample_params*>(nullptr), &tones[0], &tones[1]}) {
                    if (width % static_cast<std::int32_t>(std::max(in.pack.group, out.pack.group)) != 0) continue;
                    const std::int32_t height = 3, pad = width % 3 == 0 ? 5 : 0;
                    const image from(in.id, width, height, pad), to(out.id, width, height, pad),
                        expected(out.id, width, height, pad);
                    fill(from, in, static_cast<unsigned>(width));
                    for (std::int32_t y = 0; y < height; ++y)
                        for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x) {
                            unsigned v = in.pack.get(line(from.view, y), x);
                            v = in.pack.bits == 8 ? v * 257 : v << (16 - in.pack.bits);
                            if (tone != nullptr) {
                                float r = static_cast<float>(v) * tone->gain[(y % 2) * 2 + static_cast<int>(x % 2)];
                                r += tone->offset;
                                v = static_cast<unsigned>(std::nearbyint(std::clamp(r, 0.0F, 65535.0F)));
                            }
                            if (out.pack.group == 1 && out.pack.bits > 8) line(expected.view, y)[2 * x + 1] = 0;
                            out.pack.put(line(expected.view, y), x, v >> (16 - out.pack.bits));
                        }
                    on_each_level(kernel_slot::convert_lines, to, from, tone, [&] {
                        ASSERT_TRUE(to.content() == expected.content())
                            << "tone " << (tone == nullptr ? -1 : tone - tones);
                    });
                }
}

// A line that ends inside a byte, in place: neutral values change nothing, and other levels do the same to the rest.
TEST(SampleLines, InPlaceAtWidthsBetweenGroups) {
    for (const format& f : formats)
        for (std::int32_t width = 1; width < 70; ++width) {
            if (line_stride(f.id, width) == 0) continue;
            const image picture(f.id, width, 4, 0);
            fill(picture, f, 12);
            const std::vector<std::uint8_t> original = picture.content();
            std::vector<std::uint8_t> first;
            for (const filter_table& level : levels()) {
                std::ranges::copy(original, picture.memory.bytes);
                run(level, kernel_slot::apply_whitebalance, picture, picture, &tones[0]);
                ASSERT_TRUE(picture.content() == original) << fcc_name(f.id) << ' ' << width;
                run(level, kernel_slot::apply_whitebalance, picture, picture, &tones[1]);
                if (first.empty()) first = picture.content();
                ASSERT_TRUE(picture.content() == first) << fcc_name(f.id) << ' ' << width;
            }
        }
}

// Every byte at every site, through curves that straight pieces follow nearly all of the way and through tables that
// are no curves at all.
TEST(SampleLines, BytesThroughTablesOfEveryKind) {
    std::mt19937 random(13);
    std::vector<std::vector<std::uint16_t>> tables(1); // the first: none
    const auto add = [&](auto value) {
        auto& table = tables.emplace_back(65536);
        for (std::size_t i = 0; i < table.size(); ++i)
            table[i] =
                static_cast<std::uint16_t>(std::clamp(65535.0 * value(static_cast<double>(i) / 65535), 0.0, 65535.0));
    };
    for (const double gamma : {0.05, 0.3, 0.45, 0.8, 2.2, 9.0})
        for (const double factor : {1.0, 5.0})
            add([=](double v) { return std::pow(std::clamp((v - 0.4) * factor + 0.4, 0.0, 1.0), gamma); });
    add([](double v) { return v < 0.5 ? 0.0 : 1.0; });
    add([](double v) { return 1 - v; });
    add([](double v) { return 0.5 + 0.5 * std::sin(40 * v); });
    add([&](double) { return static_cast<double>(random()) / 4294967296.0; });
    constexpr float gains[][4] = {{1, 1, 1, 1}, {1.4F, 1, 1, 1.7F}, {0.03F, 3.99F, 0.999F, 0.5F}, {0, 1.001F, 2, 2}};
    for (const std::uint32_t id : {fcc("RGGB"), fcc("Y800")})
        for (const std::int32_t width : {512, 577})
            for (const auto& table : tables)
                for (const auto& gain : gains) {
                    const sample_params p{
                        {gain[0], gain[1], gain[2], gain[3]}, 0, table.empty() ? nullptr : table.data(), nullptr};
                    const image picture(id, width, 2, 0);
                    std::vector<std::uint8_t> original, expected;
                    for (std::int32_t i = 0; i < 2 * width; ++i) {
                        const std::int32_t x = i % width;
                        const auto v = static_cast<std::uint8_t>(x / 2 * 37);
                        const float r = std::nearbyint(
                            std::min(static_cast<float>(v * 257) * gain[i / width * 2 + x % 2], 65535.0F));
                        const auto word = static_cast<std::uint16_t>(r);
                        original.push_back(v);
                        expected.push_back(static_cast<std::uint8_t>((table.empty() ? word : table[word]) >> 8));
                    }
                    for (const filter_table& level : levels()) {
                        std::ranges::copy(original, picture.view.plane_data[0].data);
                        run(level, kernel_slot::apply_whitebalance, picture, picture, &p);
                        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), picture.view.plane_data[0].data))
                            << fcc_name(id) << " width " << width << " level " << level[0].required_cpu << " table "
                            << &table - tables.data() << " gains " << &gain - gains;
                    }
                }
}
