#include "frame_check.h"

#include <gige/test_picture.h>

#include <cstring>

namespace cli {

void frame_check::check(std::span<const std::byte> data, uint64_t block_id, uint32_t width, uint32_t height,
                        uint32_t pfnc) {
    extended = extended || block_id > 65535;
    const uint64_t number = gige::frame_of_block(block_id, extended, last.value_or(0));
    if (last && number <= *last) ++misplaced;
    last = number;
    const size_t size = gige::test_picture_size(width, height, pfnc);
    expected.resize(size);
    gige::fill_test_picture(number, width, height, pfnc, expected);
    if (size == 0 || data.size() < size || std::memcmp(expected.data(), data.data(), size) != 0) ++wrong_frames;
}

} // namespace cli
