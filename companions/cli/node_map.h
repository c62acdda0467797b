// The features behind a GenTL port: the document that the port offers, bound to the port.
#pragma once

#include "gentl_library.h"

#include <GenICam/IGenICamDoc.h>

#include <chrono>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

namespace cli {

class node_map final {
public:
    // Reads the document of the port's first URL, zipped or not. The port stays open for as long as this lives.
    node_map(const gentl_library& lib, void* port);
    ~node_map();

    [[nodiscard]] GenICam::IGenICamDoc& document() const noexcept { return *doc; }
    [[nodiscard]] const std::string& url() const noexcept { return document_url; }

private:
    class port_adapter;
    std::string document_url;
    std::unique_ptr<port_adapter> adapter;
    std::unique_ptr<GenICam::IGenICamDoc> doc;
};

[[nodiscard]] const char* kind_text(const GenICam::INode& node);
// "RW", "RO", "WO", "NA" or "NI".
[[nodiscard]] std::string access_text(const GenICam::INode& node);
[[nodiscard]] const char* visibility_text(const GenICam::INode& node);
// The value as text; nothing for categories, commands and ports. The error's text in `error` when it cannot be read.
[[nodiscard]] std::string value_text(GenICam::INode& node, std::string& error);
// Everything that the node can tell.
[[nodiscard]] nlohmann::json describe(GenICam::INode& node);
// A locked feature is refused before it is written. Takes a number, "true"/"false", an entry's name or a text, by the
// node's kind. Throws std::runtime_error.
void set_from_text(GenICam::INode& node, const std::string& text);
// Sends the command and does not wait: some, as AcquisitionStart, are done only when others end them.
void execute(GenICam::INode& node);
// Until the command is done; throws when it is not after the time given. A command that cannot be read is done.
void wait_until_done(GenICam::INode& node, std::chrono::milliseconds longest);

// Throw std::runtime_error naming the feature.
[[nodiscard]] GenICam::INode& require_node(const node_map& nodes, const std::string& name);
[[nodiscard]] int64_t require_integer(const node_map& nodes, const std::string& name);

} // namespace cli
