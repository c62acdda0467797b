#include "device_document.h"

#include "document_http.h"
#include "posix/document_file.h"

#include <GenICam/zip.h>
#include <gds_shared/gigecam_error.h>

#include <algorithm>

namespace gvcp_master {

namespace reg = gige::gvcp::reg;
using gds_shared::gigecam_errc;

namespace {

constexpr std::size_t url_capacity = 512;

} // namespace

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
std::expected<std::string, std::error_code> read_document_memory(device_control& camera, const document_url& from,
                                                                 milliseconds time) {
    if (from.size > GenICam::largest_document) return std::unexpected(std::make_error_code(std::errc::file_too_large));
    constexpr std::size_t step = 64 * gige::gvcp::max_memory_access;
    const auto until = std::chrono::steady_clock::now() + time;
    std::string content;
    while (content.size() < from.size) {
        if (std::chrono::steady_clock::now() >= until)
            return std::unexpected(std::make_error_code(std::errc::timed_out));
        const std::size_t at = content.size();
        content.resize(at + std::min<std::size_t>(step, from.size - at));
        const auto bytes = std::as_writable_bytes(std::span{content}.subspan(at));
        if (const auto error = camera.read_memory(from.address + at, bytes)) return std::unexpected(error);
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
        content = read_document_memory(camera, from, policy.time);
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
    if (from.zipped()) { // whatever stands before its first member
        auto archive = GenICam::zip_archive::open(std::as_bytes(std::span{*content}));
        if (!archive) return std::unexpected(archive.error());
        return archive->read_document();
    }
    return GenICam::document_text(std::move(*content));
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
