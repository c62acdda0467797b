// Where a camera's GenICam document lies, and how to get it.
#pragma once

#include "device_control.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gvcp_master {

enum class url_scheme { local, http, file };

struct document_url {
    std::string url;                  // as the camera says it
    std::optional<url_scheme> scheme; // none: the text does not parse, nothing below it is set
    std::string name;                 // file name; whole path or address for the other schemes
    uint64_t address{};               // in the camera's memory, for local ones
    uint64_t size{};
    std::array<uint32_t, 3> schema_version{}; // 0.0.0 when not stated
    std::array<uint32_t, 3> file_version{};
    [[nodiscard]] bool zipped() const;
};

// Forms: "local:", "file:" and "http:" in any case, with or without "///"; for local ones
// "name.ext;ADDRESS;LENGTH", hexadecimal with or without "0x"; all with an optional "?SchemaVersion=a.b.c".
[[nodiscard]] document_url parse_document_url(std::string_view text);

// First and second URL register, without empty ones.
[[nodiscard]] std::expected<std::vector<document_url>, std::error_code> read_url_list(device_control& camera);

// The document as plain text, inflated where it was zipped. At most 64 MiB.
[[nodiscard]] std::expected<std::string, std::error_code> fetch_document(device_control& camera,
                                                                         const document_url& from);

// Of the first URL that gives one; the error of the first when none does.
[[nodiscard]] std::expected<std::string, std::error_code> fetch_document(device_control& camera);

// The first file of an archive in memory.
[[nodiscard]] std::expected<std::string, std::error_code> unzip_first_file(std::string archive);

// GET over plain HTTP, no redirects.
[[nodiscard]] std::expected<std::string, std::error_code> fetch_http(std::string_view url, milliseconds timeout);

inline constexpr std::size_t max_document = 64U << 20;

} // namespace gvcp_master
