#include "register_helper.h"

#include "../genicam_port.h"
#include "log.h"
#include "text_values.h"
#include "xml_readers.h"

#include <bit>
#include <cstring>
#include <limits>

namespace GenICam::impl {

namespace {

constexpr uint64_t standard_length = 4;

// Addresses wrap: a document may well build one from the top of the range.
int64_t wrapped_sum(int64_t a, int64_t b) noexcept {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
int64_t wrapped_product(int64_t a, int64_t b) noexcept {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

} // namespace

void reg_access::resolve_port_interface(node_base_data& owner, const element_view& view) {
    const std::string_view port_name = text_of(view[tag::pPort]);
    INode* node = owner.document().find_node(port_name, NodeType_t::Port);
    if (node == nullptr) {
        log(level_fault, "{}. Failed to resolve port '{}'.", owner.get_node_name(), port_name);
        return;
    }
    auto* resolved = static_cast<port_device_type*>(static_cast<IPort*>(node));
    port = resolved;
    port_node = resolved;
    resolved->add_user(&owner);
}

void reg_access::resolve_caching(const node_base_data& owner, const element_view& view, CachingMode_t standard) {
    const auto own = get_element_Cachable(view[tag::Cachable], owner.get_node_name());
    caching.mode = own.value_or(owner.document().force_no_cache() ? CachingMode_t::NoCache : standard);
}

void reg_access::invalidate(const result<address_range>& place) {
    // Without a place: it could be told when the entry was made, and may be again.
    const uint64_t number = place ? port->invalidate_range(place->address, place->length) : port->invalidate_all();
    // Never back: another thread may have invalidated it later and been here before.
    uint64_t before = caching.since.load(std::memory_order_relaxed);
    while (before < number && !caching.since.compare_exchange_weak(before, number, std::memory_order_relaxed)) {
    }
}

int64_t get_element_const_address_sum(const node_base_data& owner, const element_view& view) {
    int64_t sum = 0;
    view.for_each(tag::Address, [&](pugi::xml_node element) {
        const auto address = parse_integer(text_of(element));
        if (!address) log(level_fault, "{}. Node contains invalid 'Address' XML element.", owner.get_node_name());
        sum = wrapped_sum(sum, address.value_or(0));
    });
    return sum;
}

void address_eval::resolve_references(node_base_data& owner, const element_view& view) {
    auto& memory = owner.document().memory_resource();
    base = get_element_const_address_sum(owner, view);
    view.for_each(tag::IntSwissKnife, [&](pugi::xml_node element) {
        INode* node = owner.document().find_node(element.attribute("Name").value());
        if (node == nullptr) {
            log(level_fault, "{}. Node contains invalid 'IntSwissKnife' XML element.", owner.get_node_name());
            return;
        }
        owner.add_source(node);
        terms.push_back({nullptr, node, 0}, memory);
    });
    view.for_each(tag::pAddress, [&](pugi::xml_node element) {
        INode* node = owner.document().find_node(text_of(element));
        if (node == nullptr) {
            log(level_fault, "{}. Node contains invalid 'pAddress' XML element.", owner.get_node_name());
            return;
        }
        owner.add_source(node);
        terms.push_back({nullptr, node, 0}, memory);
    });
    view.for_each(tag::pIndex, [&](pugi::xml_node element) {
        term next{owner.document().find_node(text_of(element)), nullptr, 0};
        if (next.index_node == nullptr) {
            log(level_fault, "{}. Node contains invalid 'pIndex' XML element.", owner.get_node_name());
            return;
        }
        if (const pugi::xml_attribute offset = element.attribute("Offset")) {
            const auto value = parse_integer(offset.value());
            if (!value)
                log(level_fault, "{}. Node contains invalid 'pIndex/@Offset' XML element.", owner.get_node_name());
            next.offset_const = value.value_or(0);
        }
        if (const pugi::xml_attribute offset = element.attribute("pOffset")) {
            next.offset_node = owner.document().find_node(trimmed(offset.value()));
            if (next.offset_node == nullptr)
                log(level_fault, "{}. Node contains invalid 'pIndex/@pOffset' XML element.", owner.get_node_name());
        }
        owner.add_source(next.index_node);
        owner.add_source(next.offset_node);
        terms.push_back(next, memory);
    });
}

void address_eval::resolve_references_len(node_base_data& owner, const element_view& view) {
    if (!view.has(tag::Length) && !view.has(tag::pLength))
        log(level_fault, "{}. Node contains neither pLength nor Length XML elements.", owner.get_node_name());
    length.resolve(owner, view, tag::Length, tag::pLength);
    if (length.is_absent()) length.set(standard_length);
}

result<int64_t> address_eval::calc_address(uint64_t length_for_default_offset, unsigned flags) const {
    const auto read = [flags](INode& node, const char* message_element) {
        auto value = get_eval_val<int64_t>(node, flags);
        if (!value)
            log(level_fault, "{} ('{}'). Failed to fetch value from '{}' element.", "RegisterNodeTemplate", "Unknown",
                message_element);
        return value;
    };
    int64_t address = base;
    for (const term& next : terms.view()) {
        if (next.index_node == nullptr) {
            const auto value = read(*next.offset_node, "pAddress");
            if (!value) return value;
            address = wrapped_sum(address, *value);
            continue;
        }
        const auto index = read(*next.index_node, "pIndex");
        if (!index) return index;
        auto step = static_cast<int64_t>(length_for_default_offset);
        if (next.offset_const != 0 || next.offset_node != nullptr) {
            step = next.offset_const;
            if (next.offset_node != nullptr) {
                const auto offset = read(*next.offset_node, "pIndex/@pOffset");
                if (!offset) return offset;
                step = wrapped_sum(step, *offset);
            }
        }
        address = wrapped_sum(address, wrapped_product(*index, step));
    }
    return address;
}

result<address_range> address_eval::get(unsigned flags) const {
    const auto bytes = length.get(flags);
    if (!bytes) return fail(bytes.error());
    const auto address = calc_address(*bytes, flags);
    if (!address) return fail(address.error());
    return address_range{*address, *bytes};
}

void register_const_address_eval::resolve_references(node_base_data& owner, const element_view& view) {
    address = get_element_const_address_sum(owner, view);
}

void register_const_address_eval::resolve_references_len(node_base_data& owner, const element_view& view) {
    const auto value = parse_integer(text_of(view[tag::Length]));
    if (!value) log(level_fault, "{}. Failed to parse 'Length' XML element.", owner.get_node_name());
    length = static_cast<uint64_t>(value.value_or(standard_length));
}

int64_t decode_integer(std::span<const std::byte> data, Endianess_t order, bool is_signed) noexcept {
    uint64_t raw = 0;
    if (data.size() == sizeof(uint32_t)) { // nearly every register
        uint32_t word;
        std::memcpy(&word, data.data(), sizeof(word));
        const bool is_native = (order == Endianess_t::BigEndian) == (std::endian::native == std::endian::big);
        raw = is_native ? word : std::byteswap(word);
    } else if (order == Endianess_t::BigEndian) {
        for (const std::byte b : data) raw = raw << 8 | std::to_integer<uint64_t>(b);
    } else {
        for (std::size_t i = 0; i < data.size(); ++i) raw |= std::to_integer<uint64_t>(data[i]) << (8 * i);
    }
    if (is_signed && !data.empty() && data.size() < 8) {
        const unsigned unused = 64 - 8 * static_cast<unsigned>(data.size());
        return static_cast<int64_t>(raw << unused) >> unused;
    }
    return static_cast<int64_t>(raw);
}

void encode_integer(int64_t value, std::span<std::byte> data, Endianess_t order) noexcept {
    auto raw = static_cast<uint64_t>(value);
    const std::size_t n = data.size();
    for (std::size_t i = 0; i < n; ++i, raw >>= 8)
        data[order == Endianess_t::BigEndian ? n - 1 - i : i] = static_cast<std::byte>(raw & 0xFF);
}

bool is_number_length(const node_base_data& owner, uint64_t length) {
    if (length >= 1 && length <= 8) return true;
    log(level_fault, "{}. Invalid Length value={} out of range [1;8].", owner.get_node_name(), length);
    return false;
}

int64_t lowest_of_bits(unsigned bits, bool is_signed) noexcept {
    if (!is_signed || bits == 0) return 0;
    return std::numeric_limits<int64_t>::min() >> (64 - bits);
}

int64_t highest_of_bits(unsigned bits, bool is_signed) noexcept {
    const unsigned magnitude = is_signed && bits > 0 ? bits - 1 : bits;
    if (magnitude >= 63) return std::numeric_limits<int64_t>::max();
    return static_cast<int64_t>((uint64_t{1} << magnitude) - 1);
}

} // namespace GenICam::impl
