// The words of the schema's enumerations, in the order of the enumerators.
#pragma once

#include <genicam_gen/model.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace genicam_gen {

template <class E>
struct enum_words;
template <>
struct enum_words<standard_name_space> {
    static constexpr std::array words{"None", "IIDC", "GEV", "CL", "U3V", "CXP", "CLHS"};
};
template <>
struct enum_words<name_space> {
    static constexpr std::array words{"Custom", "Standard"};
};
template <>
struct enum_words<merge_priority> {
    static constexpr std::array words{"-1", "0", "+1"};
};
template <>
struct enum_words<visibility> {
    static constexpr std::array words{"Beginner", "Expert", "Guru", "Invisible"};
};
template <>
struct enum_words<access_mode> {
    static constexpr std::array words{"RO", "WO", "RW"};
};
template <>
struct enum_words<sign> {
    static constexpr std::array words{"Signed", "Unsigned"};
};
template <>
struct enum_words<endianess> {
    static constexpr std::array words{"LittleEndian", "BigEndian"};
};
template <>
struct enum_words<cachable> {
    static constexpr std::array words{"NoCache", "WriteThrough", "WriteAround"};
};
template <>
struct enum_words<slope> {
    static constexpr std::array words{"Increasing", "Decreasing", "Varying", "Automatic"};
};
template <>
struct enum_words<representation> {
    static constexpr std::array words{"Linear",    "Logarithmic", "Boolean",   "PureNumber",
                                      "HexNumber", "IPV4Address", "MACAddress"};
};
template <>
struct enum_words<display_notation> {
    static constexpr std::array words{"Automatic", "Fixed", "Scientific"};
};

template <class E>
concept word_enum = requires {
    enum_words<E>::words;
};

template <word_enum E>
[[nodiscard]] constexpr const char* to_word(E value) {
    return enum_words<E>::words[static_cast<std::size_t>(value)];
}

template <word_enum E>
[[nodiscard]] constexpr std::optional<E> from_word(std::string_view word) {
    for (std::size_t i = 0; i < enum_words<E>::words.size(); ++i) {
        if (word == enum_words<E>::words[i]) return static_cast<E>(i);
    }
    return std::nullopt;
}

} // namespace genicam_gen
