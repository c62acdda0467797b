// The common half of registers that hold a number.
#pragma once

#include "implement_inode.h"
#include "register_helper.h"
#include "xml_readers.h"

#include <GenICam/value_nodes.h>

#include <limits>

namespace GenICam::impl {

template <class Interface, class AddressEval>
class register_node : public implement_inode<node_base_impl_value, Interface> {
    using base = implement_inode<node_base_impl_value, Interface>;

public:
    using base::base;

    void invalidate_register() final {
        if (access.port == nullptr) return;
        access.invalidate(get_address_and_length(0));
    }

protected:
    [[nodiscard]] virtual result<address_range> get_address_and_length(unsigned flags) const {
        return address.get(flags);
    }

    // Port, caching, byte order and access mode from the element itself.
    void resolve_access(const element_view& view, CachingMode_t standard) {
        this->set_actual_access_mode(get_element_AccessMode(view[tag::AccessMode], this->name));
        access.endianess = get_element_Endianess(view[tag::Endianess], this->name);
        access.resolve_caching(*this, view, standard);
        access.resolve_port_interface(*this, view);
    }

    reg_access access;
    AddressEval address;
};

// What integer registers of all forms tell about themselves.
template <class AddressEval>
class integer_register_node : public register_node<IInteger, AddressEval> {
public:
    using register_node<IInteger, AddressEval>::register_node;

    [[nodiscard]] result<int64_t> get_inc(unsigned) const final { return 1; }
    [[nodiscard]] IntRepresentation_t get_representation() const final {
        return get_element_IntRepresentation(this->child("Representation"), this->name);
    }
    [[nodiscard]] std::string_view get_unit() const final { return this->child_text("Unit"); }
    [[nodiscard]] std::span<INode* const> get_selected() const noexcept final { return this->selected; }
    [[nodiscard]] IncMode_t get_inc_mode() const final { return IncMode_t::None; }
    [[nodiscard]] result<std::vector<int64_t>> get_valid_value_set(unsigned) const final {
        return fail(genicam_errc::not_implemented);
    }

protected:
    [[nodiscard]] bool is_signed() const noexcept { return sign == Sign_t::Signed; }

    Sign_t sign = Sign_t::Unsigned;
};

} // namespace GenICam::impl
