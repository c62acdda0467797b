#include <img_pipe/work_pool.h>

#include <gtest/gtest.h>

#include <vector>

using namespace img_pipe;

TEST(Formats, SizesAndStrides) {
    struct {
        const char (&id)[5];
        std::int32_t width, height, stride;
        std::uint32_t size;
    } const rows[] = {
        {"I420", 640, 480, 640, 460800},
        {"NV12", 6, 4, 6, 36},
        {"Y10p", 642, 2, 802, 1604},
        {"Y10 ", 3, 3, 6, 18},
        {"Y411", 8, 2, 12, 24},
        {"YU8p", 5, 3, 5, 45},
        {"YUGp", 5, 3, 10, 90},
        {"ADC2", 2, 2, 32, 64},
        {"MJPG", 9, 9, 0, 0},
        {"RGB6", 65536, 65536, 524288, 0},
        {"RGB6", 65536, 8193, 524288, 0},
        {"none", 8, 8, 0, 0},
        {"Y800", 0, 4, 0, 0},
        {"Y800", 4, -1, 4, 0},
        {"RGB6", 0x7FFFFFFF, 0x7FFFFFFF, 0, 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(line_stride(fcc(row.id), row.width), row.stride) << row.id;
        EXPECT_EQ(image_size(fcc(row.id), row.width, row.height), row.size) << row.id;
    }
    EXPECT_EQ(fcc("Y800"), 0x30303859U);
    EXPECT_EQ(format_description(fcc("none")).bits_per_pixel, -1);
    EXPECT_EQ(format_description(fcc("YUfp")).planes[2].format, fcc("MONf"));
}

TEST(Formats, NumbersAndNames) {
    // What the standard calls the formats, and what they are here.
    struct {
        const char* name;
        std::uint32_t pfnc;
        const char (&id)[5];
    } const rows[] = {{"Mono10", 0x01100003, "Y10 "},     {"BayerGR12Packed", 0x010C002A, "GRCP"},
                      {"BayerBG8", 0x0108000B, "BA81"},   {"BayerRG10p", 0x010A0058, "RGAp"},
                      {"YCbCr411_8", 0x020C005A, "Y412"}, {"BGRa16", 0x02400051, "RGB6"}};
    for (const auto& row : rows) {
        EXPECT_EQ(pfnc_name(row.pfnc), row.name);
        EXPECT_EQ(fcc_from_pfnc(row.pfnc), fcc(row.id));
        EXPECT_EQ(pfnc_from_fcc(fcc(row.id)), row.pfnc);
    }
    EXPECT_EQ(fcc_from_text("KRVFormat_I420Planar"), fcc("I420"));
    EXPECT_EQ(fcc_from_text("KRVFormat_YUY2Packed"), fcc("YUY2"));
    EXPECT_EQ(fcc_from_pfnc(0x0210003E), 0U) << "another range of values than the vocabulary's";
    EXPECT_EQ(pfnc_name(0), "InvalidPixelFormat");
    EXPECT_EQ(pfnc_name(0x12345678), "UnknownPixelFormat");
    EXPECT_EQ(fcc_name(fcc("BGDP")), "BGGR12_MIPI_PACKED");
}

TEST(Formats, ViewsOfTooLittleAreEmptyOrInvalid) {
    std::vector<std::uint8_t> data(96);
    const img_descriptor view = make_view(data.data(), 96, fcc("I420"), 8, 8);
    EXPECT_TRUE(is_valid(view));
    EXPECT_EQ(view.plane_data[2].data - data.data(), 64 + 16);
    EXPECT_EQ(make_view(data.data(), 95, fcc("I420"), 8, 8).format, 0U);
    EXPECT_EQ(make_view(nullptr, 96, fcc("I420"), 8, 8).format, 0U);
    EXPECT_EQ(make_view(data.data(), 96, 0, 8, 8).format, 0U);
    for (const std::int32_t stride : {-8, 0, 7, 9}) {
        img_descriptor bad = make_view(data.data(), 64, fcc("Y800"), 8, 8);
        bad.plane_data[0].stride = stride;
        EXPECT_FALSE(is_valid(bad)) << stride;
    }
    for (int plane = 1; plane < 3; ++plane) { // each would fit in the block from its begin on
        img_descriptor bad = view;
        bad.plane_data[plane].stride = 8;
        EXPECT_EQ(is_valid(bad), plane == 1) << "the last one ends behind the block";
        bad.plane_data[plane] = {data.data() + 96 - 15, 4};
        EXPECT_FALSE(is_valid(bad)) << plane;
        bad.plane_data[plane].data = data.data() - 1;
        EXPECT_FALSE(is_valid(bad)) << plane;
    }
}

TEST(Formats, PlanesOfAViewEndWithinItsBytes) {
    std::vector<std::uint8_t> data(16 * 16 * 64);
    int views = 0;
    for (std::uint32_t place = 0; const std::uint32_t id = format_at(place); ++place) {
        const format_description d(id);
        for (std::int32_t width = 1; width <= 16; ++width) {
            for (std::int32_t height = 1; height <= 16; ++height) {
                const std::uint32_t size = image_size(id, width, height);
                ASSERT_LE(size, data.size());
                const img_descriptor view = make_view(data.data(), size, id, width, height);
                if (view.format == 0) continue;
                ++views;
                for (std::int32_t plane = 0; plane < d.plane_count; ++plane) {
                    const image_plane& p = view.plane_data[plane];
                    const std::int32_t lines = height / d.planes[plane].vertical_subsampling;
                    EXPECT_LE(p.data - data.data() + std::ptrdiff_t{p.stride} * lines, std::ptrdiff_t{size})
                        << fcc_name(id) << ' ' << width << 'x' << height << ", plane " << plane;
                }
            }
        }
    }
    EXPECT_GT(views, 1000);
    EXPECT_TRUE(is_valid(make_view(data.data(), 9, fcc("NV12"), 3, 2))) << "one byte more than the size by the formula";
}

// Strips know what is left of their image, strips of strips too.
TEST(Formats, LinesOfAnImageEndWhereItEnds) {
    std::vector<std::uint8_t> data(10 * 16);
    const img_descriptor whole = make_view(data.data(), 160, fcc("Y800"), 10, 16);
    const img_descriptor inner = lines_of(lines_of(whole, 4, 12), 8, 4);
    EXPECT_EQ(inner.plane_data[0].data - data.data(), 120);
    EXPECT_EQ(inner.plane_data[0].data + inner.data_size, data.data() + data.size());
    EXPECT_TRUE(is_valid(inner));
    img_descriptor unknown = whole;
    unknown.format = fcc("none");
    EXPECT_EQ(lines_of(unknown, 4, 12).plane_data[0].data - data.data(), 40);
}
