// The camera's address space: regions of bytes with an access mode per 32-bit word.
#pragma once

#include <gige/gvcp.h>

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace camera_sim {

enum class access : uint8_t { none = 0, read = 1, write = 2, read_write = 3 };

// Not synchronised: device_state's mutex guards it.
class register_file {
public:
    void add_region(uint32_t base, std::size_t size);
    void add_region(uint32_t base, std::vector<std::byte> content); // read only, rounded up to words
    void allow(uint32_t address, std::size_t size, access mode);
    // From here on there is memory outside the regions, too: zero until it is written.
    void fill_gaps() { gaps_filled = true; }

    // Checked as the control protocol wants it. Addresses and sizes are multiples of 4.
    [[nodiscard]] gige::gvcp::status check(uint32_t address, std::size_t size, access wanted) const;

    // Unchecked; outside all memory reads give zeros and writes nothing.
    void copy_out(uint32_t address, std::span<std::byte> to) const;
    void copy_in(uint32_t address, std::span<const std::byte> from);
    [[nodiscard]] uint32_t get(uint32_t address) const;
    void set(uint32_t address, uint32_t value);
    [[nodiscard]] uint64_t get64(uint32_t address) const;
    void set64(uint32_t address, uint64_t value);
    [[nodiscard]] double get_double(uint32_t address) const; // 8 bytes
    void set_double(uint32_t address, double value);
    [[nodiscard]] float get_float(uint32_t address) const; // 4 bytes
    void set_float(uint32_t address, float value);
    void set_text(uint32_t address, std::size_t capacity, std::string_view text); // cut, always ends in a zero

private:
    struct region {
        uint32_t base{};
        std::vector<std::byte> bytes;
        std::vector<access> words;
        [[nodiscard]] bool holds(uint32_t address, std::size_t size) const {
            return address >= base && size <= bytes.size() && address - base <= bytes.size() - size;
        }
    };
    [[nodiscard]] const region* find(uint32_t address, std::size_t size) const;
    std::vector<region> regions;
    bool gaps_filled = false;
    std::map<uint32_t, uint32_t> gaps; // words that were written, by address
};

} // namespace camera_sim
