#include <GenICam/error.h>

#include <iterator>

namespace GenICam {

namespace {

struct error_text {
    genicam_errc value;
    const char* text;
    std::errc condition;
};

constexpr error_text texts[] = {
    {genicam_errc::generic_error, "Generic Error", std::errc::io_error},
    {genicam_errc::timeout, "Timeout", std::errc::timed_out},
    {genicam_errc::device_lost, "Device lost", std::errc::no_such_device},
    {genicam_errc::not_implemented, "Not implemented", std::errc::not_supported},
    {genicam_errc::access_denied, "Access denied", std::errc::permission_denied},
    {genicam_errc::out_of_memory, "Out of memory", std::errc::not_enough_memory},
    {genicam_errc::resource_exhausted, "Non-memory resource exhausted", std::errc::not_enough_memory},
    {genicam_errc::no_data, "No data available", std::errc::not_connected},
    {genicam_errc::buffer_too_small, "Buffer too small", std::errc::no_buffer_space},
    {genicam_errc::invalid_parameter, "Invalid parameter", std::errc::invalid_argument},
    {genicam_errc::invalid_address, "Invalid address", std::errc::address_not_available},
    {genicam_errc::bad_alignment, "Bad Alignment", std::errc::invalid_argument},
    {genicam_errc::not_in_cache, "Failed to fetch cached value in a 'NoCache' request",
     std::errc::operation_would_block},
    {genicam_errc::index_out_of_range, "Index out of range", std::errc::invalid_argument},
    {genicam_errc::bad_formula, "Failed to parse formula", std::errc::protocol_error},
    {genicam_errc::invalid_document, "Operation failed due to an invalid document.", std::errc::protocol_error},
    {genicam_errc::value_out_of_range, "Passed value is out of range of Min/Max", std::errc::result_out_of_range},
    {genicam_errc::node_not_implemented,
     "Access failed because node was 'not-implemented' INode::is_implemented() == false", std::errc::not_supported},
    {genicam_errc::node_locked, "Writing failed because node was locked, INode::is_locked() == true",
     std::errc::permission_denied},
    {genicam_errc::node_not_available, "Access failed because node was not available INode::is_available() == false",
     std::errc::permission_denied},
    {genicam_errc::not_in_value_set, "Passed value not part of valid value set", std::errc::invalid_argument},
    {genicam_errc::not_on_increment, "Passed value is not dividable by the increment", std::errc::invalid_argument},
    {genicam_errc::port_not_bound, "Port is not bound to a memory span or an actual device port",
     std::errc::address_not_available},
    {genicam_errc::no_such_entry, "Failed to find enumeration entry for passed value", std::errc::invalid_argument},
};

const error_text* find_text(int value) noexcept {
    for (const error_text& entry : texts) {
        if (static_cast<int>(entry.value) == value) return &entry;
    }
    return nullptr;
}

} // namespace

const char* genicam_error_category::name() const noexcept { return "GenICam Error"; }

std::string genicam_error_category::message(int value) const {
    if (value == 0) return "Success";
    const error_text* found = find_text(value);
    return found != nullptr ? found->text : "";
}

std::error_condition genicam_error_category::default_error_condition(int value) const noexcept {
    if (value == 0) return {};
    if (const error_text* found = find_text(value)) return std::make_error_condition(found->condition);
    return {value, *this};
}

const std::error_category& genicam_category() noexcept {
    static const genicam_error_category category;
    return category;
}

} // namespace GenICam
