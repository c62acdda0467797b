// A short text that one thread sets and another shows.
#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <span>
#include <string_view>

namespace gds_producer {

// Allocates nothing; what is longer than its room is cut. Thread-safe.
class status_text final {
public:
    static constexpr size_t room = 96;

    template <class... Arguments>
    void set(fmt::format_string<const Arguments&...> format, const Arguments&... arguments) {
        const std::lock_guard guard{mutex};
        const auto written = fmt::format_to_n(text.data(), text.size(), format, arguments...);
        length = std::min(written.size, text.size());
    }
    void clear() {
        const std::lock_guard guard{mutex};
        length = 0;
    }
    // Into the caller's memory.
    [[nodiscard]] std::string_view copy(std::span<char, room> to) const {
        const std::lock_guard guard{mutex};
        std::copy_n(text.data(), length, to.data());
        return {to.data(), length};
    }

private:
    mutable std::mutex mutex; // guards what follows
    std::array<char, room> text{};
    size_t length = 0;
};

} // namespace gds_producer
