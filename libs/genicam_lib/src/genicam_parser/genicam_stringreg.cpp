#include "genicam_stringreg.h"

#include "impl/xml_readers.h"

namespace GenICam::impl {

namespace {

// Far beyond any text of a device: keeps a wild length from asking for all memory.
constexpr uint64_t longest_text = uint64_t{16} << 20;

} // namespace

void string_reg_type::do_resolve_references(document_services&, const element_view& view) {
    set_actual_access_mode(get_element_AccessMode(view[tag::AccessMode], name));
    access.resolve_caching(*this, view, CachingMode_t::WriteThrough);
    access.resolve_port_interface(*this, view);
    address.resolve_references(*this, view);
    address.resolve_references_len(*this, view);
}

void string_reg_type::invalidate_register() {
    if (access.port == nullptr) return;
    access.port->invalidate_text(cached); // also one of another address
    access.invalidate(address.get(0));
}

result<address_range> string_reg_type::checked_range(unsigned flags) const {
    auto range = address.get(flags);
    if (range && range->length > longest_text) return fail(genicam_errc::index_out_of_range);
    return range;
}

result<uint64_t> string_reg_type::get_max_length(unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    return address.get_length(flags);
}

result<std::string> string_reg_type::get_val(unsigned flags) const {
    const access_scope access_check{*this, false, flags};
    if (access_check.denied()) return fail(access_check.error);
    if (access.port_node == nullptr) return fail(genicam_errc::invalid_document);
    const auto range = checked_range(flags);
    if (!range) return fail(range.error());
    std::string text(static_cast<std::size_t>(range->length), '\0');
    if (const auto error = access.port->read_text(access.caching.mode, cached, range->address, text, flags))
        return fail(error);
    if (!(flags & access_flags::raw_string)) {
        if (const std::size_t end = text.find('\0'); end != std::string::npos) text.resize(end);
    }
    return text;
}

std::error_code string_reg_type::set_val(std::string_view text, unsigned flags) {
    const access_scope access_check{*this, true, flags};
    if (access_check.denied()) return access_check.error;
    if (access.port_node == nullptr) return genicam_errc::invalid_document;
    const auto range = checked_range(flags);
    if (!range) return range.error();
    if (text.size() > range->length) return genicam_errc::value_out_of_range;

    std::string bytes{text};
    if (!(flags & access_flags::raw_string)) {
        if (bytes.size() < range->length && bytes.find('\0') == std::string::npos) bytes.push_back('\0');
    }
    if (const auto error =
            access.port->write_text(access.caching.mode, cached, range->address, std::move(bytes), flags))
        return error;
    invalidate_dependents(true);
    return {};
}

} // namespace GenICam::impl
