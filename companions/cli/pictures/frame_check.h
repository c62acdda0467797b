// Frames of the simulated camera, compared with the picture that it must have sent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace cli {

class frame_check final {
public:
    // A whole frame: the first bytes of `data` are its picture.
    void check(std::span<const std::byte> data, uint64_t block_id, uint32_t width, uint32_t height, uint32_t pfnc);

    // The camera's ids begin anew.
    void begin_anew() noexcept { last.reset(); }
    [[nodiscard]] uint64_t wrong() const noexcept { return wrong_frames; }
    [[nodiscard]] uint64_t out_of_order() const noexcept { return misplaced; }

private:
    std::vector<std::byte> expected;
    std::optional<uint64_t> last;
    bool extended = false;
    uint64_t wrong_frames = 0;
    uint64_t misplaced = 0;
};

} // namespace cli
