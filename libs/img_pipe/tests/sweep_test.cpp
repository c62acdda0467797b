// Every row of both tables at awkward sizes and strides, with walls before and behind the images: levels give the same
// bytes, all of the destination is written and nothing else, and nothing else is read. What a destination's pixels are
// before is another thing from run to run: one that no level writes would differ.
#include "pipe_test.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <span>

using namespace kernel_test;

namespace {

struct size {
    std::int32_t width, height, pad;
    wall at;
};
const size swept[] = {
    {2, 2, 0, wall::behind},    {3, 3, 0, wall::before},   {5, 2, 1, wall::behind},    {8, 6, 3, wall::before},
    {9, 7, 0, wall::behind},    {17, 4, 5, wall::before},  {36, 9, 0, wall::behind},   {67, 5, 0, wall::before},
    {20, 38, 16, wall::behind}, {131, 3, 7, wall::behind}, {36, 206, 5, wall::behind}, {35, 140, 0, wall::before},
};
// Under ThreadSanitizer, which is slow, one that several threads share is enough: nothing else can race. An emulated
// processor, slower still, has whole vectors, rests and walls in the first eight, which are a sixteenth of the pixels.
std::span<const size> sizes_here() {
#if defined(__SANITIZE_THREAD__)
    return std::span{swept}.last(1);
#else
    return std::getenv("ORV_EMULATED") != nullptr ? std::span{swept}.first(8) : std::span{swept};
#endif
}
// One alone; where the image is high enough for strips, three as well.
std::vector<unsigned> threads_for(const size& s) { return s.height < 128 ? std::vector{1U} : std::vector{1U, 3U}; }

// One for each level and set, as a stream would have it: gamma tables are built once.
using pipe_set = std::map<std::pair<std::uint32_t, std::size_t>, transform_pipe>;

testing::Message about(const char* what, const image& picture, std::uint32_t mask) {
    return testing::Message() << what << ' ' << fcc_name(picture.view.format) << ' ' << picture.view.width << 'x'
                              << picture.view.height << " level " << mask;
}

} // namespace

TEST(Sweep, ConversionsOnEveryLevel) {
    const auto sets = parameter_sets();
    const auto levels_here = masks();
    pipe_set pipes;
    unsigned seed = 1;
    for (const format_pair& p : pairs_of_tables())
        for (const size& s : sizes_here()) {
            image source(p.from, s.width, s.height, s.pad, s.at);
            fill(source, ++seed);
            source.view.flags = view_read_only;
            const auto before = source.content();
            for (std::size_t set = 0; set < sets.size(); ++set) {
                transform_params params = sets[set];
                std::vector<std::uint8_t> expected;
                unsigned before_it = seed;
                for (const std::uint32_t mask : levels_here)
                    for (const unsigned threads : threads_for(s)) {
                        params.optimization_level = mask;
                        params.max_concurrency = threads;
                        const image result(p.to, s.width, s.height, s.pad, s.at);
                        fill(result, ++before_it);
                        ASSERT_TRUE((pipes[{mask, set}].transform(result.view, source.view, params)))
                            << about("to", result, mask) << fcc_name(p.from);
                        ASSERT_TRUE(source.content() == before) << about("from", source, mask);
                        ASSERT_TRUE(result.frame_untouched()) << about("to", result, mask) << fcc_name(p.from);
                        if (expected.empty()) expected = result.content();
                        ASSERT_TRUE(result.content() == expected)
                            << about("to", result, mask) << " from " << fcc_name(p.from) << " set " << set;
                    }
            }
        }
}

TEST(Sweep, ChangesInPlaceOnEveryLevel) {
    const auto sets = parameter_sets();
    const auto levels_here = masks();
    pipe_set pipes;
    for (const in_place_row& row : in_place_table())
        for (const std::uint32_t id : row.formats)
            for (const size& s : sizes_here()) {
                if (id == 0) continue;
                for (std::size_t set = 0; set < sets.size(); ++set) {
                    transform_params params = sets[set];
                    std::vector<std::uint8_t> expected;
                    for (const std::uint32_t mask : levels_here)
                        for (const unsigned threads : threads_for(s)) {
                            params.optimization_level = mask;
                            params.max_concurrency = threads;
                            const image picture(id, s.width, s.height, s.pad, s.at);
                            fill(picture, id);
                            ASSERT_TRUE((pipes[{mask, set}].transform_in_place(picture.view, params)))
                                << about("in place", picture, mask);
                            ASSERT_TRUE(picture.frame_untouched()) << about("in place", picture, mask);
                            if (expected.empty()) expected = picture.content();
                            ASSERT_TRUE(picture.content() == expected)
                                << about("in place", picture, mask) << " set " << set;
                        }
                }
            }
}
