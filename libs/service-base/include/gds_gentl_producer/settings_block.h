// The block of settings that library and service share. Offsets and widths are a contract between the two.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace gds_producer {

// Flags are 32 bits wide, zero or not. Both processes may write at any time, so every access is atomic.
class settings_block final {
public:
    enum offset : size_t {
        overlay = 0,
        drop_incomplete_frames = 8,
        master_enable = 12,
        frame_rate = 96, // 64-bit float; 0 when unknown
    };
    static constexpr size_t minimum_size = 344;

    settings_block() = default;
    // The bytes outlive the view; at least minimum_size of them, aligned to 8.
    explicit settings_block(std::span<std::byte> memory) : bytes(memory) {}
    explicit operator bool() const noexcept { return bytes.size() >= minimum_size; }

    [[nodiscard]] bool flag(offset at) const noexcept { return word(at).load(std::memory_order_relaxed) != 0; }
    void set_flag(offset at, bool value) const noexcept { word(at).store(value ? 1 : 0, std::memory_order_relaxed); }
    void set_frame_rate(double value) const noexcept {
        std::atomic_ref{*reinterpret_cast<double*>(bytes.data() + frame_rate)}.store(value);
    }

private:
    [[nodiscard]] std::atomic_ref<uint32_t> word(offset at) const noexcept {
        return std::atomic_ref{*reinterpret_cast<uint32_t*>(bytes.data() + at)};
    }
    std::span<std::byte> bytes;
};

} // namespace gds_producer
