// What tests of kernels share: memory with a wall behind it, the levels of this machine, one run of a kernel, samples
// in all packings.
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

// Where a line of a plane begins; numbers of two and of four bytes.
inline std::uint8_t* line(const img_descriptor& of, std::int32_t y, std::int32_t plane = 0) {
    return of.plane_data[plane].data + static_cast<std::ptrdiff_t>(y) * of.plane_data[plane].stride;
}
inline int word(const std::uint8_t* at) { return at[0] | at[1] << 8; }
inline void put_word(std::uint8_t* at, unsigned v) {
    at[0] = static_cast<std::uint8_t>(v);
    at[1] = static_cast<std::uint8_t>(v >> 8);
}
inline float real(const std::uint8_t* at) {
    float v = 0;
    std::memcpy(&v, at, sizeof v);
    return v;
}
inline void put_real(std::uint8_t* at, float v) { std::memcpy(at, &v, sizeof v); }

// Samples bit by bit.
struct bit_packing {
    unsigned bits, group; // bits of a sample as it is stored; samples after which a line ends at a byte
    // Where bit `b` of sample x stands in a line, counted from the lowest bit of its first byte.
    std::size_t (*place)(std::size_t x, unsigned b);

    unsigned get(const std::uint8_t* line, std::size_t x) const {
        unsigned v = 0;
        for (unsigned b = 0; b < bits; ++b) v |= (line[place(x, b) / 8] >> (place(x, b) % 8) & 1U) << b;
        return v;
    }
    void put(std::uint8_t* line, std::size_t x, unsigned v) const {
        for (unsigned b = 0; b < bits; ++b) {
            std::uint8_t& byte = line[place(x, b) / 8];
            byte = static_cast<std::uint8_t>((byte & ~(1U << place(x, b) % 8)) | (v >> b & 1U) << place(x, b) % 8);
        }
    }
};
// Of formats with one sample for each pixel.
inline bit_packing bit_packing_of(std::uint32_t id) {
    const format_description d(id);
    if (d.pixel_group == 1 && d.bits_per_pixel == 8) return {8, 1, [](std::size_t x, unsigned b) { return 8 * x + b; }};
    if (d.pixel_group == 1) return {16, 1, [](std::size_t x, unsigned b) { return 16 * x + b; }};
    const char kind = static_cast<char>(id >> 16), last = static_cast<char>(id >> 24);
    const bool from_the_lowest = last == 'p' || id == fcc("PWL3");
    if (d.pixel_group == 4 && from_the_lowest) return {10, 4, [](std::size_t x, unsigned b) { return 10 * x + b; }};
    if (d.pixel_group == 4)
        return {10, 4, [](std::size_t x, unsigned b) {
                    return b < 2 ? x / 4 * 40 + 32 + x % 4 * 2 + b : x / 4 * 40 + x % 4 * 8 + b - 2;
                }};
    if (from_the_lowest) return {12, 2, [](std::size_t x, unsigned b) { return 12 * x + b; }};
    if (kind == 'D' || id == fcc("PWL1"))
        return {12, 2, [](std::size_t x, unsigned b) {
                    return b < 4 ? x / 2 * 24 + 16 + x % 2 * 4 + b : x / 2 * 24 + x % 2 * 8 + b - 4;
                }};
    return {12, 2, [](std::size_t x, unsigned b) {
                return b < 4 ? x / 2 * 24 + 8 + x % 2 * 4 + b : x / 2 * 24 + x % 2 * 16 + b - 4;
            }};
}

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
                line(view, y)[2 * x + 1] &= static_cast<std::uint8_t>((1U << (bits - 8)) - 1);
    }
    std::vector<std::uint8_t> content() const { return {memory.bytes, memory.bytes + memory.size}; }
    // Whether all bytes that belong to no pixel are as they were.
    bool frame_untouched() const {
        std::vector<std::uint8_t> seen = content();
        const format_description d(view.format);
        for (std::int32_t i = 0; i < d.plane_count; ++i)
            for (std::int32_t y = 0; y < view.height / d.planes[i].vertical_subsampling; ++y)
                std::memset(&seen[static_cast<std::size_t>(line(view, y, i) - memory.bytes)], 0xEE,
                            static_cast<std::size_t>(line_stride(view.format, view.width, i)));
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

inline void run(const filter_table& level, kernel_slot slot, const image& to, const image& from,
                const void* params = nullptr) {
    const kernel_fn kernel = find_kernel(level, slot, to.view, from.view);
    ASSERT_NE(kernel, nullptr) << fcc_name(from.view.format) << " to " << fcc_name(to.view.format);
    run(kernel, to.view, from.view, params);
}

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
