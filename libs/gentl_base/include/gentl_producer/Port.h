// Ports: what all of them share, and the port of a software module with its virtual registers and document.
#pragma once

#include <genicam_gen/template_document.h>
#include <gentl_producer/GenApiInterfaceBuilder.h>
#include <gentl_producer/Modules.h>
#include <gentl_producer/RegisterMap.h>

#include <array>
#include <cstdint>
#include <expected>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace GenTL::Producer {

enum class PortType : int32_t {
    TLSystem = 0,
    TLInterface = 1,
    TLDevice = 2,
    TLDataStream = 3,
    TLBuffer = 4,
    Device = 5
};

struct PortInfo {
    std::string vendor;
    std::string model;
    std::string tl_type;
    PortType port_type = PortType::TLSystem;
    std::string version;
    std::string port_name;
};

struct UrlRecord {
    std::string url;
    uint32_t schema_major = 0;
    uint32_t schema_minor = 0;
    uint32_t file_major = 0;
    uint32_t file_minor = 0;
    uint32_t file_subminor = 0;
    int32_t scheme = 0; // 0 local, 1 http, 2 file
    bool has_scheme = false;
    bool has_sha1 = false;
    std::array<std::byte, 20> sha1{};
    std::optional<uint64_t> address;
    std::optional<uint64_t> size;
    std::optional<std::string> file_name;
};

// A text that does not parse gives a record with the URL alone and one warning in the log.
[[nodiscard]] UrlRecord parse_url(std::string url);

// Thread-safe. Whoever comes first loads the list, with urls_mutex held; the others wait for him.
class PortImpl : public virtual IPort {
public:
    Error GetURL(char* buffer, size_t* size) override;
    Error GetPortInfo(PORT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) override;
    Error GetNumURLs(uint32_t* piNumURLs) override;
    Error GetURLInfo(uint32_t iIndex, URL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                     size_t* piSize) override;
    Error ReadStacked(PORT_REGISTER_STACK_ENTRY* entries, size_t* count) override;
    Error WriteStacked(PORT_REGISTER_STACK_ENTRY* entries, size_t* count) override;

    // The bytes of the file behind a URL, as the port holds it (possibly compressed).
    [[nodiscard]] std::expected<std::string, Error> read_document(size_t index);

protected:
    PortImpl(std::string id, PortInfo info);

    // Called on the first access, and again after a failure.
    virtual std::expected<std::vector<std::string>, Error> load_url_list_() = 0;
    // What the port knows of the URL beyond its text. Called once for each URL, with urls_mutex held.
    virtual void complete_url_record_(size_t, UrlRecord&) const {}
    // Fills the list once.
    Error ensure_urls();
    [[nodiscard]] const std::string& get_port_id() const noexcept { return port_id; }

private:
    std::string port_id;
    PortInfo port_info;
    std::mutex urls_mutex;       // guards the loading of urls
    std::vector<UrlRecord> urls; // written under urls_mutex until it is not empty, constant from then on
};

// The register map and document of a software module are built at the first access to its port and then kept.
class VirtualPortImpl : public PortImpl {
public:
    Error Read(uint64_t address, void* buffer, size_t* size) override;
    Error Write(uint64_t address, const void* buffer, size_t* size) override;

    static constexpr uint64_t xml_base_address = 0xF0000000;

protected:
    VirtualPortImpl(std::string id, PortInfo info, uint64_t start_address, genicam_gen::reference_id reference);

    virtual Util::DocumentIdentity document_identity() = 0;
    virtual void build_register_map(Util::GenApiInterfaceBuilder& builder) = 0;
    // A document made elsewhere that takes the place of the generated one; empty: none.
    virtual std::string replacement_document_() { return {}; }

    std::expected<std::vector<std::string>, Error> load_url_list_() override;
    // The generated text, empty before the first access.
    [[nodiscard]] const std::string& document_file_text() const noexcept { return file_text; }

private:
    Util::RegisterMap register_map;
    const uint64_t start_address;
    uint64_t next_address;
    std::string file_text;
    const genicam_gen::reference_document& reference_document;
};

} // namespace GenTL::Producer
