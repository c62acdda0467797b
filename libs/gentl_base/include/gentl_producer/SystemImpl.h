// The transport layer module: interfaces that exist, interfaces that are open.
#pragma once

#include <gentl_producer/Events.h>
#include <gentl_producer/ObjectTracker.h>
#include <gentl_producer/OpenChildren.h>
#include <gentl_producer/Port.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace GenTL::Producer {

// Thread-safe, but for the selector of its document, which consumers write in turn anyway. The service is asked, and
// interfaces are opened, without a lock.
class SystemImpl : public virtual ISystem, public VirtualPortImpl, public EventSourceImpl, private Util::TrackedObject {
public:
    ~SystemImpl() override;

    Error GetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) override;
    Error GetNumInterfaces(uint32_t* piNumIfaces) override;
    Error GetInterfaceID(uint32_t iIndex, char* sID, size_t* piSize) override;
    Error GetInterfaceInfo(const char* sIfaceID, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                           size_t* piSize) override;
    Error OpenInterface(const char* sIfaceID, IF_HANDLE* phInterface) override;
    Error UpdateInterfaceList(bool* pbChanged, uint64_t timeout) override;
    void Close() override;
    Error OnInterfaceClosed(IInterface* closed) override;
    [[nodiscard]] TransportLayerStrings transport_layer_strings() const override;

protected:
    // The module event that tells of a changed list of interfaces.
    static constexpr uint64_t interface_list_event = 0x4001;

    // `info` lives in the factory.
    explicit SystemImpl(const TransportLayerInfo& info);

    virtual std::expected<std::vector<InterfaceInfo>, Error> query_interfaces_(uint64_t timeout) = 0;
    virtual std::expected<std::shared_ptr<IInterface>, Error> create_interface_(const InterfaceInfo& info) = 0;

    Util::DocumentIdentity document_identity() override;
    void build_register_map(Util::GenApiInterfaceBuilder& builder) override;

    // Raises the module event.
    void fire_module_event(uint64_t event_id, std::span<const std::byte> data);

private:
    // Numbers the questions for the list. Two threads may ask at once: the answer to the earlier question never
    // replaces that to the later one.
    std::atomic<uint64_t> list_questions{0};
    std::mutex interface_list_mutex; // guards what follows
    uint64_t list_question = 0;      // the one that interfaces answers
    std::vector<InterfaceInfo> interfaces;
    OpenChildren<IInterface> open_interfaces;
    event_ptr<GenApiEvent> genapi_event;
    const TransportLayerInfo& tl_info;
    uint32_t interface_selector = 0;
};

} // namespace GenTL::Producer
