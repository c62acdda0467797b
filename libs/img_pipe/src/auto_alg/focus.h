// Auto focus: the contrast of blocks of the image, and the search for the lens position where it is greatest.
//
// A run tries coarse_positions at equal distances over the lens's range, keeps to the block that scored best, and then
// tries both sides of the best position at half the distance, again and again, until that is the lens's step. The last
// move goes to the best position of all. Between a move and its measure the lens has time to settle.
#pragma once
#include "records.h"

namespace auto_alg {

struct focus_score {
    double score = -1; // -1: nothing could be measured
    std::int32_t block = -1;
};

// The best block's score, or that of `block` when it is not -1. Blocks of 128 x 128 pixels lie centred in the area;
// where none fits, or more than most_blocks would, the whole area counts as one.
focus_score measure_focus(const img_pipe::img_descriptor& image, const image_area& area, std::int32_t block);

class auto_focus {
public:
    struct step {
        bool changed = false;
        std::int64_t position = 0;
        bool running = false;
        bool done = false;
    };
    step advance(const img_pipe::img_descriptor& image, const auto_pass_params& params);
    void end() { running = false; }

private:
    bool start(const focus_params& params); // false where the lens has no other place
    bool settled(const auto_pass_params& params) const;
    void take(const focus_score& found);
    bool next_position(); // false when the run is at its end
    std::int64_t place(std::int64_t wanted) const;

    bool running = false;
    std::int64_t low = 0, high = 0, lens_step = 1;
    std::int64_t position = 0;             // where the lens was sent
    std::uint64_t frames = 0, sent_ns = 0; // since it was
    int coarse = 0, coarse_count = 0;
    int halving = 0, side = 0;
    std::int64_t distance = 0, centre = 0, best_position = 0;
    focus_score best;
};

} // namespace auto_alg
