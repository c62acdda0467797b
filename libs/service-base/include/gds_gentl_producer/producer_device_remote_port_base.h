// The port to the camera's own registers; every access goes through the service.
#pragma once

#include <GenICam/IGenICamDoc.h>
#include <gentl_producer/Port.h>
#include <ipc_rpc/client_object_handle.h>

#include <array>
#include <memory>
#include <span>
#include <string>
#include <system_error>
#include <vector>

namespace gds_producer {

// All operations may be called from any thread; each blocks its thread until the service has answered.
class producer_device_remote_port_base : public GenTL::Producer::PortImpl {
public:
    GenTL::Error Read(uint64_t address, void* buffer, size_t* size) override;
    GenTL::Error Write(uint64_t address, const void* buffer, size_t* size) override;

    // Time-outs in milliseconds. The count of bytes transferred.
    [[nodiscard]] std::expected<size_t, std::error_code> read_mem(uint64_t address, std::span<std::byte> data,
                                                                  uint32_t flags, uint64_t timeout) const;
    [[nodiscard]] std::expected<size_t, std::error_code> write_mem(uint64_t address, std::span<const std::byte> data,
                                                                   uint32_t flags, uint64_t timeout) const;
    [[nodiscard]] std::expected<uint32_t, std::error_code> read_reg(uint32_t address, uint32_t flags,
                                                                    uint64_t timeout) const;
    [[nodiscard]] std::error_code write_reg(uint32_t address, uint32_t value, uint32_t flags, uint64_t timeout) const;

    // Milliseconds; for accesses that state none.
    static constexpr uint32_t default_timeout = 3000;

    // The camera's document, null before it was loaded. Not synchronised: see INode.
    [[nodiscard]] GenICam::IGenICamDoc* remote_document() const noexcept { return document.get(); }
    // The text as the camera gave it.
    [[nodiscard]] const std::string& remote_document_text() const noexcept { return document_text; }

protected:
    producer_device_remote_port_base(std::string id, GenTL::Producer::PortInfo info,
                                     ipc_rpc::client_object_handle device);

    std::expected<std::vector<std::string>, GenTL::Error> load_url_list_() override;
    void complete_url_record_(size_t index, GenTL::Producer::UrlRecord& record) const override;

    std::string document_text;
    std::unique_ptr<GenICam::IGenICamDoc> document;

private:
    const ipc_rpc::client_object_handle device;
    std::vector<std::array<uint32_t, 5>> url_versions; // schema and file version of each URL, while the list is loaded
};

} // namespace gds_producer
