// Where a camera's GenICam document lies, and how to get it.
#pragma once

#include "device_control.h"

#include <array>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace gvcp_master {

enum class url_scheme { local, http, file };

struct document_url {
    std::string url;                  // as the camera says it
    std::optional<url_scheme> scheme; // none: the text does not parse, nothing below it is set
    std::string name;                 // file name; the path of a file; all of an address, its query too
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

// What a camera, or who plays one, may make this host open. Beyond its own memory: nothing, until somebody says so.
struct document_policy {
    std::string file_folder; // absolute: "file:" may name regular files below it; empty: no file
    bool http = false;       // "http:" may name the camera's own address
};

// The document as plain text, inflated where it was zipped. At most max_document, and at most document_time.
// std::errc::operation_not_permitted for what the policy does not allow.
[[nodiscard]] std::expected<std::string, std::error_code>
fetch_document(device_control& camera, const document_url& from, const document_policy& policy);

// Of the first URL that gives one; the error of the first when none does.
[[nodiscard]] std::expected<std::string, std::error_code> fetch_document(device_control& camera,
                                                                         const document_policy& policy);

// The first file of an archive in memory.
[[nodiscard]] std::expected<std::string, std::error_code> unzip_first_file(std::string archive);

// A regular file below the folder, reached without following a link. `name` is relative to the folder, or absolute and
// within it.
[[nodiscard]] std::expected<std::string, std::error_code> read_file_below(const std::string& folder,
                                                                          std::string_view name);

// GET over plain HTTP, no redirects, no names: the host of the URL must be `only_host`, as numbers. The whole exchange
// is over within `timeout`, and with std::errc::operation_canceled when it is stopped.
[[nodiscard]] std::expected<std::string, std::error_code> fetch_http(std::string_view url, uint32_t only_host,
                                                                     milliseconds timeout, std::stop_token stop = {});

inline constexpr std::size_t max_document = 64U << 20;
inline constexpr milliseconds document_time{120'000};

} // namespace gvcp_master
