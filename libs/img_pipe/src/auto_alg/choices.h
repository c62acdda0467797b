// How the automatic functions are tuned, and why. docs/image-processing.md tells it to users.
#pragma once
#include <cstdint>

namespace auto_alg {

// Sampling: cells on at most so many columns and lines of the region, in the middle of equal fields; every second line
// is moved by half a field, so that stripes at the grid's own distance do not hide. The noise of a mean over 1536
// places is a fortieth of a pixel's, far inside the dead band, and a pass over them takes 40 us.
constexpr std::int32_t sample_columns = 48, sample_lines = 32;
constexpr std::int32_t most_samples = sample_columns * sample_lines;

// Pacing: a value written to the camera shows two frames later (one is being exposed, one read out), so a pass waits
// for the third. Below 5 frames/s that would take too long, and each frame counts: thirds stay stable with a frame's
// delay. 50 ms at least: the camera takes a write in some ms, and 50 ms are whole periods of lamps at 100 and at 120
// Hz, so that fast cameras do not chase their flicker. Half a millisecond less, for frame times that are rounded.
constexpr std::uint64_t min_wait_ns = 49'500'000, max_wait_ns = 200'000'000, max_frames = 2;

// Flicker at a rate that does not meet the passes' shows as a light that goes up and down. After so many turns within
// the last passes the mean of these is acted upon. A move counts from the dead band's width on; a light beyond all of
// the last passes by this factor is another one and begins anew: it is followed at once.
constexpr int light_passes = 12, flicker_turns = 2;
constexpr double turning_part = 1.04, other_light = 1.3;

// Brightness to reach when none is set, of 255: a mean of 40 % keeps two and a half times the mean below white.
constexpr std::uint32_t default_reference = 102;
// Luma from which a record counts as bright: clipped, or nearly so.
constexpr std::uint32_t bright_luma = 240;
constexpr double bright_level = bright_luma / 255.0;
// Where more records are bright than an image of the wanted mean can have, they hide how far the exposure is over, and
// the reference falls for a longer step; see reference_brightness. With all bright it is this power of wanted / bright.
constexpr double bright_power = 3;

// Gain: a third of the way on the logarithmic scale, as exposure goes a third of the way on the linear one.
constexpr double gain_part = 1.0 / 3;

// Iris: quarters of a way half as long again are three eighths of the way.
constexpr double iris_lead = 0.5;

// Focus: the range is searched at so many equal distances, then the distance around the best place is halved until it
// is the lens's step, at most so often. Two places each time.
constexpr int coarse_positions = 12, most_halvings = 16;
// After a move the lens and the frames on their way need time: frames, and where frames have times, also ns.
constexpr std::uint64_t settle_frames = 3, settle_ns = 150'000'000;
// Contrast: the square of differences at a distance of two samples, which in a mosaic are of one colour, both ways,
// over the square of the mean, so that light does not matter. In parts of 2^24, because neighbours count an eighth.
constexpr std::int32_t block_size = 128;
constexpr std::int32_t most_blocks = 1024;
constexpr double contrast_unit = 16777216;
// Pixels measured for all blocks of an image together; fewer of formats that are read pixel by pixel.
constexpr std::int32_t contrast_pixels = 81920, slow_contrast_pixels = 20480;

// A control that was asked for the same by so many passes, was answered, and is where it was stays there, and the
// others move. So it does without an answer after a time that a write with its repeats and the pause behind a silent
// camera do not take: it is refused then. The passes are what fits into that time. Every so many passes that would ask
// again one does: a feature is unlocked, a limit lifted. A twentieth of the passes makes no loop slow.
constexpr std::uint32_t unmoved_passes = 3, spared_passes = 20;
constexpr std::uint64_t unanswered_ns = 3'000'000'000;
constexpr std::uint32_t unanswered_passes = 60;

// What a gain of the white balance moves by.
constexpr float gain_step = 1.0F / 64;
// White balance once by steps ends after so many passes: noise or a changing scene could keep it stepping for ever.
constexpr std::int32_t most_once_passes = 60;
// Passes of white balance once by temperature, and of how many records one is scanned: 71 rows take 20 us then.
constexpr std::int32_t scan_passes = 5, scan_stride = 2;

} // namespace auto_alg
