#include "road.h"

#include <algorithm>
#include <cstring>

namespace img_pipe {

namespace {

// Temporary images of a band stay within a core's second-level cache beside the lines they come from and go to.
constexpr std::size_t band_bytes = 512 * 1024;
constexpr std::int32_t most_band_lines = 64, least_band_lines = 16;

std::size_t pitch_of(std::size_t line) {
    std::size_t pitch = (line + 63) / 64 * 64;
    return pitch % 4096 == 0 ? pitch + 64 : pitch;
}

std::size_t bytes_per_line(const format_description& d, std::uint32_t format, std::int32_t width) {
    std::size_t sum = 0;
    for (std::int32_t plane = 0; plane < d.plane_count; ++plane)
        sum += pitch_of(static_cast<std::size_t>(line_stride(format, width, plane)));
    return sum;
}

std::size_t bytes_per_line(std::uint32_t format, std::int32_t width) {
    return bytes_per_line(format_description(format), format, width);
}

constexpr std::int32_t most_reach = demosaic_reach + sharpen_reach;

std::int32_t band_lines(std::uint32_t source, std::uint32_t work, std::int32_t width) {
    const std::size_t line = bytes_per_line(source, width) + 2 * bytes_per_line(work, width);
    const std::size_t fit = band_bytes / std::max<std::size_t>(line, 1);
    return std::clamp(static_cast<std::int32_t>(std::min<std::size_t>(fit, most_band_lines)) / 4 * 4, least_band_lines,
                      most_band_lines);
}

// `lines` lines of a temporary image at *at, which is moved on. Formats whose planes have all lines.
img_descriptor temporary(std::uint32_t format, std::int32_t width, std::int32_t lines, std::byte*& at) {
    const format_description d(format);
    img_descriptor view{format, width, lines, 0, 0, {}};
    std::byte* begin = at;
    for (std::int32_t plane = 0; plane < d.plane_count; ++plane) {
        const std::size_t pitch = pitch_of(static_cast<std::size_t>(line_stride(format, width, plane)));
        view.plane_data[plane] = {reinterpret_cast<std::uint8_t*>(at), static_cast<std::int32_t>(pitch)};
        at += pitch * static_cast<std::size_t>(lines);
    }
    view.data_size = static_cast<std::uint32_t>(at - begin);
    return view;
}

std::uint8_t* line_at(const img_descriptor& view, std::int32_t y, std::int32_t plane = 0) {
    return view.plane_data[plane].data + static_cast<std::ptrdiff_t>(view.plane_data[plane].stride) * y;
}

void copy_lines(const img_descriptor& to, const img_descriptor& from) {
    if (to.plane_data[0].data == from.plane_data[0].data) return; // in place, nothing to copy
    const format_description d(from.format);
    for (std::int32_t plane = 0; plane < d.plane_count; ++plane) {
        const auto bytes = static_cast<std::size_t>(line_stride(from.format, from.width, plane));
        for (std::int32_t y = 0; y < from.height / d.planes[plane].vertical_subsampling; ++y)
            std::memcpy(line_at(to, y, plane), line_at(from, y, plane), bytes);
    }
}

bool same_pixels(const img_descriptor& a, const img_descriptor& b) {
    return a.plane_data[0].data == b.plane_data[0].data;
}

// A run of an image's lines, and where it lies in the image: line `origin` of the image is line 0 here.
struct window {
    img_descriptor view;
    std::int32_t origin;
    img_descriptor lines(std::int32_t first, std::int32_t end) const {
        return lines_of(view, first - origin, end - first);
    }
};

const std::uint8_t* end_of(const img_descriptor& whole) { return whole.plane_data[0].data + whole.data_size; }

// Lines [first, end) of `in` through a kernel into `out`, which holds just them.
void apply(const road_step& step, const img_descriptor& out, const window& in, std::int32_t first, std::int32_t end,
           std::byte* scratch) {
    step.kernel({out, in.lines(first, end), first - in.origin, in.view.height, end_of(in.view), step.params, scratch,
                 nullptr, 0, 0});
}

class band_worker {
public:
    band_worker(const road& road, const img_descriptor& destination, const img_descriptor& source,
                const line_split& split, transform_state& state_)
        : way(road),
          dst(destination),
          src(source),
          state(state_),
          pieces(split),
          reach((way.enter_reads_around ? demosaic_reach : 0) + (way.sharpen.kernel != nullptr ? sharpen_reach : 0)),
          sharpen_by(way.sharpen.kernel != nullptr ? sharpen_reach : 0),
          copies(same_pixels(destination, source) && reach > 0),
          step_lines(band_lines(source.format, way.work, source.width)) {}

    // Keeps the lines around each place where two strips meet, before any strip begins.
    void save_borders() {
        if (!copies) return;
        std::byte* at = state.shared_memory();
        borders = temporary(src.format, src.width, 2 * reach * (pieces.pieces - 1), at);
        for (std::int32_t i = 1; i < pieces.pieces; ++i) {
            const std::int32_t first = i * pieces.piece_lines - reach;
            const std::int32_t count = std::min(2 * reach, src.height - first);
            copy_lines(lines_of(borders, (i - 1) * 2 * reach, count), lines_of(src, first, count));
        }
    }
    static std::size_t border_bytes(const img_descriptor& source, std::int32_t pieces) {
        return 2 * static_cast<std::size_t>(most_reach) * static_cast<std::size_t>(pieces - 1) *
               bytes_per_line(source.format, source.width);
    }

    void work(std::int32_t strip_first, std::int32_t strip_end, std::int32_t piece) const {
        std::byte* at = state.piece_memory(piece);
        std::byte* scratch = at;
        if (!copies && straight() && way.enter.kernel != nullptr && way.adjust[0].kernel == nullptr) {
            apply(way.enter, lines_of(dst, strip_first, strip_end - strip_first), {src, 0}, strip_first, strip_end,
                  scratch);
            return;
        }
        at += (kernel_scratch_bytes(src.width) + 63) / 64 * 64;
        window in{src, 0};
        if (copies) in.view = temporary(src.format, src.width, step_lines + 2 * reach, at);
        const img_descriptor first_work = temporary(way.work, src.width, step_lines + 2 * sharpen_by, at);
        const img_descriptor second_work = temporary(way.work, src.width, step_lines, at);
        std::int32_t have_end = strip_first; // lines [in.origin, have_end) are in the copy
        for (std::int32_t a = strip_first; a < strip_end; a += step_lines) {
            const std::int32_t b = std::min(a + step_lines, strip_end);
            if (copies) slide(in, have_end, a, b, {strip_first, strip_end, piece});
            band(in, a, b, first_work, second_work, scratch);
        }
    }

private:
    bool straight() const { return way.sharpen.kernel == nullptr && way.leave.kernel == nullptr; }

    void band(const window& in, std::int32_t a, std::int32_t b, const img_descriptor& first_work,
              const img_descriptor& second_work, std::byte* scratch) const {
        const img_descriptor out = lines_of(dst, a, b - a);
        const std::int32_t wa = std::max(0, a - sharpen_by), wb = std::min(src.height, b + sharpen_by);
        window work{straight() ? out : lines_of(first_work, 0, wb - wa), wa};
        work.view.height = wb - wa;
        if (way.enter.kernel != nullptr)
            apply(way.enter, work.view, in, wa, wb, scratch);
        else if (way.adjust[0].kernel != nullptr || straight())
            copy_lines(work.view, in.lines(wa, wb));
        else
            work = {in.lines(wa, wb), wa};
        for (const road_step& step : way.adjust)
            if (step.kernel != nullptr) apply(step, work.view, work, wa, wb, scratch);
        if (way.sharpen.kernel != nullptr) {
            const window next{way.leave.kernel == nullptr ? out : lines_of(second_work, 0, b - a), a};
            apply(way.sharpen, next.view, work, a, b, scratch);
            work = next;
        }
        if (way.leave.kernel != nullptr) apply(way.leave, out, work, a, b, scratch);
    }

    struct strip_place {
        std::int32_t first, end, piece;
    };
    // Moves the copy on to the lines around [a, b). Lines of neighbouring strips come from the saved borders.
    void slide(window& in, std::int32_t& have_end, std::int32_t a, std::int32_t b, const strip_place& strip) const {
        const std::int32_t from = std::max(0, a - reach), end = std::min(src.height, b + reach);
        std::int32_t next = from;
        if (a != strip.first) {
            const auto pitch = static_cast<std::size_t>(in.view.plane_data[0].stride);
            std::memmove(in.view.plane_data[0].data, line_at(in.view, from - in.origin),
                         pitch * static_cast<std::size_t>(have_end - from));
            next = have_end;
        }
        in.origin = from;
        in.view.height = end - from;
        const auto take_border = [&](std::int32_t until, std::int32_t border, std::int32_t meeting) {
            if (next >= until) return;
            const window saved{lines_of(borders, border * 2 * reach, 2 * reach), meeting - reach};
            copy_lines(in.lines(next, until), saved.lines(next, until));
            next = until;
        };
        take_border(std::min(strip.first, end), strip.piece - 1, strip.first);
        if (const std::int32_t until = std::min(end, strip.end); next < until) {
            copy_lines(in.lines(next, until), lines_of(src, next, until - next));
            next = until;
        }
        take_border(end, strip.piece, strip.end);
        have_end = end;
    }

    const road& way;
    const img_descriptor& dst;
    const img_descriptor& src;
    transform_state& state;
    line_split pieces;
    std::int32_t reach, sharpen_by;
    bool copies;
    std::int32_t step_lines;
    img_descriptor borders{};
};

} // namespace

std::size_t road_memory(std::uint32_t source, std::uint32_t work, std::int32_t width) {
    const auto lines = static_cast<std::size_t>(band_lines(source, work, width)) + 2 * most_reach;
    return kernel_scratch_bytes(width) + 64 + lines * (bytes_per_line(source, width) + 2 * bytes_per_line(work, width));
}

bool reserve_roads(transform_state& state, const img_descriptor& source, std::initializer_list<std::uint32_t> work,
                   std::size_t shared) {
    const std::int32_t pieces = state.split(source.height).pieces;
    std::size_t bytes = 0;
    for (const std::uint32_t format : work) bytes = std::max(bytes, road_memory(source.format, format, source.width));
    return state.reserve(pieces, bytes, std::max(shared, band_worker::border_bytes(source, pieces)));
}

bool run_road(transform_state& state, const img_descriptor& destination, const img_descriptor& source,
              const road& road) {
    if (!reserve_roads(state, source, {road.work}, 0)) return false;
    const line_split split = state.split(source.height);
    band_worker worker(road, destination, source, split, state);
    worker.save_borders();
    run_parallel(
        state.threads,
        [&](const img_descriptor&, const img_descriptor& strip, std::int32_t first, std::int32_t piece) {
            worker.work(first, first + strip.height, piece);
        },
        destination, source);
    return true;
}

} // namespace img_pipe
