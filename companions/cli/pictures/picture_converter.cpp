#include "picture_converter.h"

#include "../consumer/failure.h"
#include "../output/output.h"
#include "../posix/atomic_file.h"
#include "pfnc.h"
#include "wide_samples.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace cli {

namespace {

constexpr uint32_t mono10 = 0x01100003, mono12 = 0x01100005;

size_t bits_of(const picture_format& format) {
    if (format.pfnc != 0) return format.pfnc >> 16 & 0xFF;
    const auto bits = img_pipe::format_description(format.id).bits_per_pixel;
    return bits > 0 ? static_cast<size_t>(bits) : 0;
}

picture_format filled_in(picture_format format) {
    if (format.name.empty() && format.pfnc != 0) format.name = img_pipe::pfnc_name(format.pfnc);
    if (format.name.empty()) format.name = img_pipe::fcc_name(format.id);
    format.bits = bits_of(format);
    return format;
}

} // namespace

picture_format format_from_pfnc(uint32_t pfnc) { return filled_in({{}, pfnc, img_pipe::fcc_from_pfnc(pfnc), 0}); }

picture_format format_from_text(const std::string& text) {
    if (const uint32_t pfnc = img_pipe::pfnc_from_name(text)) return format_from_pfnc(pfnc);
    const uint32_t id = img_pipe::fcc_from_text(text);
    return filled_in({id == 0 ? text : std::string{}, img_pipe::pfnc_from_fcc(id), id, 0});
}

bool picture_converter::find_way(uint32_t from, uint32_t to) {
    if (from == 0 || to == 0) return false;
    way = {from};
    if (from == to) return true;
    const auto outputs = img_pipe::find_transform_outputs(from);
    const auto reaches = [&](uint32_t id) {
        const auto next = img_pipe::find_transform_outputs(id);
        return std::ranges::find(next, to) != next.end();
    };
    if (std::ranges::find(outputs, to) != outputs.end()) {
        way.push_back(to);
        return true;
    }
    // Not through grey from one colour format to another.
    const auto is_grey = [](uint32_t id) { return img_pipe::format_description(id).is_mono != 0; };
    const auto middle = std::ranges::find_if(
        outputs, [&](uint32_t id) { return (!is_grey(id) || is_grey(from) || is_grey(to)) && reaches(id); });
    if (middle == outputs.end()) return false;
    way.insert(way.end(), {*middle, to});
    return true;
}

picture_converter::picture_converter(const picture_format& from, const picture_format& to) : source(from), target(to) {
    choose_way();
    for (auto& pipe : pipes) pipe = std::make_unique<img_pipe::transform_pipe>();
}

void picture_converter::choose_way() {
    using img_pipe::fcc;
    const picture_format &from = source, &to = target;
    before = after = end_step::none;
    uint32_t begin = from.id, end = to.id;
    if (from.pfnc != to.pfnc || from.pfnc == 0) {
        // No other row than the one to colours takes unpacked grey of 10 or 12 bits. Lines that are joined bit to bit
        // are none to the pipe.
        const bool few_rows = from.pfnc == mono10 || from.pfnc == mono12 || !lines_end_on_bytes;
        if (const uint32_t wide = wide_format(from.pfnc); (from.id == 0 || few_rows) && wide != 0) {
            before = end_step::wide_samples;
            begin = wide;
        }
        // Luma is that of YUY2, not of colours, which may be cut at their ends.
        const bool to_grey = img_pipe::format_description(to.id).is_mono != 0;
        if (begin == fcc("IYU2") || (begin == fcc("UYVY") && to_grey)) {
            before = begin == fcc("IYU2") ? end_step::uyv_to_yuy2 : end_step::uyvy_to_yuy2;
            begin = fcc("YUY2");
        }
        if (to.pfnc == rgb8) end = fcc("BGR3");
        if (to.pfnc == rgba8) end = fcc("BGR4");
    } else {
        begin = end = begin == 0 ? fcc("RAW1") : begin; // nothing to do but to hand on
    }
    bool found = find_way(begin, end);
    const bool red_first = to.pfnc == rgb8 || to.pfnc == rgba8;
    if (found && red_first && from.pfnc != to.pfnc) after = end_step::swap_red_and_blue;
    if (!found && end == fcc("BGR3") && find_way(begin, fcc("BGR4"))) {
        found = true;
        after = red_first ? end_step::swap_and_drop_alpha : end_step::drop_alpha;
    }
    if (!found && end == fcc("Y16 ") && find_way(begin, fcc("Y800"))) {
        found = true;
        after = end_step::double_bytes;
    }
    if (!found) {
        std::string list;
        for (const uint32_t id : begin == 0 ? std::vector<uint32_t>{} : img_pipe::find_transform_outputs(begin))
            list += fmt::format("{}{}", list.empty() ? "" : ", ", img_pipe::fcc_name(id));
        throw std::runtime_error(fmt::format("There is no conversion from {} to {}{}.", from.name, to.name,
                                             list.empty() ? "" : "; there is one to " + list));
    }
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

std::span<const std::byte> picture_converter::convert(std::span<const std::byte> data, uint32_t width,
                                                      uint32_t height) {
    const size_t pixels = size_t{width} * height;
    size_t need = (pixels * source.bits + 7) / 8;
    if (pixels != 0 && pixels <= size_t{1} << 31 && source.pfnc == 0) // of several planes, for instance
        need = img_pipe::image_size(source.id, static_cast<int32_t>(width), static_cast<int32_t>(height));
    if (need == 0 || pixels > size_t{1} << 31)
        throw std::runtime_error(fmt::format("{} x {} is no size of a picture.", width, height));
    if (data.size() < need)
        throw std::runtime_error(fmt::format("{} x {} pixels of {} take {} bytes; there are {}.", width, height,
                                             source.name, need, data.size()));
    if (const bool on_bytes = width * source.bits % 8 == 0; on_bytes != lines_end_on_bytes) {
        lines_end_on_bytes = on_bytes;
        choose_way();
    }
    std::span<const std::byte> now = data.first(need);
    if (before != end_step::none) {
        apply(before, now, pixels, width, prepared);
        now = prepared;
    }
    const auto w = static_cast<int32_t>(width), h = static_cast<int32_t>(height);
    for (size_t i = 1; i < way.size(); ++i) {
        std::vector<std::byte>& out = i == 1 ? between : result;
        out.resize(img_pipe::image_size(way[i], w, h));
        img_pipe::img_descriptor from = img_pipe::make_view(const_cast<std::byte*>(now.data()),
                                                            static_cast<uint32_t>(now.size()), way[i - 1], w, h);
        from.flags = img_pipe::view_read_only;
        const auto to = img_pipe::make_view(out.data(), static_cast<uint32_t>(out.size()), way[i], w, h);
        if (!pipes[i - 1]->transform(to, from))
            throw std::runtime_error(fmt::format("{} x {} pixels of {} cannot be converted to {}.", width, height,
                                                 img_pipe::fcc_name(way[i - 1]), img_pipe::fcc_name(way[i])));
        now = out;
    }
    if (after == end_step::none) return now;
    apply(after, now, pixels, width, finished);
    return finished;
}

int convert_file(const convert_options& options) {
    const picture_format from = format_from_text(options.from), to = format_from_text(options.to);
    for (const picture_format& format : {from, to})
        if (!format.known()) throw failure(cause::arguments, fmt::format("'{}' is no pixel format.", format.name));
    std::ifstream file{options.file, std::ios::binary};
    std::vector<char> bytes{std::istreambuf_iterator<char>{file}, {}};
    if (!file.is_open() || file.bad()) throw std::runtime_error(fmt::format("Cannot read '{}'.", options.file));
    picture_converter converter{from, to};
    const auto converted = converter.convert(std::as_bytes(std::span{bytes}), options.width, options.height);
    std::filesystem::path path = options.output;
    if (path.empty()) path = std::filesystem::path{options.file}.replace_extension(to.name + ".raw");
    write_file(path, converted);
    if (options.json)
        print_json({{"file", path.string()}, {"pixel_format", to.name}, {"bytes", converted.size()}});
    else
        print("written: {}\n", path.string());
    return 0;
}

} // namespace cli
