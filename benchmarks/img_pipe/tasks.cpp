#include "tasks.h"

#include <libyuv.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>

using img_pipe::fcc;
using img_pipe::transform_params;

namespace {

// OpenCV names a mosaic by its second line and column: red at the upper left is BayerBG there.
template <int in_type, int out_type, int code>
void convert(const frame_job& f) {
    const cv::Mat from(f.height, f.width, in_type, f.in);
    cv::Mat to(f.height, f.width, out_type, f.out);
    cv::cvtColor(from, to, code);
}

transform_params gains() {
    transform_params p;
    p.wb_enable = true;
    p.wb_gain[0] = 1.4F;
    p.wb_gain[2] = 1.7F;
    return p;
}
transform_params light() {
    transform_params p = gains();
    p.brightness = 8;
    p.gamma = 0.5F;
    return p;
}
transform_params gamma_alone() {
    transform_params p;
    p.gamma = 0.5F;
    return p;
}
transform_params fused() {
    transform_params p = gains();
    p.gamma = 0.5F;
    p.color_matrix_enable = true;
    constexpr float m[9] = {1.6F, -0.4F, -0.2F, -0.3F, 1.5F, -0.2F, 0.0F, -0.5F, 1.5F};
    for (int i = 0; i < 9; ++i) p.color_matrix[i] = m[i];
    return p;
}

// Bilinear, then gains and matrix as one, then gamma. The pictures in between live on from frame to frame.
template <int in_type, int depth>
void opencv_fused(const frame_job& f) {
    static cv::Mat colour, balanced;
    static const cv::Matx33f m = [] {
        const transform_params p = fused();
        cv::Matx33f out;
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) out(2 - i, 2 - j) = p.color_matrix[3 * i + j] * p.wb_gain[j];
        return out;
    }();
    static const cv::Mat table = [] {
        cv::Mat t(1, 256, CV_8U);
        for (int i = 0; i < 256; ++i)
            t.at<std::uint8_t>(i) = cv::saturate_cast<std::uint8_t>(255 * std::sqrt(i / 255.0));
        return t;
    }();
    const cv::Mat from(f.height, f.width, in_type, f.in);
    cv::Mat to(f.height, f.width, CV_8UC3, f.out);
    cv::cvtColor(from, colour, cv::COLOR_BayerBG2BGR);
    cv::transform(colour, balanced, m);
    if constexpr (depth == 16) balanced.convertTo(balanced, CV_8U, 1.0 / 257);
    cv::LUT(balanced, table, to);
}

template <int in_type, int out_type>
void scale_down(const frame_job& f) {
    const cv::Mat from(f.height, f.width, in_type, f.in);
    cv::Mat to(f.height, f.width, out_type, f.out);
    from.convertTo(to, out_type, 1.0 / 257);
}

using yuv_line_function = int (*)(const std::uint8_t*, int, std::uint8_t*, int, int, int);
template <yuv_line_function function, int in_bytes, int out_bytes>
void yuv(const frame_job& f) {
    function(f.in, f.width * in_bytes, f.out, f.width * out_bytes, f.width, f.height);
}

void yuv_16_to_8(const frame_job& f) {
    libyuv::Convert16To8Plane(reinterpret_cast<const std::uint16_t*>(f.in), f.width, f.out, f.width, 256, f.width,
                              f.height);
}

void opencv_wb(const frame_job& f) {
    static cv::Mat gain;
    if (gain.size() != cv::Size(f.width, f.height)) {
        const transform_params p = gains();
        gain.create(f.height, f.width, CV_32F);
        for (int y = 0; y < f.height; ++y)
            for (int x = 0; x < f.width; ++x)
                gain.at<float>(y, x) = p.wb_gain[(y % 2 == 0 ? x % 2 == 0 ? 0 : 1 : x % 2 == 0 ? 1 : 2)];
    }
    cv::Mat image(f.height, f.width, CV_8UC1, f.in);
    cv::multiply(image, gain, image, 1, CV_8U);
}

} // namespace

std::size_t frame_bytes(std::uint32_t format, int width, int height) {
    std::size_t sum = 0;
    const img_pipe::format_description d(format);
    for (int i = 0; i < d.plane_count; ++i)
        sum += static_cast<std::size_t>(img_pipe::line_stride(format, width, i)) *
               static_cast<std::size_t>(height / d.planes[i].vertical_subsampling);
    return sum;
}

const std::vector<task>& all_tasks() {
    static const std::vector<task> tasks = {
        {.name = "demosaic 8 to BGR4",
         .from = fcc("RGGB"),
         .to = fcc("BGR4"),
         .opencv = convert<CV_8UC1, CV_8UC4, cv::COLOR_BayerBG2BGRA>,
         .to_opencv = 1},
        {.name = "demosaic 8 to BGR3",
         .from = fcc("RGGB"),
         .to = fcc("BGR3"),
         .opencv = convert<CV_8UC1, CV_8UC3, cv::COLOR_BayerBG2BGR>},
        // OpenCV has no 16-bit bilinear into 8 bits: its result is three channels of 16.
        {.name = "demosaic 16 to BGR4",
         .from = fcc("RG16"),
         .to = fcc("BGR4"),
         .opencv = convert<CV_16UC1, CV_16UC3, cv::COLOR_BayerBG2BGR>,
         .to_opencv = 1.0 / 3},
        {.name = "demosaic 12p to BGR4", .from = fcc("RGCp"), .to = fcc("BGR4")},
        {.name = "demosaic 16 to RGB6",
         .from = fcc("RG16"),
         .to = fcc("RGB6"),
         .opencv = convert<CV_16UC1, CV_16UC3, cv::COLOR_BayerBG2BGR>,
         .to_opencv = 1.0 / 3},
        {.name = "demosaic 8 to I420", .from = fcc("RGGB"), .to = fcc("I420")},
        {.name = "fused 8 to BGR3",
         .from = fcc("RGGB"),
         .to = fcc("BGR3"),
         .params = fused(),
         .opencv = opencv_fused<CV_8UC1, 8>,
         .to_opencv = 0.5},
        {.name = "fused 16 to BGR3",
         .from = fcc("RG16"),
         .to = fcc("BGR3"),
         .params = fused(),
         .opencv = opencv_fused<CV_16UC1, 16>,
         .to_opencv = 0.5},
        {.name = "in place Bayer 8, gains",
         .from = fcc("RGGB"),
         .to = 0,
         .params = gains(),
         .opencv = opencv_wb,
         .to_copy = 1.25},
        {.name = "in place Bayer 8, gains, tone, gamma",
         .from = fcc("RGGB"),
         .to = 0,
         .params = light(),
         .to_copy = 1.25},
        {.name = "in place Bayer 16, gains", .from = fcc("RG16"), .to = 0, .params = gains(), .to_copy = 1.25},
        {.name = "in place Bayer 16, gains, tone, gamma",
         .from = fcc("RG16"),
         .to = 0,
         .params = light(),
         .to_copy = 1.25},
        {.name = "in place Bayer 12p, gains", .from = fcc("RGCp"), .to = 0, .params = gains(), .to_copy = 1.25},
        {.name = "unpack Y10p to Y16", .from = fcc("Y10p"), .to = fcc("Y16 "), .to_copy = 1.25},
        {.name = "unpack Y10P to Y16", .from = fcc("Y10P"), .to = fcc("Y16 "), .to_copy = 1.25},
        {.name = "unpack Y12p to Y16", .from = fcc("Y12p"), .to = fcc("Y16 "), .to_copy = 1.25},
        {.name = "unpack Y12P to Y16", .from = fcc("Y12P"), .to = fcc("Y16 "), .to_copy = 1.25},
        {.name = "unpack Y12p to Y800", .from = fcc("Y12p"), .to = fcc("Y800"), .to_copy = 1.25},
        {.name = "unpack RG10 to RG16", .from = fcc("RG10"), .to = fcc("RG16"), .to_copy = 1.25},
        {.name = "unpack RGCp to RGGB", .from = fcc("RGCp"), .to = fcc("RGGB"), .to_copy = 1.25},
        {.name = "mono Y800 to BGR4",
         .from = fcc("Y800"),
         .to = fcc("BGR4"),
         .opencv = convert<CV_8UC1, CV_8UC4, cv::COLOR_GRAY2BGRA>,
         .libyuv = yuv<libyuv::J400ToARGB, 1, 4>,
         .to_copy = 1.25},
        {.name = "mono Y800 to BGR3",
         .from = fcc("Y800"),
         .to = fcc("BGR3"),
         .opencv = convert<CV_8UC1, CV_8UC3, cv::COLOR_GRAY2BGR>,
         .to_copy = 1.25},
        {.name = "mono Y16 to Y800",
         .from = fcc("Y16 "),
         .to = fcc("Y800"),
         .opencv = scale_down<CV_16UC1, CV_8UC1>,
         .libyuv = yuv_16_to_8,
         .to_copy = 1.25},
        {.name = "mono Y16 to BGR4", .from = fcc("Y16 "), .to = fcc("BGR4"), .to_copy = 1.25},
        {.name = "mono BGR4 to Y800",
         .from = fcc("BGR4"),
         .to = fcc("Y800"),
         .opencv = convert<CV_8UC4, CV_8UC1, cv::COLOR_BGRA2GRAY>,
         .libyuv = yuv<libyuv::ARGBToJ400, 4, 1>,
         .to_copy = 1.25},
        {.name = "mono BGR3 to Y800",
         .from = fcc("BGR3"),
         .to = fcc("Y800"),
         .opencv = convert<CV_8UC3, CV_8UC1, cv::COLOR_BGR2GRAY>,
         .libyuv = yuv<libyuv::RGB24ToJ400, 3, 1>,
         .to_copy = 1.25},
        {.name = "mono Y800 in place, gamma", .from = fcc("Y800"), .to = 0, .params = gamma_alone(), .to_copy = 1.25},
        // The peers' YUV is of limited range.
        {.name = "YUV YUY2 to BGR4",
         .from = fcc("YUY2"),
         .to = fcc("BGR4"),
         .opencv = convert<CV_8UC2, CV_8UC4, cv::COLOR_YUV2BGRA_YUY2>,
         .libyuv = yuv<libyuv::YUY2ToARGB, 2, 4>,
         .to_copy = 1.25},
        {.name = "YUV UYVY to BGR4",
         .from = fcc("UYVY"),
         .to = fcc("BGR4"),
         .opencv = convert<CV_8UC2, CV_8UC4, cv::COLOR_YUV2BGRA_UYVY>,
         .libyuv = yuv<libyuv::UYVYToARGB, 2, 4>,
         .to_copy = 1.25},
        {.name = "YUV UYVY to BGR3",
         .from = fcc("UYVY"),
         .to = fcc("BGR3"),
         .opencv = convert<CV_8UC2, CV_8UC3, cv::COLOR_YUV2BGR_UYVY>,
         .to_copy = 1.25},
        {.name = "YUV Y411 to BGR4", .from = fcc("Y411"), .to = fcc("BGR4"), .to_copy = 1.25},
        {.name = "YUV YUY2 to Y800",
         .from = fcc("YUY2"),
         .to = fcc("Y800"),
         .opencv = convert<CV_8UC2, CV_8UC1, cv::COLOR_YUV2GRAY_YUY2>,
         .libyuv = yuv<libyuv::YUY2ToY, 2, 1>,
         .to_copy = 1.25},
        {.name = "RGB6 to BGR4", .from = fcc("RGB6"), .to = fcc("BGR4"), .to_copy = 1.25},
    };
    return tasks;
}
