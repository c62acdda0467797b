// Where a camera's GenICam document lies, and how to get it.
#pragma once

#include "device_control.h"

#include <GenICam/document_url.h>

#include <string>
#include <vector>

namespace gvcp_master {

using GenICam::document_url;
using GenICam::parse_document_url;
using GenICam::url_scheme;

// First and second URL register, without empty ones.
[[nodiscard]] std::expected<std::vector<document_url>, std::error_code> read_url_list(device_control& camera);

// What a camera, or who plays one, may make this host open. Beyond its own memory: nothing, until somebody says so.
struct document_policy {
    std::string file_folder;              // absolute: "file:" may name regular files below it; empty: no file
    bool http = false;                    // "http:" may name the camera's own address
    milliseconds time = longest_transfer; // for reading a document out of the camera's memory
};

// The document as plain text, inflated where it was zipped. At most GenICam::largest_document bytes.
// std::errc::operation_not_permitted for what the policy does not allow, std::errc::timed_out of the generic category
// when the policy's time is over, gigecam_errc::timeout when the camera leaves a request unanswered.
[[nodiscard]] std::expected<std::string, std::error_code>
fetch_document(device_control& camera, const document_url& from, const document_policy& policy);

// Of the first URL that gives one; the error of the first when none does.
[[nodiscard]] std::expected<std::string, std::error_code> fetch_document(device_control& camera,
                                                                         const document_policy& policy);

} // namespace gvcp_master
