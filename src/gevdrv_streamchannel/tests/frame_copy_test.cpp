#include "gevdrv_streamchannel/packet_recv/frame_copy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace gev::streamchannel::impl {
namespace {

// Of both ways of copying: every byte arrives, none beside them is touched.
TEST(FrameCopy, CopiesTheBytesAndNoOthers) {
    constexpr size_t room = 2048;
    constexpr std::byte untouched{0xA5};
    std::vector<std::byte> source(room);
    for (size_t i = 0; i < room; ++i) source[i] = static_cast<std::byte>(i * 7 % 251);
    alignas(64) static std::byte target[room];
    for (const size_t frame_size : {size_t{1000}, large_frame}) {
        for (size_t to = 0; to < 70; ++to) {
            for (const size_t from : {0, 1, 8, 20, 63}) {
                for (const size_t count : {0, 1, 15, 16, 17, 63, 64, 65, 127, 128, 200, 1464}) {
                    std::ranges::fill(target, untouched);
                    copy_to_frame(target + to, source.data() + from, count, frame_size);
                    finish_copies();
                    ASSERT_TRUE(std::equal(target + to, target + to + count, source.data() + from))
                        << to << " " << from << " " << count;
                    ASSERT_EQ(std::count(target, target + to, untouched), static_cast<ptrdiff_t>(to));
                    ASSERT_EQ(std::count(target + to + count, target + room, untouched),
                              static_cast<ptrdiff_t>(room - to - count));
                }
            }
        }
    }
}

} // namespace
} // namespace gev::streamchannel::impl
