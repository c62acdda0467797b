#include "node_map.h"

#include "feature.h"

#include <GenICam/document_url.h>
#include <GenICam/zip.h>

#include <fmt/format.h>

#include <algorithm>

namespace cli {

using namespace GenTL;

namespace {

GenICam::document_url parse_local(const std::string& url) {
    const auto parsed = GenICam::parse_document_url(url);
    if (parsed.scheme != GenICam::url_scheme::local) {
        const bool has_places = !parsed.scheme && std::ranges::count(url, ';') >= 2;
        throw std::runtime_error(
            fmt::format("Document URL '{}' {}.", url, has_places ? "has no address and length" : "names no registers"));
    }
    if (parsed.size > GenICam::largest_document)
        throw std::runtime_error(fmt::format("Document URL '{}' names more than a document can have.", url));
    return parsed;
}

} // namespace

class node_map::port_adapter final : public GenICam::IDevicePort {
public:
    port_adapter(const gentl_library& library, void* port_handle) : lib(library), port(port_handle) {}

    GenICam::result<size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        size_t size = data.size();
        const GC_ERROR error = lib.GCReadPort(port, static_cast<uint64_t>(address), data.data(), &size);
        if (error != GC_ERR_SUCCESS) return GenICam::fail(refused("GCReadPort", error));
        return size;
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        size_t size = data.size();
        const GC_ERROR error = lib.GCWritePort(port, static_cast<uint64_t>(address), data.data(), &size);
        return error == GC_ERR_SUCCESS ? std::error_code{} : make_error_code(refused("GCWritePort", error));
    }

    port_refusal unanswered; // the last

private:
    // The engine's codes carry no text: the producer's is kept for whoever reports the failed access.
    GenICam::genicam_errc refused(const char* call, GC_ERROR error) {
        last_port_refusal() = {call, error, lib.last_error(error)};
        const GenICam::genicam_errc code = code_of(error);
        if (code == GenICam::genicam_errc::device_lost || code == GenICam::genicam_errc::timeout)
            unanswered = last_port_refusal();
        return code;
    }
    static GenICam::genicam_errc code_of(GC_ERROR error) {
        switch (error) {
        case GC_ERR_TIMEOUT:
            return GenICam::genicam_errc::timeout;
        case GC_ERR_ACCESS_DENIED:
            return GenICam::genicam_errc::access_denied;
        case GC_ERR_NOT_IMPLEMENTED:
            return GenICam::genicam_errc::not_implemented;
        case GC_ERR_INVALID_ADDRESS:
            return GenICam::genicam_errc::invalid_address;
        case GC_ERR_INVALID_PARAMETER:
            return GenICam::genicam_errc::invalid_parameter;
        case GC_ERR_BUFFER_TOO_SMALL:
            return GenICam::genicam_errc::buffer_too_small;
        case GC_ERR_CUSTOM_ID:
        case GC_ERR_IO:
            return GenICam::genicam_errc::device_lost;
        default:
            return GenICam::genicam_errc::generic_error;
        }
    }
    const gentl_library& lib;
    void* port;
};

port_document read_document(const gentl_library& lib, void* port) {
    port_document document;
    document.url = ask_text(lib, "GCGetPortURLInfo", [&](INFO_DATATYPE* type, void* text, size_t* size) {
        return lib.GCGetPortURLInfo(port, 0, URL_INFO_URL, type, text, size);
    });
    const GenICam::document_url file = parse_local(document.url);
    std::string content(file.size, '\0');
    size_t size = content.size();
    lib.check("GCReadPort", lib.GCReadPort(port, file.address, content.data(), &size));
    content.resize(std::min(size, content.size()));
    auto text = GenICam::document_text(std::move(content));
    if (!text) {
        const bool large = text.error() == std::errc::file_too_large;
        throw std::runtime_error(fmt::format("Cannot unzip '{}'{}.", document.url,
                                             large ? ": its content is larger than any document" : ""));
    }
    document.text = std::move(*text);
    return document;
}

node_map::node_map(const gentl_library& lib, void* port) : adapter(std::make_unique<port_adapter>(lib, port)) {
    const port_document read = read_document(lib, port);
    document_url = read.url;
    doc = GenICam::create_document(std::string_view{read.text});
    if (!doc) throw std::runtime_error(fmt::format("Document '{}' is no well-formed XML.", document_url));
    // A module's document names its port after itself; bind whatever port is not one of chunks or events.
    doc->for_each_node([&](GenICam::INode* node) {
        auto* candidate = GenICam::node_cast<GenICam::IPort>(node);
        if (candidate == nullptr || candidate->get_event_id()) return;
        // One whose id cannot be read now is a chunk's all the same.
        if (const auto chunk = candidate->get_chunk_id(0);
            chunk || chunk.error() != GenICam::genicam_errc::not_implemented)
            return;
        static_cast<void>(candidate->bind(adapter.get(), 0));
    });
}

node_map::~node_map() { doc.reset(); }

void node_map::throw_if_unanswered() const {
    const port_refusal& last = adapter->unanswered;
    if (last.call == nullptr) return;
    throw call_failed(last.call, last.code, last.text)
        .explained(last.code == GC_ERR_TIMEOUT ? cause::timeout : cause::lost, "The camera does not answer.");
}

GenICam::INode& require_node(const node_map& nodes, const std::string& name) {
    return require_node(nodes.document(), name);
}

int64_t require_integer(const node_map& nodes, const std::string& name) {
    return integer_of(require_node(nodes, name));
}

} // namespace cli
