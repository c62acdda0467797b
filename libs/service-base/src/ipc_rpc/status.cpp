#include <ipc_rpc/status.h>

#include <array>
#include <ios>
#include <mutex>
#include <string>

namespace ipc_rpc {

namespace {

struct status_row {
    status value;
    const char* text;
    std::errc condition;
};

constexpr std::array status_table{
    status_row{status::function_not_found, "IPC function to call not found", std::errc::invalid_argument},
    status_row{status::object_not_found, "IPC object to call not found", std::errc::invalid_argument},
    status_row{status::unregistered_error_category,
               "IPC Failed to serialize std::error_code due to unregistered std::error_category",
               std::errc::invalid_argument},
    status_row{status::null_registration, "Pointer to register a function or object is null",
               std::errc::invalid_argument},
    status_row{status::name_already_used, "Failed to register function due to already used name",
               std::errc::invalid_argument},
    status_row{status::bad_parameter, "Failed to deserialize expected parameter", std::errc::invalid_argument},
    status_row{status::bad_return_value, "Failed to deserialize expected return value", std::errc::invalid_argument},
    status_row{status::bad_packet, "Received bad packet", std::errc::io_error},
    status_row{status::unknown_transaction, "Unknown transaction id", std::errc::io_error},
    status_row{status::param_block_too_large, "A param block > 100 MiB was pushed/requested. DDOS?",
               std::errc::invalid_argument},
    status_row{status::object_expired, "IPC object instance found but expired", std::errc::invalid_argument},
    status_row{status::connection_closed, "Connection was closed", std::errc::connection_aborted},
    status_row{status::resource_exhausted, "Operation failed because a resource is exhausted",
               std::errc::not_enough_memory},
};

const status_row* find_row(int value) noexcept {
    for (const auto& row : status_table) {
        if (static_cast<int>(row.value) == value) return &row;
    }
    return nullptr;
}

class rpc_category final : public std::error_category {
public:
    const char* name() const noexcept override { return "RPC Error"; }
    std::string message(int value) const override {
        if (value == 0) return "Success";
        const auto* row = find_row(value);
        return row == nullptr ? "unknown" : row->text;
    }
    std::error_condition default_error_condition(int value) const noexcept override {
        const auto* row = find_row(value);
        return row == nullptr ? std::error_condition{value, *this} : std::make_error_condition(row->condition);
    }
};

// Conditions with the numbers that they have on the wire: in the generic category, and in the system category
// (0: has none there). The first row of a number is the one that decoding finds.
struct errno_row {
    std::errc condition;
    int generic;
    int system;
};

constexpr std::array errno_table{
    errno_row{std::errc::operation_not_permitted, 1, 0},
    errno_row{std::errc::no_such_file_or_directory, 2, 2},
    errno_row{std::errc::no_such_process, 3, 0},
    errno_row{std::errc::interrupted, 4, 0},
    errno_row{std::errc::io_error, 5, 1117},
    errno_row{std::errc::no_such_device_or_address, 6, 0},
    errno_row{std::errc::argument_list_too_long, 7, 0},
    errno_row{std::errc::executable_format_error, 8, 0},
    errno_row{std::errc::bad_file_descriptor, 9, 6},
    errno_row{std::errc::no_child_process, 10, 0},
    errno_row{std::errc::resource_unavailable_try_again, 11, 231},
    errno_row{std::errc::not_enough_memory, 12, 8},
    errno_row{std::errc::permission_denied, 13, 5},
    errno_row{std::errc::bad_address, 14, 0},
    errno_row{std::errc::device_or_resource_busy, 16, 170},
    errno_row{std::errc::file_exists, 17, 80},
    errno_row{std::errc::cross_device_link, 18, 17},
    errno_row{std::errc::no_such_device, 19, 20},
    errno_row{std::errc::not_a_directory, 20, 267},
    errno_row{std::errc::is_a_directory, 21, 0},
    errno_row{std::errc::invalid_argument, 22, 87},
    errno_row{std::errc::too_many_files_open_in_system, 23, 0},
    errno_row{std::errc::too_many_files_open, 24, 4},
    errno_row{std::errc::inappropriate_io_control_operation, 25, 0},
    errno_row{std::errc::file_too_large, 27, 0},
    errno_row{std::errc::no_space_on_device, 28, 112},
    errno_row{std::errc::invalid_seek, 29, 0},
    errno_row{std::errc::read_only_file_system, 30, 19},
    errno_row{std::errc::too_many_links, 31, 0},
    errno_row{std::errc::broken_pipe, 32, 109},
    errno_row{std::errc::argument_out_of_domain, 33, 0},
    errno_row{std::errc::result_out_of_range, 34, 0},
    errno_row{std::errc::resource_deadlock_would_occur, 36, 1131},
    errno_row{std::errc::filename_too_long, 38, 206},
    errno_row{std::errc::no_lock_available, 39, 0},
    errno_row{std::errc::function_not_supported, 40, 120},
    errno_row{std::errc::directory_not_empty, 41, 145},
    errno_row{std::errc::illegal_byte_sequence, 42, 0},
    errno_row{std::errc::address_in_use, 100, 10048},
    errno_row{std::errc::address_not_available, 101, 10049},
    errno_row{std::errc::address_family_not_supported, 102, 10047},
    errno_row{std::errc::connection_already_in_progress, 103, 10037},
    errno_row{std::errc::bad_message, 104, 0},
    errno_row{std::errc::operation_canceled, 105, 995},
    errno_row{std::errc::connection_aborted, 106, 10053},
    errno_row{std::errc::connection_refused, 107, 10061},
    errno_row{std::errc::connection_reset, 108, 10054},
    errno_row{std::errc::destination_address_required, 109, 10039},
    errno_row{std::errc::host_unreachable, 110, 10065},
    errno_row{std::errc::identifier_removed, 111, 0},
    errno_row{std::errc::operation_in_progress, 112, 10036},
    errno_row{std::errc::already_connected, 113, 10056},
    errno_row{std::errc::too_many_symbolic_link_levels, 114, 0},
    errno_row{std::errc::message_size, 115, 10040},
    errno_row{std::errc::network_down, 116, 10050},
    errno_row{std::errc::network_reset, 117, 10052},
    errno_row{std::errc::network_unreachable, 118, 10051},
    errno_row{std::errc::no_buffer_space, 119, 10055},
    errno_row{std::errc::no_link, 121, 0},
    errno_row{std::errc::no_message, 122, 0},
    errno_row{std::errc::no_protocol_option, 123, 10042},
    errno_row{std::errc::not_connected, 126, 10057},
    errno_row{std::errc::state_not_recoverable, 127, 0},
    errno_row{std::errc::not_a_socket, 128, 10038},
    errno_row{std::errc::not_supported, 129, 50},
    errno_row{std::errc::operation_not_supported, 130, 10045},
    errno_row{std::errc::value_too_large, 132, 0},
    errno_row{std::errc::owner_dead, 133, 0},
    errno_row{std::errc::protocol_error, 134, 0},
    errno_row{std::errc::protocol_not_supported, 135, 10043},
    errno_row{std::errc::wrong_protocol_type, 136, 10041},
    errno_row{std::errc::timed_out, 138, 1460},
    errno_row{std::errc::text_file_busy, 139, 0},
    errno_row{std::errc::operation_would_block, 140, 10035},
    // Further numbers of the system category for conditions that have one above.
    errno_row{std::errc::no_such_file_or_directory, 0, 3},
    errno_row{std::errc::not_enough_memory, 0, 14},
    errno_row{std::errc::device_or_resource_busy, 0, 32},
    errno_row{std::errc::file_exists, 0, 183},
    errno_row{std::errc::invalid_argument, 0, 10022},
    errno_row{std::errc::permission_denied, 0, 10013},
    errno_row{std::errc::timed_out, 0, 121},
    errno_row{std::errc::timed_out, 0, 10060},
    errno_row{std::errc::function_not_supported, 0, 1},
};

// Marks a number of this platform that the other one has no word for; out of the way of both number spaces.
constexpr int local_number = 0x20000000;

int wire_number(int value, int errno_row::*column) noexcept {
    if (value == 0) return 0;
    for (const auto& row : errno_table) {
        if (static_cast<int>(row.condition) == value && row.*column != 0) return row.*column;
    }
    return value > 0 && value < local_number ? value | local_number : value;
}

int local_value(int number, int errno_row::*column) noexcept {
    if (number == 0) return 0;
    for (const auto& row : errno_table) {
        if (row.*column == number) return static_cast<int>(row.condition);
    }
    return number > local_number ? number & ~local_number : number;
}

// The slots in use are a prefix that only grows. The lock is held for a few loads.
class category_table {
public:
    category_table() noexcept {
        add(ipc_rpc_error_category(), category_id_rpc);
        add(std::system_category(), category_id_system);
        add(std::generic_category(), category_id_generic);
        add(std::iostream_category(), category_id_iostream);
    }

    void add(const std::error_category& category, std::uint64_t id) noexcept {
        const std::lock_guard guard{mutex};
        for (auto& slot : slots) {
            if (slot.category != nullptr && (*slot.category == category || slot.id == id)) return;
            if (slot.category != nullptr) continue;
            slot = {&category, id};
            return;
        }
    }
    const std::uint64_t* id_of(const std::error_category& category) noexcept {
        const std::lock_guard guard{mutex};
        for (const auto& slot : slots) {
            if (slot.category != nullptr && *slot.category == category) return &slot.id;
        }
        return nullptr;
    }
    const std::error_category* find(std::uint64_t id) noexcept {
        const std::lock_guard guard{mutex};
        for (const auto& slot : slots) {
            if (slot.category != nullptr && slot.id == id) return slot.category;
        }
        return nullptr;
    }

private:
    struct entry {
        const std::error_category* category = nullptr;
        std::uint64_t id = 0;
    };
    std::mutex mutex; // guards slots
    std::array<entry, 16> slots{};
};

category_table& categories() noexcept {
    static category_table instance;
    return instance;
}

} // namespace

const std::error_category& ipc_rpc_error_category() noexcept {
    static const rpc_category instance;
    return instance;
}

void register_error_category(const std::error_category& category, std::uint64_t id) noexcept {
    categories().add(category, id);
}

wire_error to_wire(const std::error_code& code) noexcept {
    const auto* id = categories().id_of(code.category());
    if (id == nullptr) {
        return {static_cast<std::uint64_t>(status::unregistered_error_category), category_id_rpc};
    }
    int value = code.value();
    if (*id == category_id_generic) value = wire_number(value, &errno_row::generic);
    if (*id == category_id_system) value = wire_number(value, &errno_row::system);
    return {static_cast<std::uint64_t>(std::int64_t{value}), *id};
}

std::error_code from_wire(const wire_error& error) noexcept {
    const auto* category = categories().find(error.category_id);
    if (category == nullptr) return make_error_code(status::unregistered_error_category);
    int value = static_cast<int>(static_cast<std::uint32_t>(error.value));
    if (error.category_id == category_id_generic) value = local_value(value, &errno_row::generic);
    if (error.category_id == category_id_system) value = local_value(value, &errno_row::system);
    return {value, *category};
}

} // namespace ipc_rpc
