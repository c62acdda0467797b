#include <gds_gentl_producer/stream_overlay.h>

#include <img_pipe/overlay.h>

#include <fmt/format.h>

#include <algorithm>

namespace gds_producer {

namespace {

constexpr int32_t first_profile_row = 4;

// On the thread that delivers: nothing is allocated.
class row_writer final {
public:
    explicit row_writer(const img_pipe::img_descriptor& on) : image(on) {}
    template <class... Arguments>
    void operator()(int32_t row, fmt::format_string<const Arguments&...> format, const Arguments&... arguments) {
        char text[256];
        const auto written = fmt::format_to_n(text, sizeof text, format, arguments...);
        img_pipe::draw_overlay_text(image, row, {text, std::min(written.size, sizeof text)});
    }

private:
    const img_pipe::img_descriptor& image;
};

} // namespace

void draw_overlay(const img_pipe::img_descriptor& image, const GenTL::Producer::Buffer& frame,
                  const overlay_figures& figures) {
    row_writer row{image};
    row(0, "{}", figures.version);
    row(1, "flt: drop=(pck={},tx-queue={},underrun={}) fps={:.2f}", figures.packet_loss_frames,
        figures.transform_queue_drops, figures.underruns, figures.frames_per_second);
    row(2, "frm: [{:5}] cam-time={:12} complete?={} {}", frame.frame_id, frame.timestamp,
        frame.fill_state == GenTL::Producer::FillState::complete, figures.reception_status);
    row(3, "tx: {} auto={} tx={} avg-tx={}us", img_pipe::fcc_name(image.format), figures.automatic, figures.transformed,
        figures.avg_transform_us);
    if (!figures.stream_status.empty()) row(4, "{}", figures.stream_status);
}

void draw_profile(const img_pipe::img_descriptor& image, std::span<const std::string> lines) {
    int32_t row = first_profile_row;
    for (const std::string& line : lines) img_pipe::draw_overlay_text(image, row++, line);
}

} // namespace gds_producer
