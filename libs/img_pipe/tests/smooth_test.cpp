#include "kernel_test.h"

#include <gtest/gtest.h>

using namespace kernel_test;

TEST(Smooth, IsTheMeanOfTwoByTwo) {
    for (const std::int32_t width : {1, 2, 3, 16, 17, 18, 33, 70})
        for (const std::int32_t height : {1, 2, 9}) {
            const image from(fcc("Y800"), width, height, 3), to(fcc("Y800"), width, height, 1);
            from.noise(6);
            const auto at = [&](int x, int y) {
                return line(from.view, std::min(y, height - 1))[std::min(x, width - 1)];
            };
            on_each_level(kernel_slot::apply_2x2_smooth_y8, to, from, nullptr, [&] {
                for (int y = 0; y < height; ++y)
                    for (int x = 0; x < width; ++x)
                        ASSERT_EQ(line(to.view, y)[x],
                                  (at(x, y) + at(x + 1, y) + at(x, y + 1) + at(x + 1, y + 1) + 2) / 4)
                            << width << 'x' << height << " at " << x << ',' << y;
            });
        }
}
