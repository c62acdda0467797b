// Every row of both tables at awkward sizes and strides, with walls before and behind the images: levels give the same
// bytes, all of the destination is written and nothing else, and nothing else is read. What a destination's pixels are
// before is another thing from run to run: one that no level writes would differ.
#include "pipe_test.h"

#include <gtest/gtest.h>

#include <cstdlib>
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

// Whatever the level and the number of threads, a set of parameters gives one picture, and nothing around it is
// touched. `make` has the picture's memory.
template <class Make>
void sweep(pipe_set& pipes, std::uint32_t from, std::uint32_t to, const size& s, const Make& make) {
    static const auto sets = parameter_sets();
    static const auto levels_here = masks();
    for (std::size_t set = 0; set < sets.size(); ++set) {
        transform_params params = sets[set];
        std::vector<std::uint8_t> expected;
        for (const std::uint32_t mask : levels_here)
            for (const unsigned threads : threads_for(s)) {
                SCOPED_TRACE(testing::Message() << fcc_name(from) << " to " << fcc_name(to) << ' ' << s.width << 'x'
                                                << s.height << " level " << mask << " set " << set);
                params.optimization_level = mask;
                params.max_concurrency = threads;
                const image result(to, s.width, s.height, s.pad, s.at);
                make(pipes[{mask, set}], result, params);
                ASSERT_TRUE(result.frame_untouched());
                if (expected.empty()) expected = result.content();
                ASSERT_TRUE(result.content() == expected);
            }
    }
}

} // namespace

TEST(Sweep, ConversionsOnEveryLevel) {
    pipe_set pipes;
    unsigned seed = 1;
    for (const format_pair& p : pairs_of_tables())
        for (const size& s : sizes_here()) {
            image source(p.from, s.width, s.height, s.pad, s.at);
            fill(source, ++seed);
            source.view.flags = view_read_only;
            const auto before = source.content();
            unsigned before_it = seed;
            sweep(pipes, p.from, p.to, s, [&](transform_pipe& pipe, const image& result, const auto& params) {
                fill(result, ++before_it);
                ASSERT_TRUE(pipe.transform(result.view, source.view, params));
                ASSERT_TRUE(source.content() == before);
            });
            if (HasFatalFailure()) return;
        }
}

TEST(Sweep, ChangesInPlaceOnEveryLevel) {
    pipe_set pipes;
    for (const std::uint32_t id : in_place_formats())
        for (const size& s : sizes_here()) {
            sweep(pipes, id, id, s, [&](transform_pipe& pipe, const image& picture, const auto& params) {
                fill(picture, id);
                ASSERT_TRUE(pipe.transform_in_place(picture.view, params));
            });
            if (HasFatalFailure()) return;
        }
}
