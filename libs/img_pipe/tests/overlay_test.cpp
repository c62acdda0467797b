// Text in images: the shapes of characters, their places and sizes, the samples of each format.
#include "kernel_test.h"

#include <img_pipe/overlay.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace kernel_test;

namespace {

// A character's cell of a grey image, '#' for white, line by line; anything but black and white shows as '?'.
std::vector<std::string> cell(const image& grey, std::int32_t column, std::int32_t row, std::int32_t scale) {
    std::vector<std::string> lines;
    for (std::int32_t y = 0; y < overlay_cell_height; ++y) {
        std::string line;
        for (std::int32_t x = 0; x < overlay_cell_width; ++x) {
            int seen = -1;
            for (std::int32_t i = 0; i < scale * scale; ++i) {
                const std::int32_t px = (column * overlay_cell_width + x) * scale + i % scale,
                                   py = (row * overlay_cell_height + y) * scale + i / scale;
                const int v = grey.view.plane_data[0].data[py * grey.view.plane_data[0].stride + px];
                seen = seen == -1 || seen == v ? v : 1;
            }
            line += seen == 255 ? '#' : seen == 0 ? '.' : '?';
        }
        lines.push_back(line);
    }
    return lines;
}

using lines = std::vector<std::string>;

} // namespace

TEST(Overlay, CharactersHaveTheirShapes) {
    const struct {
        char character;
        lines shape;
    } rows[] = {
        {'A', {".###..", "#...#.", "#...#.", "#...#.", "#####.", "#...#.", "#...#.", "......", "......"}},
        {'d', {"....#.", "....#.", ".##.#.", "#..##.", "#...#.", "#...#.", ".####.", "......", "......"}},
        {' ', lines(9, "......")},
    };
    for (const std::int32_t width : {64, 1280}) {
        const std::int32_t scale = width == 64 ? 1 : 2;
        for (const auto& row : rows) {
            const image grey(fcc("Y800"), width, 40, 3);
            draw_overlay_text(grey.view, 1, std::string("-") + row.character);
            EXPECT_EQ(cell(grey, 1, 1, scale), row.shape) << row.character << " at " << width;
            EXPECT_TRUE(grey.frame_untouched());
        }
    }
}

// No two alike, none empty but the blank, all within five columns and seven lines; what is no ASCII shows as '?'.
TEST(Overlay, EveryCharacterIsItself) {
    std::set<lines> seen;
    const auto drawn = [](char c) {
        const image grey(fcc("Y800"), 16, 12, 0);
        draw_overlay_text(grey.view, 0, std::string(1, c));
        return cell(grey, 0, 0, 1);
    };
    for (char c = ' '; c <= '~'; ++c) {
        const lines shape = drawn(c);
        EXPECT_TRUE(seen.insert(shape).second) << c;
        EXPECT_EQ(shape == lines(9, "......"), c == ' ') << c;
        for (std::size_t y = 0; y < shape.size(); ++y)
            EXPECT_EQ(shape[y].find('#', y < 7 ? 5 : 0), std::string::npos) << c;
    }
    EXPECT_EQ(drawn('\n'), drawn('?'));
    EXPECT_EQ(drawn('\xE9'), drawn('?'));
}

// The same letters through every format that can show them, and outside of them nothing changes.
TEST(Overlay, EveryFormat) {
    int able = 0;
    for (std::uint32_t place = 0; format_at(place) != 0; ++place) {
        const std::uint32_t id = format_at(place);
        const image picture(id, 16, 14, 2);
        if (!is_valid(picture.view)) continue;
        const auto before = picture.content();
        draw_overlay_text(picture.view, 0, "T");
        EXPECT_TRUE(picture.frame_untouched()) << fcc_name(id);
        const bool changed = picture.content() != before;
        EXPECT_TRUE(!changed || !format_description(id).is_float) << fcc_name(id);
        able += changed ? 1 : 0;
        // Lines 10 and on are below the text.
        const std::int32_t stride = picture.view.plane_data[0].stride;
        for (std::int32_t i = 10 * stride; i < 10 * stride + line_stride(id, 16); ++i)
            EXPECT_EQ(picture.view.plane_data[0].data[i], 0xEE) << fcc_name(id);
        if (!changed) continue;
        // The upper stroke of the letter, and black beside its stem.
        const img_descriptor& v = picture.view;
        const std::uint8_t *top = v.plane_data[0].data, *stem = top + 3 * stride;
        if (id == fcc("Y16 ") || id == fcc("BGR4") || id == fcc("BGR3") || id == fcc("RGGB")) {
            EXPECT_EQ(top[0], 255) << fcc_name(id);
            EXPECT_EQ(stem[0], 0) << fcc_name(id);
        }
        if (id == fcc("YUY2")) {
            EXPECT_EQ(top[0], 255);
            EXPECT_EQ(top[1], 128);
            EXPECT_EQ(stem[0], 0);
        }
        if (id == fcc("Y12p")) { // twice 12 bits of ones; then zeros
            EXPECT_EQ(std::vector<int>(top, top + 3), (std::vector{255, 255, 255}));
            EXPECT_EQ(std::vector<int>(stem, stem + 3), (std::vector{0, 0, 0}));
        }
    }
    EXPECT_GE(able, 60);
}

TEST(Overlay, WhatDoesNotFitIsCut) {
    const image grey(fcc("Y800"), 20, 13, 0);
    draw_overlay_text(grey.view, 1, "WWWWWWWWWW"); // the row's last five lines, and two columns past the third letter
    EXPECT_TRUE(grey.frame_untouched());
    EXPECT_EQ(grey.view.plane_data[0].data[9 * 20], 255);
    EXPECT_EQ(grey.view.plane_data[0].data[8 * 20], 0xEE);
    const auto before = grey.content();
    draw_overlay_text(grey.view, 2, "W");
    draw_overlay_text(grey.view, -1, "W");
    draw_overlay_text(grey.view, 2147483647, "W");
    draw_overlay_text(grey.view, 0, "");
    img_descriptor bad = grey.view;
    bad.plane_data[0].stride = 3;
    draw_overlay_text(bad, 0, "W");
    EXPECT_TRUE(grey.content() == before);
}
