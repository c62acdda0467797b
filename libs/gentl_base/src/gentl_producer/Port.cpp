#include <GenICam/document_url.h>
#include <genicam_gen/writer.h>
#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/Library.h>
#include <gentl_producer/Port.h>

#include <spdlog/logger.h>

namespace GenTL::Producer {

namespace {

std::string_view module_text(PortType type) {
    switch (type) {
    case PortType::TLInterface:
        return "TLInterface";
    case PortType::TLDevice:
        return "TLDevice";
    case PortType::TLDataStream:
        return "TLDataStream";
    case PortType::TLBuffer:
        return "TLBuffer";
    case PortType::Device:
        return "Device";
    default:
        return "TLSystem";
    }
}

} // namespace

UrlRecord parse_url(std::string url) {
    const GenICam::document_url parsed = GenICam::parse_document_url(url);
    UrlRecord record;
    record.url = std::move(url);
    if (!parsed.scheme) {
        if (auto* logger = default_logger()) logger->warn("Failed to parse document URL '{}'.", record.url);
        return record;
    }
    record.scheme = static_cast<int32_t>(*parsed.scheme);
    record.has_scheme = true;
    record.schema_major = parsed.schema_version[0];
    record.schema_minor = parsed.schema_version[1];
    record.file_major = parsed.file_version[0];
    record.file_minor = parsed.file_version[1];
    record.file_subminor = parsed.file_version[2];
    record.file_name = std::string{parsed.file_name()};
    if (parsed.scheme == GenICam::url_scheme::local) {
        record.address = parsed.address;
        record.size = parsed.size;
    }
    return record;
}

PortImpl::PortImpl(std::string id, PortInfo info) : port_id(std::move(id)), port_info(std::move(info)) {}

Error PortImpl::ensure_urls() {
    const std::lock_guard guard{urls_mutex};
    if (!urls.empty()) return success();
    auto texts = load_url_list_();
    if (!texts) return std::move(texts.error());
    std::vector<UrlRecord> all; // or none: a part would pass for the whole
    for (std::string& text : *texts) {
        all.push_back(parse_url(std::move(text)));
        complete_url_record_(all.size() - 1, all.back());
    }
    urls = std::move(all);
    return success();
}

Error PortImpl::GetURL(char* buffer, size_t* size) {
    if (Error error = ensure_urls(); error.failed()) return error;
    // Each URL ends with a NUL, the list with one more; the last is the answer's own terminator.
    std::string all;
    for (const UrlRecord& record : urls) (all += record.url) += '\0';
    return answer_raw_string(buffer, size, all);
}

Error PortImpl::GetNumURLs(uint32_t* piNumURLs) {
    if (Error error = ensure_urls(); error.failed()) return error;
    *piNumURLs = static_cast<uint32_t>(urls.size());
    return success();
}

Error PortImpl::GetPortInfo(PORT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    const auto text = [&](std::string_view value) { return answer_string(piType, pBuffer, piSize, value); };
    const auto flag = [&](bool value) { return answer_bool8(piType, pBuffer, piSize, value); };
    switch (iInfoCmd) {
    case PORT_INFO_ID:
        return text(port_id);
    case PORT_INFO_VENDOR:
        return text(port_info.vendor);
    case PORT_INFO_MODEL:
        return text(port_info.model);
    case PORT_INFO_TLTYPE:
        return text(port_info.tl_type);
    case PORT_INFO_MODULE:
        return text(module_text(port_info.port_type));
    case PORT_INFO_LITTLE_ENDIAN:
        return flag(true);
    case PORT_INFO_BIG_ENDIAN:
        return flag(false);
    case PORT_INFO_ACCESS_READ:
        return flag(true);
    case PORT_INFO_ACCESS_WRITE:
        return flag(true);
    case PORT_INFO_ACCESS_NA:
        return flag(false);
    case PORT_INFO_ACCESS_NI:
        return flag(false);
    case PORT_INFO_VERSION:
        return text(port_info.version);
    case PORT_INFO_PORTNAME:
        return text(port_info.port_name);
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

Error PortImpl::GetURLInfo(uint32_t iIndex, URL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                           size_t* piSize) {
    if (Error error = ensure_urls(); error.failed()) return error;
    if (iIndex >= urls.size()) return {GC_ERR_INVALID_INDEX, "Invalid index"};
    const UrlRecord& record = urls[iIndex];
    const auto number = [&](uint32_t value) {
        return answer_int32(piType, pBuffer, piSize, static_cast<int32_t>(value));
    };
    // Intended: for a document that is not in registers, the scheme minus one stands in for both numbers.
    const auto register_number = [&](const std::optional<uint64_t>& value) {
        if (record.scheme == URL_SCHEME_HTTP || record.scheme == URL_SCHEME_FILE) {
            return answer_uint64(piType, pBuffer, piSize, static_cast<uint64_t>(record.scheme - 1));
        }
        if (!value) return Error{GC_ERR_NOT_AVAILABLE};
        return answer_uint64(piType, pBuffer, piSize, *value);
    };
    switch (iInfoCmd) {
    case URL_INFO_URL:
        return answer_string(piType, pBuffer, piSize, record.url);
    case URL_INFO_SCHEMA_VER_MAJOR:
        return number(record.schema_major);
    case URL_INFO_SCHEMA_VER_MINOR:
        return number(record.schema_minor);
    case URL_INFO_FILE_VER_MAJOR:
        return number(record.file_major);
    case URL_INFO_FILE_VER_MINOR:
        return number(record.file_minor);
    case URL_INFO_FILE_VER_SUBMINOR:
        return number(record.file_subminor);
    case URL_INFO_FILE_SHA1_HASH:
        if (!record.has_sha1) return Error{GC_ERR_NOT_AVAILABLE};
        return answer_buffer(piType, pBuffer, piSize, record.sha1);
    case URL_INFO_FILE_REGISTER_ADDRESS:
        return register_number(record.address);
    case URL_INFO_FILE_SIZE:
        return register_number(record.size);
    case URL_INFO_SCHEME:
        if (!record.has_scheme) return Error{GC_ERR_NOT_AVAILABLE};
        return answer_int32(piType, pBuffer, piSize, record.scheme);
    case URL_INFO_FILENAME:
        // Intended: the name is given out only together with a hash, and as bytes.
        if (!record.has_sha1 || !record.file_name) return Error{GC_ERR_NOT_AVAILABLE};
        return answer_buffer(piType, pBuffer, piSize, std::as_bytes(std::span{*record.file_name}));
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

namespace {

// Up to the first that fails; `transfer` is what one access is.
template <class Transfer>
Error transfer_stacked(PORT_REGISTER_STACK_ENTRY* entries, size_t* count, Transfer transfer) {
    if (entries == nullptr) return {GC_ERR_INVALID_PARAMETER, "pEntries == nullptr"};
    if (count == nullptr) return {GC_ERR_INVALID_PARAMETER, "piNumEntries == nullptr"};
    for (size_t i = 0; i < *count; ++i) {
        size_t size = entries[i].Size;
        Error error = entries[i].pBuffer == nullptr ? Error{GC_ERR_INVALID_PARAMETER, "pBuffer == nullptr"}
                                                    : transfer(entries[i].Address, entries[i].pBuffer, &size);
        entries[i].Size = size;
        if (error.failed()) {
            *count = i;
            return error;
        }
    }
    return success();
}

} // namespace

Error PortImpl::ReadStacked(PORT_REGISTER_STACK_ENTRY* entries, size_t* count) {
    return transfer_stacked(entries, count, [this](auto... access) { return Read(access...); });
}

Error PortImpl::WriteStacked(PORT_REGISTER_STACK_ENTRY* entries, size_t* count) {
    return transfer_stacked(entries, count, [this](auto... access) { return Write(access...); });
}

std::expected<std::string, Error> PortImpl::read_document(size_t index) {
    if (Error error = ensure_urls(); error.failed()) return std::unexpected(std::move(error));
    if (index >= urls.size()) {
        return std::unexpected(Error{GC_ERR_INVALID_INDEX, "Invalid index for url list."});
    }
    const UrlRecord& record = urls[index];
    // A document beyond any real one is a broken URL, not a reason to allocate.
    if (!record.address || !record.size || *record.size > GenICam::largest_document) {
        return std::unexpected(Error{
            GC_ERR_INVALID_INDEX, "Url list index {} does not contain a GenICam document which can be read.", index});
    }
    std::string bytes(*record.size, '\0');
    size_t size = bytes.size();
    if (Error error = Read(*record.address, bytes.data(), &size); error.failed()) {
        return std::unexpected(std::move(error));
    }
    bytes.resize(std::min(size, bytes.size()));
    return bytes;
}

VirtualPortImpl::VirtualPortImpl(std::string id, PortInfo info, uint64_t start, genicam_gen::reference_id reference)
    : PortImpl(std::move(id), std::move(info)),
      start_address(start),
      next_address(start),
      reference_document(genicam_gen::reference(reference)) {}

std::expected<std::vector<std::string>, Error> VirtualPortImpl::load_url_list_() {
    register_map.clear(); // an earlier attempt may have failed half-way
    next_address = start_address;
    Util::GenApiInterfaceBuilder builder{register_map, next_address, reference_document, document_identity(),
                                         get_port_id()};
    build_register_map(builder);
    file_text = replacement_document_();
    if (file_text.empty()) file_text = Util::document_text(builder.finish());
    register_map.add(xml_base_address, file_text.size(), Util::make_text_entry(&file_text), false);
    return std::vector{genicam_gen::document_url(get_port_id(), file_text, xml_base_address)};
}

Error VirtualPortImpl::Read(uint64_t address, void* buffer, size_t* size) {
    if (Error error = ensure_urls(); error.failed()) return error;
    return register_map.Read(address, buffer, size);
}

Error VirtualPortImpl::Write(uint64_t address, const void* buffer, size_t* size) {
    if (Error error = ensure_urls(); error.failed()) return error;
    return register_map.Write(address, buffer, size);
}

} // namespace GenTL::Producer
