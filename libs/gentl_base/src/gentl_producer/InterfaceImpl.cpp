#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/InfoTables.h>
#include <gentl_producer/InterfaceImpl.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace GenTL::Producer {

namespace {

constexpr uint64_t interface_registers = 0xB120000;

PortInfo port_info_of(ISystem& system) {
    const TransportLayerStrings tl = system.transport_layer_strings();
    return {std::string{tl.vendor}, std::string{tl.model},   std::string{tl.tl_type},
            PortType::TLInterface,  std::string{tl.version}, "InterfacePort"};
}

// A getter of one list item; the list is constant.
template <class R, class T>
auto build_item_query(const std::vector<T>& list, const uint32_t& selector, const char* name, R (*extract)(const T&)) {
    return [&list, &selector, name, extract]() -> std::expected<R, Error> {
        if (selector >= list.size()) {
            return std::unexpected(
                Error{GC_ERR_INVALID_INDEX, "{} ({}) >= num items ({})", name, selector, list.size()});
        }
        return extract(list[selector]);
    };
}

} // namespace

InterfaceImpl::InterfaceImpl(ISystem& parent, InterfaceInfo interface_info)
    : VirtualPortImpl("InterfacePort", port_info_of(parent), interface_registers, genicam_gen::reference_id::interface),
      TrackedObject("InterfaceImpl"),
      interface_data(std::move(interface_info)),
      system(parent),
      above(parent.weak_from_this()),
      genapi_event(*this, EVENT_MODULE, [] { return std::make_shared<GenApiEvent>(EVENT_MODULE); }) {}

InterfaceImpl::~InterfaceImpl() { InterfaceImpl::close_children(); }

Error InterfaceImpl::GetInfo(INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return answer_interface_info(interface_data, iInfoCmd, piType, pBuffer, piSize);
}

Error InterfaceImpl::GetNumDevices(uint32_t* piNumDevices) {
    if (piNumDevices == nullptr) return {GC_ERR_INVALID_PARAMETER, "piNumDevices == nullptr"};
    const std::lock_guard guard{device_list_mutex};
    *piNumDevices = static_cast<uint32_t>(devices.size());
    return success();
}

Error InterfaceImpl::GetDeviceID(uint32_t iIndex, char* sIDeviceID, size_t* piSize) {
    const std::lock_guard guard{device_list_mutex};
    if (iIndex >= devices.size()) return {GC_ERR_INVALID_INDEX, "iIndex >= numDevices"};
    return answer_raw_string(sIDeviceID, piSize, devices[iIndex].id);
}

Error InterfaceImpl::UpdateDeviceList(bool* pbChanged, uint64_t timeout) {
    const uint64_t question = ++list_questions;
    auto queried = query_devices_(timeout);
    if (!queried) return std::move(queried.error());
    const std::lock_guard guard{device_list_mutex};
    if (question < list_question) return success();
    list_question = question;
    if (*queried == devices) return success(); // the flag is only ever raised
    devices = std::move(*queried);
    if (pbChanged != nullptr) *pbChanged = true;
    return success();
}

Error InterfaceImpl::GetDeviceInfo(const char* sDeviceID, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                   void* pBuffer, size_t* piSize) {
    if (sDeviceID == nullptr) return {GC_ERR_INVALID_ID, "sDeviceID == nullptr"};
    const std::lock_guard guard{device_list_mutex};
    const auto found = std::ranges::find(devices, std::string_view{sDeviceID}, &DeviceInfo::id);
    if (found == devices.end()) return {GC_ERR_INVALID_ID, "Unknown sDeviceID"};
    return answer_device_info(*found, iInfoCmd, piType, pBuffer, piSize);
}

Error InterfaceImpl::OpenDevice(const char* sDeviceID, DEVICE_ACCESS_FLAGS iOpenFlags, DEV_HANDLE* phDevice) {
    if (sDeviceID == nullptr) return {GC_ERR_INVALID_ID, "sDeviceID == nullptr"};
    if (phDevice == nullptr) return {GC_ERR_INVALID_PARAMETER, "phDevice == nullptr"};
    std::optional<DeviceInfo> record;
    {
        const std::lock_guard list_guard{device_list_mutex};
        const auto found = std::ranges::find(devices, std::string_view{sDeviceID}, &DeviceInfo::id);
        if (found == devices.end()) return {GC_ERR_INVALID_ID, "Unknown sDeviceID"};
        record = *found;
    }
    // It reads a document through the network.
    return open_devices.open(
        record->id, HandleKind::Device, phDevice, {GC_ERR_RESOURCE_IN_USE, "Device already opened"},
        {GC_ERR_INVALID_HANDLE, "Unknown hIface"}, [&] { return create_device_(*record, iOpenFlags); });
}

Error InterfaceImpl::GetParentTL(TL_HANDLE* phSystem) {
    if (phSystem == nullptr) return {GC_ERR_INVALID_PARAMETER, "phSystem == nullptr"};
    *phSystem = as_handle(&system);
    return success();
}

void InterfaceImpl::close_children() {
    open_devices.close_all();
    close_events();
}

Error InterfaceImpl::OnDeviceClosed(IDevice* closed) {
    remove_handle(closed);
    // Not left to the destructor: a call under way on another thread may put that off, and when this returns the
    // consumer frees the memory that the streams write to.
    closed->close_children();
    open_devices.forget(closed);
    return success();
}

void InterfaceImpl::fire_module_event(uint64_t event_id, std::span<const std::byte> data) {
    if (const auto event = genapi_event.get()) event->fire(event_id, data);
}

std::optional<DeviceInfo> InterfaceImpl::selected_device_info() {
    const std::lock_guard guard{device_list_mutex};
    if (device_selector >= devices.size()) return {};
    return devices[device_selector];
}

Util::DocumentIdentity InterfaceImpl::document_identity() {
    const TransportLayerStrings tl = system.transport_layer_strings();
    return {std::string{tl.vendor}, std::string{tl.model}, std::string{tl.display_name}};
}

void InterfaceImpl::build_register_map(Util::GenApiInterfaceBuilder& builder) {
    const auto addInfoString = [&](std::string_view name, INTERFACE_INFO_CMD command) {
        builder.add_ro_string(name, 256, [this, command](std::span<char> text) {
            INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
            size_t size = text.size();
            return GetInfo(command, &type, text.data(), &size);
        });
    };
    addInfoString("InterfaceID", INTERFACE_INFO_ID);
    addInfoString("InterfaceDisplayName", INTERFACE_INFO_DISPLAYNAME);
    builder.add_enum_constant("InterfaceType", tl_type_entry(interface_data.tl_type));
    builder.add_integer_constant("InterfaceTLVersionMajor", 1);
    builder.add_integer_constant("InterfaceTLVersionMinor", 5);

    builder.add_command("DeviceUpdateList", [this] { return UpdateDeviceList(nullptr, 0); });
    builder.add_event_data("EventDeviceListChanged", device_list_event);
    builder.add_category("EventControl", {"EventDeviceListChanged"});

    add_device_enumeration(builder);
    if (interface_data.tl_type == "GEV") add_gev_features(builder);
}

template <class T>
auto InterfaceImpl::selected_device(T (*extract)(const DeviceInfo&)) {
    return [this, extract]() -> std::expected<T, Error> {
        const std::lock_guard guard{device_list_mutex};
        if (device_selector >= devices.size()) {
            return std::unexpected(Error{GC_ERR_INVALID_INDEX, "DeviceSelector >= iNumDevices"});
        }
        return extract(devices[device_selector]);
    };
}

void InterfaceImpl::add_device_enumeration(Util::GenApiInterfaceBuilder& builder) {
    builder.add_selector(
        "DeviceSelector",
        [this] {
            const std::lock_guard guard{device_list_mutex};
            return devices.size();
        },
        &device_selector);

    // The device interface_data table, run at the selected device.
    const auto build_device_string_query = [this](DEVICE_INFO_CMD command) {
        return Util::TextGetter{[this, command](std::span<char> text) {
            const std::lock_guard guard{device_list_mutex};
            if (device_selector >= devices.size()) {
                return Error{GC_ERR_INVALID_INDEX, "DeviceSelector >= iNumDevices"};
            }
            INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
            size_t size = text.size();
            return answer_device_info(devices[device_selector], command, &type, text.data(), &size);
        }};
    };
    builder.add_ro_string("DeviceID", 256, build_device_string_query(DEVICE_INFO_ID));
    builder.add_ro_string("DeviceVendorName", 256, build_device_string_query(DEVICE_INFO_VENDOR));
    builder.add_ro_string("DeviceModelName", 256, build_device_string_query(DEVICE_INFO_MODEL));
    builder.add_ro_string("DeviceSerialNumber", 256, build_device_string_query(DEVICE_INFO_SERIAL_NUMBER));
    builder.add_ro_string("DeviceVersion", 256, build_device_string_query(DEVICE_INFO_VERSION),
                          "DeviceVersion_Register");
    builder.add_ro_string("DeviceUserID", 256, build_device_string_query(DEVICE_INFO_USER_DEFINED_NAME));
    // A list item that does not exist has none of its optional features either.
    const auto selected_has = [this](bool (*has)(const DeviceInfo&)) {
        return [this, has]() -> std::expected<bool, Error> {
            const std::lock_guard guard{device_list_mutex};
            return device_selector < devices.size() && has(devices[device_selector]);
        };
    };
    builder.add_availability("DeviceSerialNumber", "DeviceSerialNumber_AvailableRegister",
                             selected_has(+[](const DeviceInfo& d) { return !d.serial_number.empty(); }));
    builder.add_availability("DeviceVersion", "DeviceVersion_AvailableRegister",
                             selected_has(+[](const DeviceInfo& d) { return !d.version.empty(); }));
    builder.add_availability("DeviceUserID", "DeviceUserID_AvailableRegister",
                             selected_has(+[](const DeviceInfo& d) { return d.user_defined_name.has_value(); }));
    builder.add_ro_enumeration("DeviceAccessStatus", selected_device(+[](const DeviceInfo& d) {
                                   return static_cast<uint32_t>(d.access_status);
                               }));
    builder.add_ro_integer<uint32_t>("DeviceTLVersionMajor", selected_device(+[](const DeviceInfo&) { return 1U; }));
    builder.add_ro_integer<uint32_t>("DeviceTLVersionMinor", selected_device(+[](const DeviceInfo&) { return 5U; }));
    builder.add_category("DeviceEnumeration", {"DeviceVersion"});
    builder.select("DeviceSelector",
                   {"DeviceID", "DeviceVendorName", "DeviceModelName", "DeviceSerialNumber", "DeviceVersion",
                    "DeviceUserID", "DeviceAccessStatus", "DeviceTLVersionMajor", "DeviceTLVersionMinor"});
}

void InterfaceImpl::add_gev_features(Util::GenApiInterfaceBuilder& builder) {
    builder.add_integer_constant("GevInterfaceMACAddress", static_cast<int64_t>(interface_data.mac_address))
        .representation = genicam_gen::representation::mac_address;

    builder.add_selector(
        "GevInterfaceSubnetSelector", [this] { return interface_data.subnets.size(); }, &subnet_selector);
    builder.add_ro_ip_address("GevInterfaceSubnetIPAddress",
                              build_item_query(
                                  interface_data.subnets, subnet_selector, "GevInterfaceSubnetSelector",
                                  +[](const GEVSubnet& subnet) { return subnet.ip_address; }));
    builder.add_ro_ip_address("GevInterfaceSubnetMask",
                              build_item_query(
                                  interface_data.subnets, subnet_selector, "GevInterfaceSubnetSelector",
                                  +[](const GEVSubnet& subnet) { return subnet.subnet_mask; }));
    builder.select("GevInterfaceSubnetSelector", {"GevInterfaceSubnetIPAddress", "GevInterfaceSubnetMask"});

    builder.add_selector(
        "GevInterfaceGatewaySelector", [this] { return interface_data.gateways.size(); }, &gateway_selector);
    builder.add_ro_ip_address("GevInterfaceGateway",
                              build_item_query(
                                  interface_data.gateways, gateway_selector, "GevInterfaceGatewaySelector",
                                  +[](const uint32_t& gateway) { return gateway; }));
    builder.select("GevInterfaceGatewaySelector", {"GevInterfaceGateway"});

    builder.add_ro_ip_address("GevDeviceIPAddress", selected_device(+[](const DeviceInfo& d) { return d.ip_address; }));
    builder.add_ro_ip_address("GevDeviceSubnetMask",
                              selected_device(+[](const DeviceInfo& d) { return d.subnet_mask; }));
    builder.add_ro_ip_address("GevDeviceGateway", selected_device(+[](const DeviceInfo& d) { return d.gateway; }));
    builder.add_ro_mac_address("GevDeviceMACAddress",
                               selected_device(+[](const DeviceInfo& d) { return d.mac_address; }));
    builder.select("DeviceSelector",
                   {"GevDeviceIPAddress", "GevDeviceSubnetMask", "GevDeviceGateway", "GevDeviceMACAddress"});
}

} // namespace GenTL::Producer
