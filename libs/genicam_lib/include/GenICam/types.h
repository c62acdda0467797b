// Vocabulary of a GenICam document: enumerations with the numbers of their texts, access flags, document record.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace GenICam {

enum class NodeType_t : int {
    Integer = 0,
    Float = 1,
    Enumeration = 2,
    Boolean = 3,
    String = 4,
    Command = 5,
    Category = 6,
    Register = 7,
    Port = 8,
    EnumEntry = 9
};

enum class Access_t : int { RW = 0, RO = 1, WO = 2 };
enum class CachingMode_t : int { WriteThrough = 0, WriteAround = 1, NoCache = 2 };
enum class DisplayNotation_t : int { Automatic = 0, Fixed = 1, Scientific = 2 };
enum class Endianess_t : int { LittleEndian = 0, BigEndian = 1 };
enum class FloatRepresentation_t : int { Linear = 0, Logarithmic = 1, PureNumber = 2 };
enum class IntRepresentation_t : int {
    Linear = 0,
    Logarithmic = 1,
    Boolean = 2,
    PureNumber = 3,
    HexNumber = 4,
    IPV4Address = 5,
    MACAddress = 6
};
enum class Sign_t : int { Signed = 0, Unsigned = 1 };
enum class Slope_t : int { Increasing = 0, Decreasing = 1, Varying = 2, Automatic = 3 };
enum class Visibility_t : int { Beginner = 0, Expert = 1, Guru = 2, Invisible = 3 };
enum class YesNo_t : int { Yes = 0, No = 1 };
enum class NameSpace_t : int { Custom = 0, Standard = 1 };
enum class MergePriority_t : int { Low = 0, Mid = 1, High = 2 }; // "-1", "0", "+1"
enum class StandardNameSpace_t : int { None = 0, IIDC = 1, GEV = 2, CL = 3, U3V = 4, CXP = 5, CLHS = 6 };
enum class IncMode_t : int { None = 0, List = 1 }; // List: only the values of get_valid_value_set() are accepted

// The flags word that travels unchanged with every read and write down to the port. 0 is the ordinary access.
namespace access_flags {
inline constexpr unsigned cache_only = 0x100;      // touch the port cache, never the device; a miss is an error
inline constexpr unsigned bypass_cache = 0x200;    // go past the cache, read or write
inline constexpr unsigned no_range_check = 0x400;  // skip range, increment and value set of a write
inline constexpr unsigned no_access_check = 0x800; // skip implemented, available, locked and access mode
inline constexpr unsigned raw_string = 0x1000;     // whole string register with its NUL bytes; no terminator added
inline constexpr unsigned ignore_lock = 0x2000;    // skip the lock test of a write
} // namespace access_flags

// Bits of a port's bind operations.
namespace bind_flags {
inline constexpr unsigned invalidate = 1;  // all dependents, after the binding
inline constexpr unsigned copy = 2;        // keep the bytes in the port; otherwise the caller's memory is referred to
inline constexpr unsigned clear_cache = 4; // forget every cached register
} // namespace bind_flags

// Attributes of the root element. The texts live as long as the document.
struct document_info {
    std::string_view model_name;
    std::string_view vendor_name;
    std::string_view tool_tip;
    StandardNameSpace_t standard_name_space = StandardNameSpace_t::None;
    uint32_t schema_major = 1;
    uint32_t schema_minor = 1;
    uint32_t schema_sub_minor = 0;
    uint32_t major = 0;
    uint32_t minor = 0;
    uint32_t sub_minor = 0;
    // The 36 characters as they stand, or all zero bytes. Only a text with '-' at positions 8, 12, 16 and 20 is taken.
    std::array<char, 36> product_guid{};
    std::array<char, 36> version_guid{};
};

// One child of a node's "Extension" element.
struct extension_entry {
    std::string_view key;
    std::string_view value;
};

} // namespace GenICam
