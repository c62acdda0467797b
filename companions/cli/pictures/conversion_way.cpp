#include "conversion_way.h"

#include "pfnc.h"
#include "wide_samples.h"

#include <img_pipe/transform_pipe.h>

#include <algorithm>

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

// Formats from one to the other in up to two passes of the pipe; none when there is no way.
std::vector<uint32_t> find_passes(uint32_t from, uint32_t to) {
    if (from == 0 || to == 0) return {};
    if (from == to) return {from};
    const auto outputs = img_pipe::find_transform_outputs(from);
    const auto reaches = [&](uint32_t id) {
        const auto next = img_pipe::find_transform_outputs(id);
        return std::ranges::find(next, to) != next.end();
    };
    if (std::ranges::find(outputs, to) != outputs.end()) return {from, to};
    // Not through grey from one colour format to another.
    const auto is_grey = [](uint32_t id) { return img_pipe::format_description(id).is_mono != 0; };
    const auto middle = std::ranges::find_if(
        outputs, [&](uint32_t id) { return (!is_grey(id) || is_grey(from) || is_grey(to)) && reaches(id); });
    if (middle == outputs.end()) return {};
    return {from, *middle, to};
}

} // namespace

picture_format format_from_pfnc(uint32_t pfnc) { return filled_in({{}, pfnc, img_pipe::fcc_from_pfnc(pfnc), 0}); }

picture_format format_from_text(const std::string& text) {
    if (const uint32_t pfnc = img_pipe::pfnc_from_name(text)) return format_from_pfnc(pfnc);
    const uint32_t id = img_pipe::fcc_from_text(text);
    return filled_in({id == 0 ? text : std::string{}, img_pipe::pfnc_from_fcc(id), id, 0});
}

std::optional<conversion_way> find_way(const picture_format& from, const picture_format& to, bool lines_end_on_bytes) {
    using img_pipe::fcc;
    conversion_way way;
    uint32_t begin = from.id, end = to.id;
    if (from.pfnc != to.pfnc || from.pfnc == 0) {
        // No other row than the one to colours takes unpacked grey of 10 or 12 bits. Lines that are joined bit to bit
        // are none to the pipe.
        const bool few_rows = from.pfnc == mono10 || from.pfnc == mono12 || !lines_end_on_bytes;
        if (const uint32_t wide = wide_format(from.pfnc); (from.id == 0 || few_rows) && wide != 0) {
            way.before = end_step::wide_samples;
            begin = wide;
        }
        // Luma is that of YUY2, not of colours, which may be cut at their ends.
        const bool to_grey = img_pipe::format_description(to.id).is_mono != 0;
        if (begin == fcc("IYU2") || (begin == fcc("UYVY") && to_grey)) {
            way.before = begin == fcc("IYU2") ? end_step::uyv_to_yuy2 : end_step::uyvy_to_yuy2;
            begin = fcc("YUY2");
        }
        if (to.pfnc == rgb8) end = fcc("BGR3");
        if (to.pfnc == rgba8) end = fcc("BGR4");
    } else {
        begin = end = begin == 0 ? fcc("RAW1") : begin; // nothing to do but to hand on
    }
    way.formats = find_passes(begin, end);
    const bool red_first = to.pfnc == rgb8 || to.pfnc == rgba8;
    if (!way.formats.empty() && red_first && from.pfnc != to.pfnc) way.after = end_step::swap_red_and_blue;
    const auto instead = [&](uint32_t wanted, uint32_t id, end_step after) {
        if (!way.formats.empty() || end != wanted) return;
        way.formats = find_passes(begin, id);
        way.after = after;
    };
    instead(fcc("BGR3"), fcc("BGR4"), red_first ? end_step::swap_and_drop_alpha : end_step::drop_alpha);
    instead(fcc("Y16 "), fcc("Y800"), end_step::double_bytes);
    if (way.formats.empty()) return std::nullopt;
    return way;
}

std::vector<std::string> reachable_formats(const picture_format& from, bool lines_end_on_bytes) {
    std::vector<picture_format> candidates{format_from_pfnc(rgb8), format_from_pfnc(rgba8)};
    for (uint32_t place = 0; img_pipe::format_at(place) != 0; ++place) {
        const uint32_t id = img_pipe::format_at(place), pfnc = img_pipe::pfnc_from_fcc(id);
        candidates.push_back(pfnc != 0 ? format_from_pfnc(pfnc) : filled_in({{}, 0, id, 0}));
    }
    std::vector<std::string> names;
    for (const picture_format& to : candidates) {
        const bool itself = to.pfnc == from.pfnc && to.id == from.id;
        if (itself || !find_way(from, to, lines_end_on_bytes)) continue;
        std::string name = to.name;
        if (to.pfnc == 0) {
            name.clear();
            for (unsigned shift = 0; shift < 32; shift += 8) name += static_cast<char>(to.id >> shift & 0xFF);
        }
        names.push_back(name);
    }
    return names;
}

} // namespace cli
