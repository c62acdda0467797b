#include "register_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace camera_sim {

using gige::gvcp::status;

void register_file::add_region(uint32_t base, std::size_t size) {
    regions.push_back({base, std::vector<std::byte>(size), std::vector<access>(size / 4, access::none)});
}

void register_file::add_region(uint32_t base, std::vector<std::byte> content) {
    content.resize((content.size() + 3) / 4 * 4);
    const std::size_t words = content.size() / 4;
    regions.push_back({base, std::move(content), std::vector<access>(words, access::read)});
}

const register_file::region* register_file::find(uint32_t address, std::size_t size) const {
    const auto found = std::ranges::find_if(regions, [&](const region& r) { return r.holds(address, size); });
    return found == regions.end() ? nullptr : &*found;
}

void register_file::allow(uint32_t address, std::size_t size, access mode) {
    for (region& r : regions) {
        if (!r.holds(address, size)) continue;
        const std::size_t first = (address - r.base) / 4;
        std::fill_n(r.words.begin() + static_cast<std::ptrdiff_t>(first), (size + 3) / 4, mode);
    }
}

status register_file::check(uint32_t address, std::size_t size, access wanted) const {
    if (address % 4 != 0 || size % 4 != 0) return status::bad_alignment;
    const region* r = find(address, size);
    if (r == nullptr) return gaps_filled ? status::success : status::invalid_address;
    const std::size_t first = (address - r->base) / 4;
    for (std::size_t word = first; word < first + size / 4; ++word) {
        const auto mode = static_cast<unsigned>(r->words[word]);
        if (mode == 0) return status::invalid_address;
        if ((mode & static_cast<unsigned>(wanted)) == 0)
            return wanted == access::write ? status::write_protect : status::access_denied;
    }
    return status::success;
}

void register_file::copy_out(uint32_t address, std::span<std::byte> to) const {
    if (const region* r = find(address, to.size())) {
        std::copy_n(&r->bytes[address - r->base], to.size(), to.begin());
        return;
    }
    std::ranges::fill(to, std::byte{0});
    for (std::size_t at = 0; gaps_filled && at + 4 <= to.size(); at += 4) {
        const auto found = gaps.find(address + static_cast<uint32_t>(at));
        if (found != gaps.end()) gige::store32(&to[at], found->second);
    }
}

void register_file::copy_in(uint32_t address, std::span<const std::byte> from) {
    bool held = false;
    for (region& r : regions) {
        if (!r.holds(address, from.size())) continue;
        std::ranges::copy(from, &r.bytes[address - r.base]);
        held = true;
    }
    for (std::size_t at = 0; gaps_filled && !held && at + 4 <= from.size(); at += 4)
        gaps[address + static_cast<uint32_t>(at)] = gige::load32(&from[at]);
}

uint32_t register_file::get(uint32_t address) const {
    std::array<std::byte, 4> bytes;
    copy_out(address, bytes);
    return gige::load32(bytes.data());
}

void register_file::set(uint32_t address, uint32_t value) {
    std::array<std::byte, 4> bytes;
    gige::store32(bytes.data(), value);
    copy_in(address, bytes);
}

uint64_t register_file::get64(uint32_t address) const {
    return static_cast<uint64_t>(get(address)) << 32 | get(address + 4);
}

void register_file::set64(uint32_t address, uint64_t value) {
    set(address, static_cast<uint32_t>(value >> 32));
    set(address + 4, static_cast<uint32_t>(value));
}

double register_file::get_double(uint32_t address) const { return std::bit_cast<double>(get64(address)); }
void register_file::set_double(uint32_t address, double value) { set64(address, std::bit_cast<uint64_t>(value)); }
float register_file::get_float(uint32_t address) const { return std::bit_cast<float>(get(address)); }
void register_file::set_float(uint32_t address, float value) { set(address, std::bit_cast<uint32_t>(value)); }

void register_file::set_text(uint32_t address, std::size_t capacity, std::string_view text) {
    std::vector<std::byte> bytes(capacity, std::byte{0});
    std::memcpy(bytes.data(), text.data(), std::min(text.size(), capacity - 1));
    copy_in(address, bytes);
}

} // namespace camera_sim
