// Modules without a camera: just enough to drive the framework from outside.
#pragma once

#include <gentl_producer/DataStreamImpl.h>
#include <gentl_producer/DeviceImpl.h>
#include <gentl_producer/InterfaceImpl.h>
#include <gentl_producer/Library.h>
#include <gentl_producer/SystemImpl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

extern "C" int64_t HandleMapCount();
extern "C" int64_t ObjectTrackerCount();

namespace fake {

using namespace GenTL;
using namespace GenTL::Producer;

inline const TransportLayerInfo library_info{"id", "Maker", "Model", "1.0", "GEV", "Display"};

class stream final : public DataStreamImpl {
public:
    explicit stream(IDevice& parent) : DataStreamImpl(parent, "Stream0") {}
    std::function<Error()> on_start = [] { return success(); };
    std::function<void()> on_stop = [] {};
    std::function<void()> on_flush = [] {};
    std::function<void()> on_payload_size = [] {};
    std::function<void()> on_input_changed = [] {};
    std::vector<Buffer*> filling;
    std::vector<std::shared_ptr<Buffer>>* with_chunks = nullptr; // takes what is announced, with chunks

    using DataStreamImpl::give_up_filling;
    using DataStreamImpl::queue_buffer_from_filling_to_output;
    Buffer* fill() {
        Buffer* buffer = take_input_buffer(true);
        if (buffer != nullptr) filling.push_back(buffer);
        return buffer;
    }

protected:
    size_t payload_size() override {
        on_payload_size();
        return 4096;
    }
    void input_queue_changed_() override { on_input_changed(); }
    std::expected<std::shared_ptr<Buffer>, Error> create_buffer_(void* base, size_t size, void* user_ptr) override {
        if (with_chunks == nullptr) return DataStreamImpl::create_buffer_(base, size, user_ptr);
        return with_chunks->emplace_back(*make_chunk_buffer(0, base, size, user_ptr));
    }
    Error start_acquisition_() override { return on_start(); }
    void stop_acquisition_(bool) override { on_stop(); }
    void flush_filling_buffers_() override {
        on_flush();
        for (Buffer* buffer : filling) queue_buffer_from_filling_to_input(buffer);
        filling.clear();
    }
};

// With documents, and zeros in its registers.
class documented_port final : public PortImpl {
public:
    explicit documented_port(std::vector<std::string> urls_ = {"local:first_document.xml;1000;200",
                                                               "local:second_document.xml;2000;200"})
        : PortImpl("remote", {}), urls(std::move(urls_)) {}
    Error Read(uint64_t, void* buffer, size_t* size) override {
        asked = *size;
        std::memset(buffer, 0, *size);
        return success();
    }
    Error Write(uint64_t, const void*, size_t*) override { return success(); }
    std::optional<size_t> asked; // by the last read

protected:
    std::expected<std::vector<std::string>, Error> load_url_list_() override { return urls; }

private:
    const std::vector<std::string> urls;
};

class device final : public DeviceImpl {
public:
    device(IInterface& parent, const DeviceInfo& info, DEVICE_ACCESS_FLAGS flags) : DeviceImpl(parent, info, flags) {
        load_data_stream_ids();
    }
    ~device() override { close_children(); }
    using DeviceImpl::mark_lost;

protected:
    std::shared_ptr<IPort> create_remote_port_() override { return remote; }
    std::vector<std::string> data_stream_ids_() override { return {"Stream0"}; }
    std::expected<std::shared_ptr<IDataStream>, Error> create_data_stream_(const std::string&) override {
        return std::make_shared<stream>(*this);
    }

private:
    const std::shared_ptr<IPort> remote = std::make_shared<documented_port>();
};

class interface final : public InterfaceImpl {
public:
    interface(ISystem& parent, const InterfaceInfo& info, std::vector<DeviceInfo>& listed)
        : InterfaceImpl(parent, info), devices(listed) {}
    static inline std::function<void(const std::string&)> on_open = [](const std::string&) {};
    static inline std::function<void()> on_query = [] {};

protected:
    std::expected<std::vector<DeviceInfo>, Error> query_devices_(uint64_t) override {
        auto answer = devices;
        on_query();
        return answer;
    }
    std::expected<std::shared_ptr<IDevice>, Error> create_device_(const DeviceInfo& info,
                                                                  DEVICE_ACCESS_FLAGS flags) override {
        on_open(info.id);
        return std::make_shared<device>(*this, info, flags);
    }

private:
    std::vector<DeviceInfo>& devices;
};

class system final : public SystemImpl {
public:
    system() : SystemImpl(library_info) {}
    static inline std::function<void()> on_query = [] {};
    std::vector<InterfaceInfo> interfaces{
        {"if0", "Interface 0", "GEV", {{0x7F000001, 0xFF000000}}, {}, 0x112233445566}};
    std::vector<DeviceInfo> devices{
        {"dev0", "Model", "Maker", "GEV", "Device 0", "SN1", "1.0", "name", DEVICE_ACCESS_STATUS_READWRITE, 1, 2, 3, 4},
        {"dev1", "Model", "Maker", "GEV", "Device 1", "", "", std::nullopt, DEVICE_ACCESS_STATUS_BUSY, 0, 0, 0, 0}};

protected:
    std::expected<std::vector<InterfaceInfo>, Error> query_interfaces_(uint64_t) override {
        auto answer = interfaces;
        on_query();
        return answer;
    }
    std::expected<std::shared_ptr<IInterface>, Error> create_interface_(const InterfaceInfo& info) override {
        return std::make_shared<interface>(*this, info, devices);
    }
};

class factory final : public ISystemFactory {
public:
    const TransportLayerInfo& transport_layer_info() const override { return library_info; }
    std::expected<std::shared_ptr<ISystem>, Error> create_system() override { return std::make_shared<system>(); }
    void on_library_closed() override { ++closed; }
    int closed = 0;
};

// Installed for the whole test program.
inline factory& installed_factory() {
    static factory instance;
    static const bool installed = [] {
        install_system_factory(&instance, nullptr, nullptr);
        return true;
    }();
    static_cast<void>(installed);
    return instance;
}

inline std::string last_error_text() {
    GC_ERROR code = 0;
    char text[512] = {};
    size_t size = sizeof text;
    GCGetLastError(&code, text, &size);
    return text;
}

MATCHER_P2(IsRefused, code, words, "") {
    *result_listener << "says '" << last_error_text() << "'";
    return arg == code && last_error_text() == words;
}

inline GC_ERROR take(EVENT_HANDLE event, EVENT_NEW_BUFFER_DATA& data, uint64_t timeout = 0) {
    size_t size = sizeof data;
    return EventGetData(event, &data, &size, timeout);
}

// The answer of an info function as a T; `ask` passes the type's place, the buffer and its size on.
template <class T>
T answer_of(const std::function<GC_ERROR(INFO_DATATYPE*, void*, size_t*)>& ask) {
    INFO_DATATYPE type = 0;
    T value{};
    size_t size = sizeof value;
    EXPECT_EQ(ask(&type, &value, &size), GC_ERR_SUCCESS);
    return value;
}
template <class T>
T stream_info(DS_HANDLE ds, STREAM_INFO_CMD command) {
    return answer_of<T>([&](auto... out) { return DSGetInfo(ds, command, out...); });
}

// The library opened down to a stream, closed again at the end.
class open_chain {
public:
    explicit open_chain(bool shared = false) {
        installed_factory();
        shared ? GCInitLibShared() : GCInitLib();
        TLOpen(&tl);
        TLOpenInterface(tl, "if0", &iface);
        IFOpenDevice(iface, "dev0", DEVICE_ACCESS_CONTROL, &dev);
        DevOpenDataStream(dev, "Stream0", &ds);
    }
    ~open_chain() { GCCloseLib(); }
    open_chain(const open_chain&) = delete;
    open_chain& operator=(const open_chain&) = delete;
    // The objects behind the handles.
    [[nodiscard]] stream& stream_object() const { return object_of<stream>(ds); }
    [[nodiscard]] device& device_object() const { return object_of<device>(dev); }
    [[nodiscard]] interface& interface_object() const { return object_of<interface>(iface); }
    [[nodiscard]] system& system_object() const { return object_of<system>(tl); }

    [[nodiscard]] GC_ERROR start() const { return DSStartAcquisition(ds, 0, GENTL_INFINITE); }
    [[nodiscard]] EVENT_HANDLE register_for_buffers() const {
        EVENT_HANDLE event = nullptr;
        EXPECT_EQ(GCRegisterEvent(ds, EVENT_NEW_BUFFER, &event), GC_ERR_SUCCESS);
        return event;
    }
    // One that was queued.
    void fill_and_deliver() const {
        stream& object = stream_object();
        object.queue_buffer_from_filling_to_output(object.fill());
        object.filling.pop_back();
    }
    std::vector<BUFFER_HANDLE> announce(size_t count, bool queue = true) const {
        std::vector<BUFFER_HANDLE> buffers(count);
        for (BUFFER_HANDLE& buffer : buffers) {
            DSAllocAndAnnounceBuffer(ds, 4096, nullptr, &buffer);
            if (queue) DSQueueBuffer(ds, buffer);
        }
        return buffers;
    }

    TL_HANDLE tl = nullptr;
    IF_HANDLE iface = nullptr;
    DEV_HANDLE dev = nullptr;
    DS_HANDLE ds = nullptr;

private:
    template <class Module>
    static Module& object_of(void* handle) {
        return *dynamic_cast<Module*>(static_cast<IHandleTarget*>(handle));
    }
};

} // namespace fake
