// What tests of kernels share: memory with a wall behind it, the levels of this machine, one run of a kernel.
#pragma once
#include <img_pipe/filter_table.h>
#include <img_pipe/kernel_params.h>
#include <img_pipe/work_pool.h>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace kernel_test {

using namespace img_pipe;

// `size` bytes with walls: they end where memory ends, or begin where it begins.
enum class wall { behind, before };
class guarded {
public:
    explicit guarded(std::size_t size_, wall at = wall::behind) : size(size_) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t room = (size + page - 1) / page * page;
        span = room + 2 * page;
        base = static_cast<std::uint8_t*>(mmap(nullptr, span, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(base + page, room, PROT_READ | PROT_WRITE);
        bytes = base + page + (at == wall::behind ? room - size : 0);
    }
    ~guarded() { munmap(base, span); }
    guarded(const guarded&) = delete;
    guarded& operator=(const guarded&) = delete;
    std::size_t size, span;
    std::uint8_t *base, *bytes;
};

// Every module of this machine's processor by itself, the plain one last.
inline std::vector<filter_table> levels() {
#ifdef MODULE_avx2
    (void)load_filter_library(MODULE_avx2, 0);
#endif
    std::vector<filter_table> all;
    for (const filter_module& module : get_filter_table(cpu_mask())) all.push_back({module});
    return all;
}

// Runs a kernel over lines [first, first + count) of the image; a count of 0 is all.
inline void run(kernel_fn kernel, const img_descriptor& to, const img_descriptor& from, const void* params,
                std::int32_t first = 0, std::int32_t count = 0) {
    const std::size_t size = kernel_scratch_bytes(std::max(from.width, to.width));
    std::vector<std::byte> memory(size + 64);
    void* at = memory.data();
    std::size_t room = memory.size();
    auto* scratch = static_cast<std::byte*>(std::align(64, size, at, room));
    if (count == 0) count = from.height - first;
    kernel({to.height == from.height ? lines_of(to, first, count) : to, lines_of(from, first, count), first,
            from.height, from.plane_data[0].data + from.data_size, params, scratch, nullptr, 0, 0});
}

// An image whose lines have `pad` bytes behind them and whose last byte is the last of its memory, or the first the
// first.
struct image {
    image(std::uint32_t format, std::int32_t width, std::int32_t height, std::int32_t pad, wall at_ = wall::behind)
        : memory(bytes(format, width, height, pad), at_) {
        const format_description d(format);
        view = {format, width, height, static_cast<std::uint32_t>(memory.size - front), 0, {}};
        std::memset(memory.bytes, 0xEE, memory.size);
        std::uint8_t* at = memory.bytes + (at_ == wall::behind ? front : 0);
        for (std::int32_t i = 0; i < d.plane_count; ++i) {
            view.plane_data[i] = {at, line_stride(format, width, i) + pad};
            at += view.plane_data[i].stride * (height / d.planes[i].vertical_subsampling);
        }
    }
    // Random bytes wherever an image lies, its padding too; values of `range` from `low` on.
    void noise(unsigned seed, unsigned low = 0, unsigned range = 256) const {
        std::mt19937 random(seed);
        for (std::size_t i = front; i < memory.size; ++i)
            memory.bytes[i] = static_cast<std::uint8_t>(low + random() % range);
    }
    // Of 16-bit words, those above the sample's bits.
    void clear_unused_bits(unsigned bits) const {
        for (std::int32_t y = 0; y < view.height; ++y)
            for (std::int32_t x = 0; x < view.width; ++x)
                view.plane_data[0].data[y * view.plane_data[0].stride + 2 * x + 1] &=
                    static_cast<std::uint8_t>((1U << (bits - 8)) - 1);
    }
    std::vector<std::uint8_t> content() const { return {memory.bytes, memory.bytes + memory.size}; }
    // Whether all bytes that belong to no pixel are as they were.
    bool frame_untouched() const {
        std::vector<std::uint8_t> seen = content();
        const format_description d(view.format);
        for (std::int32_t i = 0; i < d.plane_count; ++i)
            for (std::int32_t y = 0; y < view.height / d.planes[i].vertical_subsampling; ++y)
                std::memset(&seen[static_cast<std::size_t>(view.plane_data[i].data - memory.bytes +
                                                           y * view.plane_data[i].stride)],
                            0xEE, static_cast<std::size_t>(line_stride(view.format, view.width, i)));
        return std::ranges::all_of(seen, [](std::uint8_t b) { return b == 0xEE; });
    }

    static constexpr std::size_t front = 64;
    guarded memory;
    img_descriptor view{};

private:
    static std::size_t bytes(std::uint32_t format, std::int32_t width, std::int32_t height, std::int32_t pad) {
        const format_description d(format);
        std::size_t size = front - static_cast<std::size_t>(pad);
        for (std::int32_t i = 0; i < d.plane_count; ++i)
            size += static_cast<std::size_t>((line_stride(format, width, i) + pad) *
                                             (height / d.planes[i].vertical_subsampling));
        return size;
    }
};

// Runs a kernel on every level, in strips of four lines where strips can be: all write the same bytes, and none but the
// image's. `check` sees the first of them.
template <class Check>
void on_each_level(kernel_slot slot, const image& to, const image& from, const void* params, const Check& check) {
    std::vector<std::uint8_t> first;
    for (const filter_table& level : levels()) {
        SCOPED_TRACE(::testing::Message()
                     << fcc_name(from.view.format) << " to " << fcc_name(to.view.format) << ' ' << from.view.width
                     << 'x' << from.view.height << " level " << level[0].required_cpu);
        const kernel_fn kernel = find_kernel(level, slot, to.view, from.view);
        ASSERT_NE(kernel, nullptr);
        std::memset(to.memory.bytes, 0xEE, to.memory.size);
        const std::int32_t height = from.view.height, strip = to.view.height == height ? 4 : height;
        for (std::int32_t y = 0; y < height; y += strip)
            run(kernel, to.view, from.view, params, y, std::min(strip, height - y));
        ASSERT_TRUE(to.frame_untouched());
        if (first.empty()) {
            first = to.content();
            check();
        }
        ASSERT_TRUE(first == to.content());
    }
}

} // namespace kernel_test
