#include "scenes.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

namespace {

constexpr int oversampling = 4;
constexpr int big = scene_size * oversampling;
using colour = std::array<float, 3>; // red, green, blue

// Calls shade(x, y) at the fine grid, in pixels of the scene, and takes the mean of each pixel's samples.
template <class F>
picture rendered(const F& shade) {
    picture out(scene_size, scene_size);
    for (int y = 0; y < scene_size; ++y)
        for (int x = 0; x < scene_size; ++x) {
            colour sum{};
            for (int j = 0; j < oversampling; ++j)
                for (int i = 0; i < oversampling; ++i) {
                    const colour c = shade(x + (i + 0.5) / oversampling, y + (j + 0.5) / oversampling);
                    for (std::size_t k = 0; k < 3; ++k) sum[k] += c[k];
                }
            for (int k = 0; k < 3; ++k)
                out.at(k, x, y) = sum[static_cast<std::size_t>(k)] / (oversampling * oversampling);
        }
    return out;
}

picture from_fine(const cv::Mat& fine) {
    cv::Mat small;
    cv::resize(fine, small, cv::Size(scene_size, scene_size), 0, 0, cv::INTER_AREA);
    picture out(scene_size, scene_size);
    for (int y = 0; y < scene_size; ++y)
        for (int x = 0; x < scene_size; ++x)
            for (int k = 0; k < 3; ++k) out.at(k, x, y) = small.at<cv::Vec3f>(y, x)[k];
    return out;
}

double uniform(std::mt19937& random, double low, double high) {
    return low + (high - low) * static_cast<double>(random()) / 4294967296.0;
}

colour any_colour(std::mt19937& random) {
    return {static_cast<float>(uniform(random, 0, 255)), static_cast<float>(uniform(random, 0, 255)),
            static_cast<float>(uniform(random, 0, 255))};
}

// As most things are: a brightness, and channels that differ from it by some.
colour natural_colour(std::mt19937& random) {
    const double light = uniform(random, 20, 235), tint = uniform(random, 0, 0.45);
    colour c{};
    for (float& v : c) v = static_cast<float>(std::clamp(light * (1 + tint * uniform(random, -1, 1)), 0.0, 255.0));
    return c;
}

picture zone_plate(unsigned seed, const colour& low, const colour& high) {
    std::mt19937 random(seed);
    const double cx = scene_size / 2.0 + uniform(random, -20, 20), cy = scene_size / 2.0 + uniform(random, -20, 20);
    const double k = M_PI / (scene_size * M_SQRT2); // half a period a pixel in the corners
    return rendered([&](double x, double y) {
        const double r2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
        const auto t = static_cast<float>(0.5 + 0.5 * std::cos(k * r2));
        colour c{};
        for (std::size_t i = 0; i < 3; ++i) c[i] = low[i] + t * (high[i] - low[i]);
        return c;
    });
}

picture grey_zone_plate(unsigned seed) { return zone_plate(seed, {20, 20, 20}, {235, 235, 235}); }
picture coloured_zone_plate(unsigned seed) { return zone_plate(seed, {60, 30, 40}, {220, 235, 120}); }

// Fields of 48 pixels, each with an edge at an angle of its own.
template <class F>
picture edges(unsigned seed, const F& pair_of_colours) {
    constexpr int field = 48, fields = scene_size / field;
    std::mt19937 random(seed);
    struct edge {
        double nx, ny, offset;
        colour a, b;
    };
    std::vector<edge> all(fields * fields);
    for (edge& e : all) {
        const double angle = uniform(random, 0, 2 * M_PI);
        e = {std::cos(angle), std::sin(angle), uniform(random, -8, 8), {}, {}};
        pair_of_colours(random, e.a, e.b);
    }
    return rendered([&](double x, double y) {
        const int i = static_cast<int>(x) / field, j = static_cast<int>(y) / field;
        const edge& e = all[static_cast<std::size_t>(j * fields + i)];
        const double d = (x - (i + 0.5) * field) * e.nx + (y - (j + 0.5) * field) * e.ny - e.offset;
        return d < 0 ? e.a : e.b;
    });
}

picture grey_edges(unsigned seed) {
    return edges(seed, [](std::mt19937& random, colour& a, colour& b) {
        a.fill(static_cast<float>(uniform(random, 10, 110)));
        b.fill(static_cast<float>(uniform(random, 145, 245)));
    });
}

picture coloured_edges(unsigned seed) {
    return edges(seed, [](std::mt19937& random, colour& a, colour& b) {
        a = any_colour(random);
        b = any_colour(random);
    });
}

cv::Scalar scalar(const colour& c) { return {c[0], c[1], c[2]}; }

// Discs over each other, the density of radii falls with the third power: the statistics of natural pictures.
template <class F>
picture discs(unsigned seed, int count, double smallest, double largest, const colour& ground, const F& pick) {
    std::mt19937 random(seed);
    cv::Mat fine(big, big, CV_32FC3, scalar(ground));
    for (int i = 0; i < count; ++i) {
        const double t = uniform(random, 0, 1);
        const double a = 1 / (smallest * smallest), b = 1 / (largest * largest);
        const double radius = 1 / std::sqrt(a + t * (b - a));
        const auto place = [&] { return static_cast<int>(uniform(random, 0, big)); };
        const int x = place(), y = place();
        cv::circle(fine, {x, y}, static_cast<int>(radius * oversampling), scalar(pick(random)), cv::FILLED, cv::LINE_8);
    }
    return from_fine(fine);
}

picture dead_leaves(unsigned seed) { return discs(seed, 30000, 1.5, 80, {90, 90, 90}, natural_colour); }
picture saturated_blobs(unsigned seed) {
    return discs(seed, 500, 3, 30, {12, 10, 14}, [](std::mt19937& random) {
        colour c{};
        const unsigned bits = 1 + random() % 6; // neither black nor white
        for (unsigned k = 0; k < 3; ++k)
            c[k] = static_cast<float>((bits >> k & 1) != 0 ? uniform(random, 180, 255) : uniform(random, 0, 25));
        return c;
    });
}

picture text(unsigned seed) {
    std::mt19937 random(seed);
    cv::Mat fine(big, big, CV_32FC3, scalar({225, 225, 220}));
    // The lower half on tinted paper, some lines in colour.
    cv::rectangle(fine, {0, big / 2}, {big, big}, scalar(natural_colour(random)), cv::FILLED);
    for (double y = 12; y < scene_size; y += uniform(random, 11, 19)) {
        std::string line;
        for (int i = 0; i < 60; ++i) line += static_cast<char>(random() % 6 == 0 ? ' ' : '!' + random() % 94);
        colour ink{25, 25, 28};
        if (random() % 3 == 0) ink = any_colour(random);
        const double size = uniform(random, 0.28, 0.5);
        cv::putText(fine, line, {8, static_cast<int>(y * oversampling)}, cv::FONT_HERSHEY_SIMPLEX, size * oversampling,
                    scalar(ink), random() % 2 == 0 ? 4 : 6, cv::LINE_8);
    }
    return from_fine(fine);
}

} // namespace

const std::vector<scene_kind> scenes = {
    {"zone plate, grey", grey_zone_plate}, {"zone plate, coloured", coloured_zone_plate},
    {"slanted edges, grey", grey_edges},   {"slanted edges, coloured", coloured_edges},
    {"dead leaves", dead_leaves},          {"text", text},
    {"saturated blobs", saturated_blobs}};

const std::vector<noise_level> noise_levels = {{"none", 0, 0}, {"some", 0.03, 1}, {"much", 0.25, 3}};

std::vector<std::uint16_t> mosaic_of(const picture& scene, const noise_level& noise, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    std::vector<std::uint16_t> out;
    out.reserve(scene.size());
    for (int y = 0; y < scene.height; ++y)
        for (int x = 0; x < scene.width; ++x) {
            const double v = scene.at(y % 2 + x % 2, x, y);
            const double seen = v + normal(random) * std::sqrt(noise.shot * v + noise.read * noise.read);
            out.push_back(static_cast<std::uint16_t>(std::lround(std::clamp(seen, 0.0, 255.0) * 257)));
        }
    return out;
}
