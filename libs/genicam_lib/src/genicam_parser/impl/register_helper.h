// Parts of every register: the port it lives on, its address and length, the bytes of a number.
#pragma once

#include "node_or_value.h"
#include "port_reg_interface.h"

#include <GenICam/ports.h>

namespace GenICam::impl {

struct address_range {
    int64_t address;
    uint64_t length;
};

struct reg_access {
    port_reg_interface* port = nullptr; // null makes every value access answer invalid_document
    IPort* port_node = nullptr;         // the same port
    caching_terms caching;
    Endianess_t endianess = Endianess_t::BigEndian;

    // From "pPort" of the view; makes the owner a user of the port. No source: a walk of the sources must not spread
    // from one register over the port to all others.
    void resolve_port_interface(node_base_data& owner, const element_view& view);
    void resolve_caching(const node_base_data& owner, const element_view& view, CachingMode_t standard);
    // Drops what is cached there, or everything when the place cannot be told. One pass invalidates a register together
    // with the nodes that tell where it lies, in any order, so that the place told then may be neither where it has
    // lain nor where it will: whatever was cached before, wherever, is not its value any more either.
    void invalidate(const result<address_range>& place);
};

// The sum of the "Address" children.
[[nodiscard]] int64_t get_element_const_address_sum(const node_base_data& owner, const element_view& view);

// Address and length that may depend on other nodes.
class address_eval {
public:
    void resolve_references(node_base_data& owner, const element_view& view);
    void resolve_references_len(node_base_data& owner, const element_view& view);

    [[nodiscard]] result<uint64_t> get_length(unsigned flags) const { return length.get(flags); }
    // An index without an offset of its own counts in units of the length given.
    [[nodiscard]] result<int64_t> calc_address(uint64_t length_for_default_offset, unsigned flags) const;
    [[nodiscard]] result<address_range> get(unsigned flags) const;

private:
    struct term {
        INode* index_node; // null: add the value of offset_node
        INode* offset_node;
        int64_t offset_const;
    };

    int64_t base = 0;
    arena_vector<term, 1> terms;
    node_or_const_value<uint64_t> length;
};

class register_const_address_eval {
public:
    void resolve_references(node_base_data& owner, const element_view& view);
    void resolve_references_len(node_base_data& owner, const element_view& view);

    [[nodiscard]] result<uint64_t> get_length(unsigned) const { return length; }
    [[nodiscard]] result<int64_t> calc_address(uint64_t, unsigned) const { return address; }
    [[nodiscard]] result<address_range> get(unsigned) const { return address_range{address, length}; }

private:
    int64_t address = 0;
    uint64_t length = 4;
};

// 0 to 8 bytes. Encoding takes the low bytes of the value; nothing checks that it fits.
[[nodiscard]] int64_t decode_integer(std::span<const std::byte> data, Endianess_t order, bool is_signed) noexcept;
void encode_integer(int64_t value, std::span<std::byte> data, Endianess_t order) noexcept;

// 1 to 8 bytes; anything else is logged.
[[nodiscard]] bool is_number_length(const node_base_data& owner, uint64_t length);

// Limits of an integer of so many bits (1 to 64).
[[nodiscard]] int64_t lowest_of_bits(unsigned bits, bool is_signed) noexcept;
[[nodiscard]] int64_t highest_of_bits(unsigned bits, bool is_signed) noexcept;

} // namespace GenICam::impl
