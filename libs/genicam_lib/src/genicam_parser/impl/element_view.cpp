#include "element_view.h"

#include <cstddef>
#include <cstring>

namespace GenICam::impl {

namespace {

constexpr std::string_view names[] = {
#define GENICAM_NAME(name) #name,
    GENICAM_ELEMENT_NAMES(GENICAM_NAME)
#undef GENICAM_NAME
};

constexpr std::size_t table_size = 512;

// Length, both ends and two characters within tell the names apart well; what still meets takes the next free place.
constexpr std::size_t place_of(std::string_view name) noexcept {
    const auto at = [&](std::size_t i) -> std::size_t { return static_cast<unsigned char>(name[i]); };
    const std::size_t n = name.size();
    return (n * 37 + at(0) * 7 + at(1) * 61 + at(n - 1) * 131 + at(n / 2) * 19) % table_size;
}

constexpr auto table = [] {
    std::array<tag, table_size> places{};
    places.fill(tag::none);
    for (std::size_t i = 0; i < std::size(names); ++i) {
        std::size_t place = place_of(names[i]);
        while (places[place] != tag::none) place = (place + 1) % table_size;
        places[place] = static_cast<tag>(i);
    }
    return places;
}();

template <class T>
bool same(const char* a, const char* b) noexcept {
    T left;
    T right;
    std::memcpy(&left, a, sizeof(T));
    std::memcpy(&right, b, sizeof(T));
    return left == right;
}

// As ==, without a call: it runs for every element of a document, twice. At least 3 characters.
bool same_name(std::string_view a, std::string_view b) noexcept {
    const std::size_t n = a.size();
    if (n != b.size()) return false;
    const char* const x = a.data();
    const char* const y = b.data();
    if (n < 4) return same<uint16_t>(x, y) && x[2] == y[2];
    if (n < 8) return same<uint32_t>(x, y) && same<uint32_t>(x + n - 4, y + n - 4);
    for (std::size_t at = 0; at < n - 8; at += 8)
        if (!same<uint64_t>(x + at, y + at)) return false;
    return same<uint64_t>(x + n - 8, y + n - 8);
}

} // namespace

tag tag_of(std::string_view name) noexcept {
    if (name.size() < 3) return tag::none;
    for (std::size_t place = place_of(name); table[place] != tag::none; place = (place + 1) % table_size) {
        if (same_name(names[static_cast<std::size_t>(table[place])], name)) return table[place];
    }
    return tag::none;
}

} // namespace GenICam::impl
