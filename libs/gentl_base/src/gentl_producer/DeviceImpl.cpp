#include <gentl_producer/DeviceImpl.h>
#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/InfoTables.h>

#include <algorithm>
#include <utility>

namespace GenTL::Producer {

namespace {

constexpr uint64_t device_registers = 0xC120000;

Error closed_device() { return {GC_ERR_INVALID_HANDLE, "Unknown hDevice"}; }
Error device_lost_error() { return {GC_ERR_CUSTOM_ID, "Device lost"}; }

PortInfo port_info_of(IInterface& interface, const DeviceInfo& device_data) {
    const TransportLayerStrings tl = interface.parent_system().transport_layer_strings();
    return {device_data.vendor, device_data.model,       device_data.tl_type,
            PortType::TLDevice, std::string{tl.version}, "DevicePort"};
}

Util::TextGetter build_string_query(IDevice& device, DEVICE_INFO_CMD command) {
    return [&device, command](std::span<char> text) {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        size_t size = text.size();
        return device.GetInfo(command, &type, text.data(), &size);
    };
}

template <class T>
auto build_query(IDevice& device, DEVICE_INFO_CMD command) {
    return [&device, command]() -> std::expected<T, Error> {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        T value{};
        size_t size = sizeof value;
        if (Error error = device.GetInfo(command, &type, &value, &size); error.failed()) {
            return std::unexpected(std::move(error));
        }
        return value;
    };
}

} // namespace

DeviceImpl::DeviceImpl(IInterface& parent, DeviceInfo record, DEVICE_ACCESS_FLAGS flags)
    : VirtualPortImpl("DevicePort", port_info_of(parent, record), device_registers, genicam_gen::reference_id::device),
      TrackedObject("DeviceImpl"),
      interface(parent),
      above(parent.weak_from_this()),
      device_data(std::move(record)),
      error_event(*this, EVENT_ERROR, [] { return std::make_shared<ErrorEvent>(); }),
      genapi_event(*this, EVENT_MODULE, [] { return std::make_shared<GenApiEvent>(EVENT_MODULE); }),
      access_flags(flags) {}

DeviceImpl::~DeviceImpl() { DeviceImpl::close_children(); }

void DeviceImpl::close_children() {
    const std::lock_guard turn{closing_turn};
    std::map<std::string, std::shared_ptr<IDataStream>> closing;
    std::shared_ptr<IPort> port;
    {
        const std::lock_guard guard{open_mutex};
        is_closed = true;
        closing.swap(open_streams);
        port = std::exchange(remote_port, {}).lock();
    }
    for (const auto& [stream_id, stream] : closing) {
        remove_handle(stream.get());
        stream->Close();
    }
    if (port) remove_handle(port.get());
    close_events();
}

void DeviceImpl::load_data_stream_ids() { data_stream_ids = data_stream_ids_(); }

void DeviceImpl::mark_lost() {
    if (device_lost.exchange(true)) return; // the camera and then the service, or both ends at once
    fire_error(device_lost_error());
}

void DeviceImpl::fire_error(const Error& error) {
    if (const auto event = error_event.get()) event->fire(error);
}

void DeviceImpl::fire_module_event(uint64_t event_id, std::span<const std::byte> data) {
    if (const auto event = genapi_event.get()) event->fire(event_id, data);
}

Error DeviceImpl::GetPort(PORT_HANDLE* phRemoteDevice) {
    if (phRemoteDevice == nullptr) return {GC_ERR_INVALID_PARAMETER, "ppRemoteDevice == nullptr"};
    const std::lock_guard guard{open_mutex};
    if (is_closed) return closed_device();
    std::shared_ptr<IPort> port = remote_port.lock();
    if (!port) {
        port = create_remote_port_();
        if (port) handle_map().add(device_data.id + "_remotePortId", port, HandleKind::RemotePort);
        remote_port = port;
    }
    *phRemoteDevice = as_handle(port.get());
    return success();
}

Error DeviceImpl::GetNumDataStreams(uint32_t* piNumDataStreams) {
    if (piNumDataStreams == nullptr) return {GC_ERR_INVALID_PARAMETER, "piNumDataStreams == nullptr"};
    *piNumDataStreams = static_cast<uint32_t>(data_stream_ids.size());
    return success();
}

Error DeviceImpl::GetDataStreamID(uint32_t iIndex, char* sDataStreamID, size_t* piSize) {
    if (iIndex >= data_stream_ids.size()) return {GC_ERR_INVALID_INDEX, "iIndex >= numDataStreams"};
    return answer_raw_string(sDataStreamID, piSize, data_stream_ids[iIndex]);
}

Error DeviceImpl::OpenDataStream(const char* sDataStreamID, DS_HANDLE* phDataStream) {
    if (phDataStream == nullptr) return {GC_ERR_INVALID_PARAMETER, "phDataStream == nullptr"};
    if (sDataStreamID == nullptr || std::ranges::find(data_stream_ids, sDataStreamID) == data_stream_ids.end()) {
        return {GC_ERR_INVALID_ID, "Unknown sDataStreamID"};
    }
    const std::string stream_id = sDataStreamID;
    const std::lock_guard guard{open_mutex};
    if (is_closed) return closed_device();
    if (open_streams.contains(stream_id)) return Error{GC_ERR_RESOURCE_IN_USE};
    auto created = create_data_stream_(stream_id);
    if (!created) return std::move(created.error());
    const auto place = open_streams.try_emplace(stream_id).first;
    try {
        *phDataStream = add_handle(stream_id, *created, HandleKind::DataStream);
    } catch (...) {
        open_streams.erase(place);
        throw;
    }
    place->second = std::move(*created);
    return success();
}

Error DeviceImpl::GetInfo(DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    if (device_lost) return device_lost_error();
    switch (iInfoCmd) {
    case DEVICE_INFO_ACCESS_STATUS:
        return answer_int32(piType, pBuffer, piSize,
                            access_flags == DEVICE_ACCESS_READONLY ? DEVICE_ACCESS_STATUS_OPEN_READONLY
                                                                   : DEVICE_ACCESS_STATUS_OPEN_READWRITE);
    case DEVICE_INFO_USER_DEFINED_NAME: {
        auto name = query_user_defined_name_();
        if (!name) return std::move(name.error());
        return answer_string(piType, pBuffer, piSize, *name);
    }
    default:
        return answer_device_info(device_data, iInfoCmd, piType, pBuffer, piSize);
    }
}

Error DeviceImpl::GetParentIF(IF_HANDLE* phIface) {
    if (phIface == nullptr) return {GC_ERR_INVALID_PARAMETER, "phIface == nullptr"};
    *phIface = as_handle(&interface);
    return success();
}

Error DeviceImpl::OnDataStreamClosed(IDataStream* closed) {
    remove_handle(closed);
    closed->Close();
    const std::lock_guard guard{open_mutex};
    // Not by its id, under which another one may be open by now, after a first of two closing calls.
    const auto found = std::ranges::find(open_streams, closed, [](const auto& open) { return open.second.get(); });
    if (found != open_streams.end()) open_streams.erase(found);
    return success();
}

std::expected<std::string, Error> DeviceImpl::query_user_defined_name_() {
    if (!device_data.user_defined_name) return std::unexpected(Error{GC_ERR_NOT_IMPLEMENTED});
    return *device_data.user_defined_name;
}

Util::DocumentIdentity DeviceImpl::document_identity() {
    return {device_data.vendor, device_data.model, device_data.display_name};
}

void DeviceImpl::build_register_map(Util::GenApiInterfaceBuilder& builder) {
    builder.add_ro_string("DeviceID", 256, build_string_query(*this, DEVICE_INFO_ID));
    builder.add_ro_string("DeviceSerialNumber", 256, build_string_query(*this, DEVICE_INFO_SERIAL_NUMBER));
    builder.add_ro_string("DeviceVendorName", 256, build_string_query(*this, DEVICE_INFO_VENDOR));
    builder.add_ro_string("DeviceModelName", 256, build_string_query(*this, DEVICE_INFO_MODEL));
    builder.add_ro_string("DeviceVersion", 256, build_string_query(*this, DEVICE_INFO_VERSION));
    builder.add_ro_string("DeviceDisplayName", 256, build_string_query(*this, DEVICE_INFO_DISPLAYNAME));
    const auto present = [](bool value) { return [value]() -> std::expected<bool, Error> { return value; }; };
    builder.add_availability("DeviceSerialNumber", "DeviceSerialNumber_AvailableRegister",
                             present(!device_data.serial_number.empty()));
    builder.add_availability("DeviceVersion", "DeviceVersion_AvailableRegister", present(!device_data.version.empty()));
    builder.add_enum_constant("DeviceType", tl_type_entry(device_data.tl_type));
    builder.add_ro_integer<uint64_t>("DeviceTimestampFrequency",
                                     build_query<uint64_t>(*this, DEVICE_INFO_TIMESTAMP_FREQUENCY));
    builder.add_ro_enumeration("DeviceAccessStatus", build_query<uint32_t>(*this, DEVICE_INFO_ACCESS_STATUS));
    builder.add_ro_string(
        "DeviceFamilyName", 256,
        Util::ValueGetter<std::string>{[this]() -> std::expected<std::string, Error> { return device_data.model; }});
    builder.add_ro_string(
        "DeviceManufacturerInfo", 256,
        Util::ValueGetter<std::string>{[this]() -> std::expected<std::string, Error> { return device_data.vendor; }});
    builder.add_enum_constant("DeviceEndianessMechanism", "Standard");

    builder.add_selector(
        "StreamSelector", [this] { return data_stream_ids.size(); }, &stream_selector);
    builder.add_ro_string(
        "StreamID", 256, Util::ValueGetter<std::string>{[this]() -> std::expected<std::string, Error> {
            if (stream_selector >= data_stream_ids.size()) {
                return std::unexpected(Error{GC_ERR_INVALID_INDEX, "{} ({}) >= num items ({})", "StreamSelector",
                                             stream_selector, data_stream_ids.size()});
            }
            return data_stream_ids[stream_selector];
        }});
    builder.select("StreamSelector", {"StreamID"});

    if (device_data.tl_type == "GEV") {
        builder.add_integer_constant("GevDeviceMACAddress", static_cast<int64_t>(device_data.mac_address))
            .representation = genicam_gen::representation::mac_address;
        const auto address = [](uint32_t value) {
            return [value]() -> std::expected<uint32_t, Error> { return value; };
        };
        builder.add_ro_ip_address("GevDeviceIPAddress", address(device_data.ip_address));
        builder.add_ro_ip_address("GevDeviceSubnetMask", address(device_data.subnet_mask));
        builder.add_ro_ip_address("GevDeviceGateway", address(device_data.gateway));
    }
    builder.add_enum_constant("DeviceChunkDataFormat", "GigEVision");
}

} // namespace GenTL::Producer
