#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/InfoTables.h>
#include <gentl_producer/Library.h>
#include <gentl_producer/SystemImpl.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace GenTL::Producer {

namespace {

constexpr uint64_t system_registers = 0xA120000;

} // namespace

SystemImpl::SystemImpl(const TransportLayerInfo& info)
    : VirtualPortImpl("TLPort", {info.vendor, info.model, info.tl_type, PortType::TLSystem, info.version, "TLPort"},
                      system_registers, genicam_gen::reference_id::system),
      TrackedObject("SystemImpl"),
      genapi_event(*this, EVENT_MODULE, [] { return std::make_shared<GenApiEvent>(EVENT_MODULE); }),
      tl_info(info) {}

SystemImpl::~SystemImpl() { SystemImpl::Close(); }

Error SystemImpl::GetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return answer_transport_layer_info(tl_info, iInfoCmd, piType, pBuffer, piSize);
}

Error SystemImpl::GetNumInterfaces(uint32_t* piNumIfaces) {
    if (piNumIfaces == nullptr) return {GC_ERR_INVALID_PARAMETER, "piNumIfaces == nullptr"};
    const std::lock_guard guard{interface_list_mutex};
    *piNumIfaces = static_cast<uint32_t>(interfaces.size());
    return success();
}

Error SystemImpl::GetInterfaceID(uint32_t iIndex, char* sID, size_t* piSize) {
    const std::lock_guard guard{interface_list_mutex};
    if (iIndex >= interfaces.size()) return {GC_ERR_INVALID_INDEX, "iIndex >= numIfaces"};
    return answer_raw_string(sID, piSize, interfaces[iIndex].id);
}

Error SystemImpl::GetInterfaceInfo(const char* sIfaceID, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                   void* pBuffer, size_t* piSize) {
    if (sIfaceID == nullptr) return {GC_ERR_INVALID_ID, "sIfaceID == nullptr"};
    const std::lock_guard guard{interface_list_mutex};
    const auto found = std::ranges::find(interfaces, std::string_view{sIfaceID}, &InterfaceInfo::id);
    if (found == interfaces.end()) return {GC_ERR_INVALID_ID, "Unknown sIfaceID"};
    return answer_interface_info(*found, iInfoCmd, piType, pBuffer, piSize);
}

Error SystemImpl::UpdateInterfaceList(bool* pbChanged, uint64_t timeout) {
    const uint64_t question = ++list_questions;
    auto queried = query_interfaces_(timeout);
    if (!queried) return std::move(queried.error());
    const std::lock_guard guard{interface_list_mutex};
    if (question < list_question) return success();
    list_question = question;
    if (*queried == interfaces) return success(); // the flag is only ever raised
    interfaces = std::move(*queried);
    if (pbChanged != nullptr) *pbChanged = true;
    return success();
}

Error SystemImpl::OpenInterface(const char* sIfaceID, IF_HANDLE* phInterface) {
    if (sIfaceID == nullptr) return {GC_ERR_INVALID_ID, "sIfaceID == nullptr"};
    if (phInterface == nullptr) return {GC_ERR_INVALID_PARAMETER, "phInterface == nullptr"};
    std::optional<InterfaceInfo> record;
    {
        const std::lock_guard guard{interface_list_mutex};
        const auto found = std::ranges::find(interfaces, std::string_view{sIfaceID}, &InterfaceInfo::id);
        if (found == interfaces.end()) return {GC_ERR_INVALID_ID, "Unknown sIfaceID"};
        record = *found;
    }
    return open_interfaces.open(
        record->id, HandleKind::Interface, phInterface, {GC_ERR_RESOURCE_IN_USE, "Interface already opened"},
        {GC_ERR_INVALID_HANDLE, "hTL is invalid"}, [&]() -> std::expected<std::shared_ptr<IInterface>, Error> {
            auto created = create_interface_(*record);
            if (!created) return created;
            Error error = (*created)->UpdateDeviceList(nullptr, 0);
            if (error.failed()) return std::unexpected(std::move(error));
            return created;
        });
}

void SystemImpl::Close() {
    open_interfaces.close_all();
    close_events();
}

Error SystemImpl::OnInterfaceClosed(IInterface* closed) {
    remove_handle(closed);
    open_interfaces.forget(closed);
    return success();
}

TransportLayerStrings SystemImpl::transport_layer_strings() const {
    return {tl_info.tl_type, tl_info.version, tl_info.vendor, tl_info.model, tl_info.display_name};
}

void SystemImpl::fire_module_event(uint64_t event_id, std::span<const std::byte> data) {
    if (const auto event = genapi_event.get()) event->fire(event_id, data);
}

Util::DocumentIdentity SystemImpl::document_identity() { return {tl_info.vendor, tl_info.model, tl_info.display_name}; }

void SystemImpl::build_register_map(Util::GenApiInterfaceBuilder& builder) {
    const auto info_text = [&](std::string_view name, size_t length, TL_INFO_CMD command) {
        builder.add_ro_string(name, length, [this, command](std::span<char> text) {
            INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
            size_t size = text.size();
            return GetInfo(command, &type, text.data(), &size);
        });
    };
    info_text("TLID", 4128, TL_INFO_ID);
    info_text("TLVendorName", 256, TL_INFO_VENDOR);
    info_text("TLModelName", 256, TL_INFO_MODEL);
    info_text("TLVersion", 256, TL_INFO_VERSION);
    info_text("TLFileName", 256, TL_INFO_NAME);
    info_text("TLDisplayName", 256, TL_INFO_DISPLAYNAME);
    info_text("TLPath", 4096, TL_INFO_PATHNAME);
    builder.add_enum_constant("TLType", tl_type_entry(tl_info.tl_type));

    const auto info_number = [&](std::string_view name, TL_INFO_CMD command) {
        builder.add_ro_integer<uint32_t>(name, [this, command]() -> std::expected<uint32_t, Error> {
            INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
            uint32_t value = 0;
            size_t size = sizeof value;
            if (Error error = GetInfo(command, &type, &value, &size); error.failed()) {
                return std::unexpected(std::move(error));
            }
            return value;
        });
    };
    info_number("GenTLVersionMajor", TL_INFO_GENTL_VER_MAJOR);
    info_number("GenTLVersionMinor", TL_INFO_GENTL_VER_MINOR);
    builder.add_integer_constant("GenTLSFNCVersionMajor", 1);
    builder.add_integer_constant("GenTLSFNCVersionMinor", 2);

    builder.add_command("InterfaceUpdateList", [this] { return UpdateInterfaceList(nullptr, 0); });

    const auto selected_text = [&](std::string_view name, std::string InterfaceInfo::*member) {
        builder.add_ro_string(
            name, 256, Util::ValueGetter<std::string>{[this, member]() -> std::expected<std::string, Error> {
                const std::lock_guard guard{interface_list_mutex};
                if (interface_selector >= interfaces.size()) {
                    return std::unexpected(Error{GC_ERR_INVALID_INDEX, "Unexpected interface selector"});
                }
                return interfaces[interface_selector].*member;
            }});
    };
    selected_text("InterfaceID", &InterfaceInfo::id);
    selected_text("InterfaceDisplayName", &InterfaceInfo::display_name);
    builder.add_selector(
        "InterfaceSelector",
        [this] {
            const std::lock_guard guard{interface_list_mutex};
            return interfaces.size();
        },
        &interface_selector, false);

    if (tl_info.tl_type == "GEV") {
        const auto selected_number = [this]<class T>(T (*extract)(const InterfaceInfo&)) {
            return [this, extract]() -> std::expected<T, Error> {
                const std::lock_guard guard{interface_list_mutex};
                if (interface_selector >= interfaces.size()) {
                    return std::unexpected(Error{GC_ERR_INVALID_INDEX, "Unexpected interface selector"});
                }
                return extract(interfaces[interface_selector]);
            };
        };
        builder.add_ro_mac_address("GevInterfaceMACAddress",
                                   selected_number(+[](const InterfaceInfo& info) { return info.mac_address; }));
        builder.add_ro_ip_address("GevInterfaceDefaultIPAddress", selected_number(+[](const InterfaceInfo& info) {
                                      return info.subnets.empty() ? 0U : info.subnets.front().ip_address;
                                  }));
        builder.add_ro_ip_address("GevInterfaceDefaultSubnetMask", selected_number(+[](const InterfaceInfo& info) {
                                      return info.subnets.empty() ? 0U : info.subnets.front().subnet_mask;
                                  }));
        builder.add_ro_ip_address("GevInterfaceDefaultGateway", selected_number(+[](const InterfaceInfo& info) {
                                      return info.gateways.empty() ? 0U : info.gateways.front();
                                  }));
    }
    builder.select("InterfaceSelector",
                   {"InterfaceID", "InterfaceDisplayName", "GevInterfaceMACAddress", "GevInterfaceDefaultIPAddress",
                    "GevInterfaceDefaultSubnetMask", "GevInterfaceDefaultGateway"});

    builder.add_event_data("EventInterfaceListChanged", interface_list_event);
    builder.add_category("EventControl", {"EventInterfaceListChanged"});
}

} // namespace GenTL::Producer
