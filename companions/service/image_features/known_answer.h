// What a camera makes of values, as far as it has told. Who asks for more of something gets no less of it, so of all
// values between two that had one answer that answer is known: a limit that no document tells, a step of the camera's.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

namespace image_features {

// Of N values that are asked for together and answered each by itself. Thread-bound. Now and then the camera is asked
// all the same: what it takes may depend on something else that has changed since.
template <std::size_t N, unsigned most_passed_over>
class known_answer final {
public:
    using values = std::array<double, N>;

    void learn(const values& asked, const values& answered) {
        if (answered != answer || !is_known) low = high = asked;
        is_known = true;
        passed_over = 0;
        answer = answered;
        for (std::size_t i = 0; i < N; ++i) {
            low[i] = std::min(low[i], asked[i]);
            high[i] = std::max(high[i], asked[i]);
        }
    }

    // Whether the camera, which has `current`, would keep it.
    [[nodiscard]] bool is_kept(const values& wanted, const values& current) {
        if (!is_known || current != answer) return false;
        for (std::size_t i = 0; i < N; ++i)
            if (!(low[i] <= wanted[i] && wanted[i] <= high[i])) return false;
        if (++passed_over <= most_passed_over) return true;
        passed_over = 0;
        return false;
    }

private:
    bool is_known = false;
    unsigned passed_over = 0;
    values low{}, high{}, answer{};
};

} // namespace image_features
