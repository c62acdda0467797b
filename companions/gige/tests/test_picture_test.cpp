#include <gige/test_picture.h>

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace {

std::vector<std::byte> picture(uint64_t frame, uint32_t width, uint32_t height, uint32_t pfnc, double brightness = 1) {
    std::vector<std::byte> bytes(gige::test_picture_size(width, height, pfnc) + 1, std::byte{0xA5});
    gige::fill_test_picture(frame, width, height, pfnc, bytes, brightness);
    EXPECT_EQ(bytes.back(), std::byte{0xA5}) << "wrote past the picture";
    bytes.pop_back();
    return bytes;
}

unsigned at(const std::vector<std::byte>& bytes, std::size_t i) { return std::to_integer<unsigned>(bytes[i]); }

constexpr uint32_t Mono8 = 0x01080001, Mono10p = 0x010A0046, Mono12Packed = 0x010C0006, Mono12 = 0x01100005,
                   BayerRG8 = 0x01080009, RGB8 = 0x02180014, YUV422_UYVY = 0x0210001F, Mono1p = 0x01010037;

TEST(TestPicture, every_frame_differs_and_is_repeatable) {
    std::set<std::vector<std::byte>> seen;
    for (uint64_t frame = 0; frame < 300; ++frame) seen.insert(picture(frame, 80, 16, Mono8));
    EXPECT_EQ(seen.size(), 300U);
    EXPECT_EQ(picture(7, 640, 480, BayerRG8), picture(7, 640, 480, BayerRG8));
}

TEST(TestPicture, sizes_of_packed_formats_round_up) {
    EXPECT_EQ(gige::test_picture_size(3, 3, Mono12Packed), 14U);
    EXPECT_EQ(gige::test_picture_size(2448, 2048, Mono10p), 2448U * 2048 * 10 / 8);
    EXPECT_EQ(picture(3, 13, 11, Mono10p).size(), (13U * 11 * 10 + 7) / 8);
    EXPECT_EQ(picture(3, 5, 3, Mono1p).size(), 2U);
    EXPECT_EQ(picture(0, 4, 4, Mono8).size(), 16U); // narrower than any mark
}

// The same pixel (below the bars, outside the mark) in formats of different depth and packing.
TEST(TestPicture, formats_show_the_same_ramp) {
    constexpr uint32_t width = 640, height = 16, x = 400, y = 8;
    const auto mono8 = picture(0, width, height, Mono8);
    const unsigned eight = at(mono8, y * width + x);
    EXPECT_EQ(eight, (408U * 255 + 255) / 511) << "one cell on, for it is the second group of lines";

    const auto mono12 = picture(0, width, height, Mono12);
    const unsigned twelve = at(mono12, (y * width + x) * 2) | at(mono12, (y * width + x) * 2 + 1) << 8;
    EXPECT_EQ(twelve >> 4, eight);

    const auto packed = picture(0, width, height, Mono12Packed);
    const std::size_t pair = (y * width + x) / 2 * 3;
    EXPECT_EQ(at(packed, pair) << 4 | (at(packed, pair + 1) & 15), twelve);

    const auto ten = picture(0, width, height, Mono10p);
    const std::size_t group = (y * width + x) / 4 * 5;
    EXPECT_EQ((at(ten, group) | (at(ten, group + 1) & 3) << 8) >> 2, eight);

    const auto rgb = picture(0, width, height, RGB8);
    EXPECT_EQ(at(rgb, (y * width + x) * 3), eight);
    const auto uyvy = picture(0, width, height, YUV422_UYVY);
    EXPECT_EQ(at(uyvy, (y * width + x) * 2 + 1), eight);
    const auto bayer = picture(0, width, height, BayerRG8);
    EXPECT_EQ(at(bayer, y * width + x), eight);
    EXPECT_EQ(at(bayer, y * width + x + 1), at(rgb, (y * width + x + 1) * 3 + 1));
    EXPECT_EQ(at(bayer, (y + 1) * width + x + 1), at(rgb, ((y + 1) * width + x + 1) * 3 + 2));
}

TEST(TestPicture, brightness_scales_and_saturates) {
    const auto neutral = picture(0, 640, 16, Mono8);
    const auto half = picture(0, 640, 16, Mono8, 0.5);
    const auto bright = picture(0, 640, 16, Mono8, 8);
    const std::size_t i = 8 * 640 + 400;
    EXPECT_NEAR(at(half, i), at(neutral, i) / 2.0, 1);
    EXPECT_EQ(at(bright, i), 255U);
}

TEST(TestPicture, block_ids_skip_zero_and_unwrap) {
    EXPECT_EQ(gige::block_of_frame(0, false), 1U);
    EXPECT_EQ(gige::block_of_frame(65534, false), 65535U);
    EXPECT_EQ(gige::block_of_frame(65535, false), 1U);
    EXPECT_EQ(gige::block_of_frame(65535, true), 65536U);
    for (const uint64_t frame : {uint64_t{0}, uint64_t{65534}, uint64_t{65535}, uint64_t{65536}, uint64_t{200000}})
        for (const int64_t step : {-3, 0, 3})
            EXPECT_EQ(
                gige::frame_of_block(gige::block_of_frame(frame, false), false,
                                     static_cast<uint64_t>(std::max<int64_t>(0, static_cast<int64_t>(frame) + step))),
                frame);
}

} // namespace
