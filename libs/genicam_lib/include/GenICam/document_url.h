// Where the document of a port lies, as the text of its URL says.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace GenICam {

// Bytes of a document, packed or not, for all who read one. No real one comes near; who says more is broken or means
// harm.
inline constexpr std::size_t largest_document = std::size_t{64} << 20;

// The values are those of GenTL's URL_SCHEME.
enum class url_scheme : int32_t { local = 0, http = 1, file = 2 };

struct document_url {
    std::string url;                          // the text as it came
    std::optional<url_scheme> scheme;         // none: the text does not parse, nothing below it is set
    std::string name;                         // file name; the path of a file; all of an address, its query too
    uint64_t address{};                       // in the port's registers, for local ones
    uint64_t size{};                          // bytes
    std::array<uint32_t, 3> schema_version{}; // 0.0.0 when not stated
    std::array<uint32_t, 3> file_version{};   // of a name such as "name_1_2_3.xml"; 0.0.0 otherwise

    // What stands in `name` behind the last slash, without a query.
    [[nodiscard]] std::string_view file_name() const noexcept;
    // By the ending of the name; the bytes have the last word (is_zipped in zip.h).
    [[nodiscard]] bool zipped() const noexcept;
};

// Reentrant; takes any text, as it is the camera's. Forms: "local:", "file:" and "http:" in any case, with or without
// "///", which leaves one slash of a file's path; for local ones "name.ext;ADDRESS;LENGTH", hexadecimal with or without
// "0x" and with blanks around; all with an optional query, whose "SchemaVersion=a.b" or "a.b.c" is read, blanks around
// it or not.
[[nodiscard]] document_url parse_document_url(std::string_view text);

} // namespace GenICam
