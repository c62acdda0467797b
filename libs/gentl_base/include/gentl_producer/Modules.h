// The abstract modules behind the exported functions. Exported functions resolve a handle to one of these and make
// one virtual call; everything else, parameter checks included, is the module's.
//
// Memory parameters are the consumer's, as in the C interface. Operations may be called from any thread unless an
// implementation says otherwise.
#pragma once

#include <gentl_producer/Error.h>
#include <gentl_producer/IHandleTarget.h>
#include <gentl_producer/ModuleInfo.h>

#include <cstddef>
#include <cstdint>
#include <expected>
#include <memory>
#include <string>
#include <string_view>

namespace GenTL::Producer {

class IInterface;
class IDevice;
class IDataStream;

// Views of the transport layer's own strings, for the port info of its children.
struct TransportLayerStrings {
    std::string_view tl_type;
    std::string_view version;
    std::string_view vendor;
    std::string_view model;
    std::string_view display_name;
};

class ISystem : public virtual IHandleTarget {
public:
    virtual Error GetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) = 0;
    virtual Error GetNumInterfaces(uint32_t* piNumIfaces) = 0;
    virtual Error GetInterfaceID(uint32_t iIndex, char* sID, size_t* piSize) = 0;
    virtual Error GetInterfaceInfo(const char* sIfaceID, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                   void* pBuffer, size_t* piSize) = 0;
    virtual Error OpenInterface(const char* sIfaceID, IF_HANDLE* phInterface) = 0;
    // Raises *pbChanged when the list changed and never clears it. Timeout in milliseconds.
    virtual Error UpdateInterfaceList(bool* pbChanged, uint64_t timeout) = 0;
    virtual void Close() = 0;
    // The caller holds its own reference: the erasure may be the last owning one.
    virtual Error OnInterfaceClosed(IInterface* closed) = 0;
    [[nodiscard]] virtual TransportLayerStrings transport_layer_strings() const = 0;
};

class IInterface : public virtual IHandleTarget {
public:
    virtual Error GetInfo(INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) = 0;
    virtual Error GetNumDevices(uint32_t* piNumDevices) = 0;
    virtual Error GetDeviceID(uint32_t iIndex, char* sIDeviceID, size_t* piSize) = 0;
    virtual Error UpdateDeviceList(bool* pbChanged, uint64_t timeout) = 0;
    virtual Error GetDeviceInfo(const char* sDeviceID, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                                size_t* piSize) = 0;
    virtual Error OpenDevice(const char* sDeviceID, DEVICE_ACCESS_FLAGS iOpenFlags, DEV_HANDLE* phDevice) = 0;
    virtual Error GetParentTL(TL_HANDLE* phSystem) = 0;
    [[nodiscard]] virtual std::string id() const = 0;
    [[nodiscard]] virtual ISystem& parent_system() = 0;
    // For good, and harmless when repeated, like that of the device: returns when all below is closed, whoever does it.
    virtual void close_children() = 0;
    virtual Error OnDeviceClosed(IDevice* closed) = 0;
};

class IDevice : public virtual IHandleTarget {
public:
    virtual Error GetPort(PORT_HANDLE* phRemoteDevice) = 0;
    virtual Error GetNumDataStreams(uint32_t* piNumDataStreams) = 0;
    virtual Error GetDataStreamID(uint32_t iIndex, char* sDataStreamID, size_t* piSize) = 0;
    virtual Error OpenDataStream(const char* sDataStreamID, DS_HANDLE* phDataStream) = 0;
    virtual Error GetInfo(DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) = 0;
    virtual Error GetParentIF(IF_HANDLE* phIface) = 0;
    [[nodiscard]] virtual std::string id() const = 0;
    [[nodiscard]] virtual IInterface& parent_interface() = 0;
    // For good, and harmless when repeated: returns when all streams are closed, whoever does it.
    virtual void close_children() = 0;
    virtual Error OnDataStreamClosed(IDataStream* closed) = 0;
};

class IDataStream : public virtual IHandleTarget {
public:
    virtual Error AnnounceBuffer(void* pBuffer, size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer) = 0;
    virtual Error AllocAndAnnounceBuffer(size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer) = 0;
    virtual Error FlushQueue(ACQ_QUEUE_TYPE iOperation) = 0;
    virtual Error StartAcquisition(ACQ_START_FLAGS iStartFlags, uint64_t iNumToAcquire) = 0;
    virtual Error StopAcquisition(ACQ_STOP_FLAGS iStopFlags) = 0;
    virtual Error GetInfo(STREAM_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) = 0;
    virtual Error GetBufferID(uint32_t iIndex, BUFFER_HANDLE* phBuffer) = 0;
    virtual Error RevokeBuffer(BUFFER_HANDLE hBuffer, void** ppBuffer, void** ppPrivate) = 0;
    virtual Error QueueBuffer(BUFFER_HANDLE hBuffer) = 0;
    virtual Error GetBufferInfo(BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                                size_t* piSize) = 0;
    virtual Error GetBufferChunkData(BUFFER_HANDLE hBuffer, SINGLE_CHUNK_DATA* pChunkData, size_t* piNumChunks) = 0;
    virtual Error GetParentDev(DEV_HANDLE* phDevice) = 0;
    virtual Error GetBufferInfoStacked(BUFFER_HANDLE hBuffer, DS_BUFFER_INFO_STACKED* pInfoStacked,
                                       size_t iNumInfos) = 0;
    [[nodiscard]] virtual std::string id() const = 0;
    virtual void Close() = 0;
    [[nodiscard]] virtual IDevice& parent_device() = 0;
    // For consumers that ask for parts: success when the buffer is one of this stream's.
    virtual Error FindBuffer(BUFFER_HANDLE hBuffer) = 0;
};

class IEvent : public virtual IHandleTarget {
public:
    virtual Error GetData(void* pBuffer, size_t* piSize, uint64_t iTimeout) = 0;
    virtual Error GetDataInfo(const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd,
                              INFO_DATATYPE* piType, void* pOutBuffer, size_t* piOutSize) = 0;
    virtual Error GetInfo(EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) = 0;
    virtual Error Flush() = 0;
    virtual Error Kill() = 0;
    // By the parent: every wait ends, now and from now on.
    virtual void close() = 0;
};

// Every module object; found from its handle by conversion.
class IEventSource {
public:
    virtual ~IEventSource() = default;
    virtual Error RegisterEvent(EVENT_TYPE type, EVENT_HANDLE* phEvent) = 0;
    virtual Error UnregisterEvent(EVENT_TYPE type) = 0;
};

class IPort : public virtual IHandleTarget {
public:
    virtual Error Read(uint64_t address, void* buffer, size_t* size) = 0;
    virtual Error Write(uint64_t address, const void* buffer, size_t* size) = 0;
    virtual Error GetURL(char* buffer, size_t* size) = 0;
    virtual Error GetPortInfo(PORT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) = 0;
    virtual Error GetNumURLs(uint32_t* piNumURLs) = 0;
    virtual Error GetURLInfo(uint32_t iIndex, URL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                             size_t* piSize) = 0;
    virtual Error ReadStacked(PORT_REGISTER_STACK_ENTRY* entries, size_t* count) = 0;
    virtual Error WriteStacked(PORT_REGISTER_STACK_ENTRY* entries, size_t* count) = 0;
};

// What the concrete product plugs into the framework.
class ISystemFactory {
public:
    virtual ~ISystemFactory() = default;
    [[nodiscard]] virtual const TransportLayerInfo& transport_layer_info() const = 0;
    [[nodiscard]] virtual std::expected<std::shared_ptr<ISystem>, Error> create_system() = 0;
    virtual void on_library_closed() = 0;
};

} // namespace GenTL::Producer
