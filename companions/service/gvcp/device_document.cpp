#include "device_document.h"

#include <gds_shared/gigecam_error.h>

#include <algorithm>
#include <charconv>

namespace gvcp_master {

namespace reg = gige::gvcp::reg;
using gds_shared::gigecam_errc;

namespace {

constexpr std::size_t url_capacity = 512;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool starts_with_any_case(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && std::ranges::equal(text.substr(0, prefix.size()), prefix, {}, lower, lower);
}

std::optional<uint64_t> parse_hex(std::string_view text) {
    while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
    if (starts_with_any_case(text, "0x")) text.remove_prefix(2);
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (error != std::errc{} || end != text.data() + text.size()) return {};
    return value;
}

// "a<separator>b<separator>c", each decimal.
std::optional<std::array<uint32_t, 3>> parse_version(std::string_view text, char separator) {
    std::array<uint32_t, 3> version{};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < version.size(); ++i) {
        if (i > 0 && (at == end || *at++ != separator)) return {};
        const auto [next, error] = std::from_chars(at, end, version[i]);
        if (error != std::errc{}) return {};
        at = next;
    }
    if (at != end) return {};
    return version;
}

// From "name_a_b_c.ext".
std::array<uint32_t, 3> version_of_file(std::string_view name) {
    name = name.substr(name.find_last_of("/\\") + 1);
    const auto dot = name.rfind('.');
    std::string_view stem = name.substr(0, dot);
    std::size_t start = stem.size();
    for (int i = 0; i < 3; ++i) {
        if (start == 0) return {};
        start = stem.rfind('_', start - 1);
        if (start == std::string_view::npos) return {};
    }
    return parse_version(stem.substr(start + 1), '_').value_or(std::array<uint32_t, 3>{});
}

bool is_archive(std::string_view content) { return content.starts_with("PK\x03\x04"); }

} // namespace

bool document_url::zipped() const {
    constexpr std::string_view ending = ".zip";
    const auto path = std::string_view{name}.substr(0, scheme == url_scheme::http ? name.find('?') : name.size());
    return path.size() >= ending.size() && starts_with_any_case(path.substr(path.size() - ending.size()), ending);
}

document_url parse_document_url(std::string_view text) {
    document_url result;
    result.url = text;
    std::string_view rest = text;
    url_scheme scheme{};
    if (starts_with_any_case(rest, "local:"))
        scheme = url_scheme::local;
    else if (starts_with_any_case(rest, "http:"))
        scheme = url_scheme::http;
    else if (starts_with_any_case(rest, "file:"))
        scheme = url_scheme::file;
    else
        return result;
    rest.remove_prefix(rest.find(':') + 1);
    const std::string_view with_query = rest;

    std::array<uint32_t, 3> schema{};
    if (const auto query = rest.find('?'); query != std::string_view::npos) {
        constexpr std::string_view key = "SchemaVersion=";
        const auto parameters = rest.substr(query + 1);
        if (starts_with_any_case(parameters, key))
            schema = parse_version(parameters.substr(key.size()), '.').value_or(schema);
        rest = rest.substr(0, query);
    }
    if (scheme == url_scheme::http) {
        result.scheme = scheme;
        result.name = "http:" + std::string{with_query};
        result.schema_version = schema;
        result.file_version = version_of_file(rest);
        return result;
    }
    if (rest.starts_with("///")) rest.remove_prefix(scheme == url_scheme::file ? 2 : 3);
    if (rest.empty()) return result;
    if (scheme == url_scheme::local) {
        const auto first = rest.find(';');
        const auto second = first == std::string_view::npos ? first : rest.find(';', first + 1);
        if (second == std::string_view::npos || first == 0) return result;
        const auto address = parse_hex(rest.substr(first + 1, second - first - 1));
        const auto size = parse_hex(rest.substr(second + 1));
        if (!address || !size) return result;
        result.address = *address;
        result.size = *size;
        rest = rest.substr(0, first);
    }
    result.scheme = scheme;
    result.name = rest;
    result.schema_version = schema;
    result.file_version = version_of_file(rest);
    return result;
}

std::expected<std::vector<document_url>, std::error_code> read_url_list(device_control& camera) {
    std::vector<document_url> list;
    std::error_code failed;
    for (const auto address : {reg::first_url, reg::second_url}) {
        const auto text = camera.read_text(address, url_capacity);
        if (!text)
            failed = failed ? failed : text.error();
        else if (!text->empty())
            list.push_back(parse_document_url(*text));
    }
    if (list.empty() && failed) return std::unexpected(failed);
    return list;
}

namespace {

// A camera that answers each request just in time shall not hold the reader for hours.
std::expected<std::string, std::error_code> read_document_memory(device_control& camera, const document_url& from) {
    if (from.size > max_document) return std::unexpected(std::make_error_code(std::errc::file_too_large));
    constexpr std::size_t step = 64 * gige::gvcp::max_memory_access;
    const auto until = std::chrono::steady_clock::now() + document_time;
    std::string content;
    while (content.size() < from.size) {
        const std::size_t at = content.size();
        content.resize(at + std::min<std::size_t>(step, from.size - at));
        const auto bytes = std::as_writable_bytes(std::span{content}.subspan(at));
        if (const auto error = camera.read_memory(from.address + at, bytes)) return std::unexpected(error);
        if (std::chrono::steady_clock::now() >= until) return std::unexpected(make_error_code(gigecam_errc::timeout));
    }
    return content;
}

} // namespace

std::expected<std::string, std::error_code> fetch_document(device_control& camera, const document_url& from,
                                                           const document_policy& policy) {
    if (!from.scheme) return std::unexpected(make_error_code(gigecam_errc::parsing_failed));
    const auto forbidden = std::unexpected(std::make_error_code(std::errc::operation_not_permitted));
    std::expected<std::string, std::error_code> content;
    switch (*from.scheme) {
    case url_scheme::local:
        content = read_document_memory(camera, from);
        break;
    case url_scheme::file:
        if (policy.file_folder.empty()) return forbidden;
        content = read_file_below(policy.file_folder, from.name);
        break;
    case url_scheme::http:
        if (!policy.http) return forbidden;
        content = fetch_http(from.name, camera.device().address, milliseconds{10'000}, camera.cancelled());
        break;
    }
    if (!content) return content;
    if (from.zipped() || is_archive(*content)) return unzip_first_file(std::move(*content));
    // Camera memory is often longer than the text.
    content->resize(std::min(content->find('\0'), content->size()));
    return content;
}

std::expected<std::string, std::error_code> fetch_document(device_control& camera, const document_policy& policy) {
    const auto list = read_url_list(camera);
    if (!list) return std::unexpected(list.error());
    std::expected<std::string, std::error_code> first =
        std::unexpected(std::make_error_code(std::errc::no_such_file_or_directory));
    for (std::size_t i = 0; i < list->size(); ++i) {
        auto document = fetch_document(camera, (*list)[i], policy);
        if (document) return document;
        if (i == 0) first = std::move(document);
    }
    return first;
}

} // namespace gvcp_master
