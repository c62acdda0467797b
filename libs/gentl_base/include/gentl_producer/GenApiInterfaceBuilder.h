// The vocabulary in which a module declares its features: each gets a node in the module's GenICam document and, where
// it has a value of its own, a register in the module's virtual register space.
//
// A feature that the reference document knows is reused from there (names, texts, category, selected features); the
// builder attaches value and register. Others are created in the standard name space and need `add_category`.
// Every operation returns the feature's record for further adjustment; references stay valid while building.
#pragma once

#include <genicam_gen/model.h>
#include <genicam_gen/template_document.h>
#include <gentl_producer/RegisterMap.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace GenTL::Producer::Util {

struct DocumentIdentity {
    std::string vendor;
    std::string model;
    std::string tooltip;
};

struct EnumChoice {
    std::string_view name;
    int64_t value;
};

class GenApiInterfaceBuilder {
public:
    // Hands out addresses from `next_address` upwards. Map, reference text and address outlive the builder.
    GenApiInterfaceBuilder(RegisterMap& map, uint64_t& next_address, const genicam_gen::reference_document& reference,
                           DocumentIdentity identity, std::string port_name);

    // Features with a register. An empty register name stands for the feature's name with "Register" behind it.
    genicam_gen::Command& add_command(std::string_view name, std::function<Error()> command,
                                      std::string_view register_name = {});
    // T is uint32_t, int64_t or uint64_t.
    template <class T>
    genicam_gen::Integer& add_ro_integer(std::string_view name, ValueGetter<T> getter,
                                         std::string_view register_name = {}) {
        return add_integer<T>(name, std::move(getter), {}, genicam_gen::access_mode::ro, register_name);
    }
    template <class T>
    genicam_gen::Integer& add_rw_integer(std::string_view name, ValueGetter<T> getter, ValueSetter<T> setter,
                                         std::string_view register_name = {}) {
        return add_integer<T>(name, std::move(getter), std::move(setter), genicam_gen::access_mode::rw, register_name);
    }
    genicam_gen::Boolean& add_ro_boolean(std::string_view name, ValueGetter<bool> getter,
                                         std::string_view register_name = {});
    genicam_gen::Boolean& add_rw_boolean(std::string_view name, ValueGetter<bool> getter, ValueSetter<bool> setter,
                                         std::string_view register_name = {});
    // The reference's entries unless choices are given.
    genicam_gen::Enumeration& add_ro_enumeration(std::string_view name, ValueGetter<uint32_t> getter,
                                                 std::initializer_list<EnumChoice> choices = {},
                                                 std::string_view register_name = {});
    genicam_gen::Enumeration& add_rw_enumeration(std::string_view name, std::initializer_list<EnumChoice> choices,
                                                 ValueGetter<uint32_t> getter, ValueSetter<uint32_t> setter,
                                                 std::string_view register_name = {});
    genicam_gen::Integer& add_ro_ip_address(std::string_view name, ValueGetter<uint32_t> getter);
    genicam_gen::Integer& add_rw_ip_address(std::string_view name, ValueGetter<uint32_t> getter,
                                            ValueSetter<uint32_t> setter);
    genicam_gen::Integer& add_ro_mac_address(std::string_view name, ValueGetter<uint64_t> getter);
    genicam_gen::String& add_ro_string(std::string_view name, size_t max_length, TextGetter getter,
                                       std::string_view register_name = {});
    genicam_gen::String& add_ro_string(std::string_view name, size_t max_length, ValueGetter<std::string> getter,
                                       std::string_view register_name = {});
    genicam_gen::String& add_rw_string(std::string_view name, size_t max_length, ValueGetter<std::string> getter,
                                       ValueSetter<std::string> setter, std::string_view register_name = {});

    // Features without a register.
    genicam_gen::Integer& add_integer_constant(std::string_view name, int64_t value);
    genicam_gen::Enumeration& add_enum_constant(std::string_view name, std::string_view entry);

    // An index into a list, kept in `variable`. Reads of pMax give the list's size minus one, or 0 when it is empty.
    // With `hide_when_empty` the selector is not available over an empty list.
    genicam_gen::Integer& add_selector(std::string_view name, const std::function<size_t()>& list_size,
                                       uint32_t* variable, bool hide_when_empty = true);
    // Marks features as selected by the selector and makes their registers follow it.
    void select(std::string_view selector, std::initializer_list<std::string_view> features);
    // Makes the feature available only while the getter, behind a register of the given name, gives true.
    void add_availability(std::string_view feature, std::string_view register_name, ValueGetter<bool> getter);
    // Makes the feature locked while the getter gives true.
    void add_lock(std::string_view feature, std::string_view register_name, ValueGetter<bool> getter);

    // The category of this name, the features appended; it comes into being when it is new.
    genicam_gen::Category& add_category(std::string_view name, std::initializer_list<std::string_view> features);

    // Data of a module event: a port that carries the event's number, a register of the one
    // byte that the event has, and the feature.
    genicam_gen::Port& add_event_port(std::string_view port_name, uint64_t event_id);
    genicam_gen::Integer& add_event_data(std::string_view feature, uint64_t event_id);

    // Bare registers. Length in bytes, a multiple of 4 in the address space.
    genicam_gen::IntReg& add_int_reg(std::string_view name, size_t length, genicam_gen::access_mode access,
                                     std::unique_ptr<RegisterMapEntry> entry, bool exact = true);
    genicam_gen::MaskedIntReg& add_mask_int_reg(std::string_view name, size_t length, uint32_t lsb, uint32_t msb,
                                                genicam_gen::access_mode access,
                                                std::unique_ptr<RegisterMapEntry> entry);
    genicam_gen::StringReg& add_string_reg(std::string_view name, size_t length, genicam_gen::access_mode access,
                                           std::unique_ptr<RegisterMapEntry> entry);

    // For whoever debugs a module: the document as it stands, in the file "STEM-VERSION-HASH.xml".
    [[nodiscard]] Error write_debug_file(std::string_view stem, std::string_view version) const;
    // The document with references to absent nodes dropped and all categories under Root. The builder is spent.
    [[nodiscard]] genicam_gen::document finish();

private:
    template <class Record>
    Record& feature(std::string_view name);
    template <class T>
    genicam_gen::Integer& add_integer(std::string_view name, ValueGetter<T> getter, ValueSetter<T> setter,
                                      genicam_gen::access_mode access, std::string_view register_name);
    genicam_gen::Enumeration& add_enumeration(std::string_view name, std::initializer_list<EnumChoice> choices,
                                              ValueGetter<uint32_t> getter, ValueSetter<uint32_t> setter,
                                              std::string_view register_name);
    genicam_gen::String& add_string(std::string_view name, size_t max_length, genicam_gen::access_mode access,
                                    std::unique_ptr<RegisterMapEntry> entry, std::string_view register_name);
    uint64_t map_register(size_t length, std::unique_ptr<RegisterMapEntry> entry, bool exact);
    template <class Record>
    Record& add_register(std::string_view name, size_t length, genicam_gen::access_mode access, uint64_t address);
    void put_into_category(std::string_view feature_name);

    RegisterMap& register_map;
    uint64_t& next_address;
    genicam_gen::template_document reference;
    genicam_gen::document model;
    std::string port;
};

// The whole documents of the modules are written through this: text of the model, ready for a port.
[[nodiscard]] std::string document_text(const genicam_gen::document& model);

} // namespace GenTL::Producer::Util
