// The features behind a GenTL port: the document that the port offers, bound to the port.
#pragma once

#include "feature.h"
#include "gentl_library.h"

#include <GenICam/IGenICamDoc.h>

#include <memory>
#include <string>

namespace cli {

struct port_document {
    std::string url, text;
};
// The document of the port's first URL, unzipped.
[[nodiscard]] port_document read_document(const gentl_library& lib, void* port);

class node_map final {
public:
    // Reads the document of the port's first URL, zipped or not. The port stays open for as long as this lives.
    node_map(const gentl_library& lib, void* port);
    ~node_map();

    [[nodiscard]] GenICam::IGenICamDoc& document() const noexcept { return *doc; }
    [[nodiscard]] const std::string& url() const noexcept { return document_url; }
    // Throws failure(cause::lost or cause::timeout) once the port has left an access unanswered: also one of those that
    // the engine makes by itself and whose failure it takes for an answer, such as that a feature is not available.
    void throw_if_unanswered() const;

private:
    class port_adapter;
    std::string document_url;
    std::unique_ptr<port_adapter> adapter;
    std::unique_ptr<GenICam::IGenICamDoc> doc;
};

// Throw failure(cause::feature) naming the feature, and those whose names are near.
[[nodiscard]] GenICam::INode& require_node(const node_map& nodes, const std::string& name);
[[nodiscard]] int64_t require_integer(const node_map& nodes, const std::string& name);

} // namespace cli
