#include "picture_converter.h"

#include "wide_samples.h"

#include "../consumer/session.h"

#include <img_pipe/filter_table.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace cli {

namespace {

// The kernels for newer processors lie beside the library, where the image pipeline of a program does not look.
void load_kernels() {
    [[maybe_unused]] static const bool loaded = [] {
        if ((img_pipe::cpu_mask() & img_pipe::cpu::avx2) == 0) return false;
        return std::ranges::any_of(own_cti_places(), [](const std::filesystem::path& library) {
            const auto module = library.parent_path() / img_pipe::filter_library_name;
            return img_pipe::load_filter_library(module, 0) == img_pipe::load_result::loaded;
        });
    }();
}

} // namespace

picture_converter::picture_converter(const picture_format& from, const picture_format& to) : source(from), target(to) {
    load_kernels();
    choose_way();
    for (auto& pipe : pipes) pipe = std::make_unique<img_pipe::transform_pipe>();
}

void picture_converter::choose_way() {
    if (auto found = find_way(source, target, lines_end_on_bytes)) {
        way = std::move(*found);
        return;
    }
    const auto others = reachable_formats(source, lines_end_on_bytes);
    throw std::runtime_error(fmt::format("There is no conversion from {} to {}{}{}.", source.name, target.name,
                                         others.empty() ? "" : "; there is one to ", fmt::join(others, ", ")));
}

picture_converter::~picture_converter() = default;

void picture_converter::apply(end_step step, std::span<const std::byte> in, size_t pixels, size_t line_pixels,
                              std::vector<std::byte>& out) {
    switch (step) {
    case end_step::none:
        out.assign(in.begin(), in.end());
        return;
    case end_step::swap_red_and_blue: {
        out.assign(in.begin(), in.end());
        const size_t bytes = in.size() / pixels;
        for (size_t i = 0; i < pixels; ++i) std::swap(out[i * bytes], out[i * bytes + 2]);
        return;
    }
    case end_step::drop_alpha:
    case end_step::swap_and_drop_alpha: {
        const size_t blue = step == end_step::drop_alpha ? 0 : 2;
        out.resize(3 * pixels);
        for (size_t i = 0; i < pixels; ++i) {
            out[3 * i + blue] = in[4 * i];
            out[3 * i + 1] = in[4 * i + 1];
            out[3 * i + 2 - blue] = in[4 * i + 2];
        }
        return;
    }
    case end_step::wide_samples:
        wide_samples(source.pfnc, in, pixels, out);
        return;
    case end_step::double_bytes:
        out.resize(2 * pixels);
        for (size_t i = 0; i < pixels; ++i) out[2 * i] = out[2 * i + 1] = in[i];
        return;
    case end_step::uyvy_to_yuy2:
        out.resize(2 * pixels);
        for (size_t i = 0; i < pixels; ++i) {
            out[2 * i] = in[2 * i + 1];
            out[2 * i + 1] = in[2 * i];
        }
        return;
    case end_step::uyv_to_yuy2:
        // Both pixels of a pair show the mean of their chroma; a last single one its own.
        out.resize(2 * pixels);
        for (size_t i = 0; i < pixels; ++i) {
            const size_t x = i % line_pixels, first = i - x % 2;
            const size_t second = x - x % 2 + 1 < line_pixels ? first + 1 : first;
            const size_t chroma = x % 2 == 0 ? 0 : 2;
            const unsigned sum =
                std::to_integer<unsigned>(in[3 * first + chroma]) + std::to_integer<unsigned>(in[3 * second + chroma]);
            out[2 * i] = in[3 * i + 1];
            out[2 * i + 1] = static_cast<std::byte>((sum + 1) / 2);
        }
        return;
    }
}

size_t picture_converter::picture_size(uint32_t width, uint32_t height) const {
    const size_t pixels = size_t{width} * height;
    size_t need = (pixels * source.bits + 7) / 8;
    if (pixels != 0 && pixels <= size_t{1} << 31 && source.pfnc == 0) // of several planes, for instance
        need = img_pipe::image_size(source.id, static_cast<int32_t>(width), static_cast<int32_t>(height));
    if (need == 0 || pixels > size_t{1} << 31)
        throw std::runtime_error(fmt::format("{} x {} is no size of a picture.", width, height));
    return need;
}

std::span<const std::byte> picture_converter::convert(std::span<const std::byte> data, uint32_t width,
                                                      uint32_t height) {
    const size_t pixels = size_t{width} * height, need = picture_size(width, height);
    if (data.size() < need)
        throw std::runtime_error(fmt::format("{} x {} pixels of {} take {} bytes; there are {}.", width, height,
                                             source.name, need, data.size()));
    if (const bool on_bytes = width * source.bits % 8 == 0; on_bytes != lines_end_on_bytes) {
        lines_end_on_bytes = on_bytes;
        choose_way();
    }
    std::span<const std::byte> now = data.first(need);
    if (way.before != end_step::none) {
        apply(way.before, now, pixels, width, prepared);
        now = prepared;
    }
    const auto w = static_cast<int32_t>(width), h = static_cast<int32_t>(height);
    for (size_t i = 1; i < way.formats.size(); ++i) {
        std::vector<std::byte>& out = i == 1 ? between : result;
        out.resize(img_pipe::image_size(way.formats[i], w, h));
        img_pipe::img_descriptor from = img_pipe::make_view(
            const_cast<std::byte*>(now.data()), static_cast<uint32_t>(now.size()), way.formats[i - 1], w, h);
        from.flags = img_pipe::view_read_only;
        const auto to = img_pipe::make_view(out.data(), static_cast<uint32_t>(out.size()), way.formats[i], w, h);
        if (!pipes[i - 1]->transform(to, from))
            throw std::runtime_error(fmt::format("{} x {} pixels of {} cannot be converted to {}.", width, height,
                                                 img_pipe::fcc_name(way.formats[i - 1]),
                                                 img_pipe::fcc_name(way.formats[i])));
        now = out;
    }
    if (way.after == end_step::none) return now;
    apply(way.after, now, pixels, width, finished);
    return finished;
}

} // namespace cli
