// Text in images: the shapes of characters, their places and sizes, the samples of each format.
#include "kernel_test.h"

#include <img_pipe/overlay.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace kernel_test;

namespace {

// A character's cell of a grey image, '#' for white, line by line; anything but black and white shows as '?'.
using lines = std::vector<std::string>;

lines cell(const image& grey, std::int32_t column, std::int32_t row, std::int32_t scale) {
    lines all;
    for (std::int32_t y = 0; y < overlay_cell_height; ++y) {
        std::string line;
        for (std::int32_t x = 0; x < overlay_cell_width; ++x) {
            int seen = -1;
            for (std::int32_t i = 0; i < scale * scale; ++i) {
                const std::int32_t px = (column * overlay_cell_width + x) * scale + i % scale,
                                   py = (row * overlay_cell_height + y) * scale + i / scale;
                const int v = kernel_test::line(grey.view, py)[px];
                seen = seen == -1 || seen == v ? v : 1;
            }
            line += seen == 255 ? '#' : seen == 0 ? '.' : '?';
        }
        all.push_back(line);
    }
    return all;
}

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
    const std::pair<const char(&)[5], std::vector<int>> strokes[] = {
        {"Y16 ", {255}}, {"BGR4", {255}},      {"BGR3", {255}},
        {"RGGB", {255}}, {"YUY2", {255, 128}}, {"Y12p", {255, 255, 255}}}; // twice 12 bits of ones; then zeros
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
        for (std::int32_t i = 0; i < line_stride(id, 16); ++i)
            EXPECT_EQ(line(picture.view, 10)[i], 0xEE) << fcc_name(id);
        // The upper stroke of the letter, and black beside its stem.
        for (const auto& [format, stroke] : strokes)
            for (std::size_t i = 0; fcc(format) == id && i < stroke.size(); ++i) {
                EXPECT_EQ(line(picture.view, 0)[i], stroke[i]) << format << ' ' << i;
                EXPECT_EQ(line(picture.view, 3)[i], stroke[i] == 128 ? 128 : 0) << format << ' ' << i;
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
