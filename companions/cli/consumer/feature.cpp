#include "feature.h"

#include "../posix/interruption.h"
#include "nearest_names.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <charconv>
#include <cmath>
#include <optional>
#include <thread>

namespace cli {

using namespace GenICam;

port_refusal& last_port_refusal() noexcept {
    thread_local port_refusal refusal;
    return refusal;
}

namespace {

void forget_refusal() { last_port_refusal().call = nullptr; }

// With the formula at fault, where there is one, and the producer's own words.
std::string message_of(const INode& node, const std::error_code& error) {
    std::string text = error.message();
    if (const auto fault = node.get_fault(); !fault.empty()) text += fmt::format(" ({})", fault);
    const port_refusal& refusal = last_port_refusal();
    if (refusal.call != nullptr)
        text += fmt::format(". {} failed with {}: {}", refusal.call, refusal.code, refusal.text);
    return text;
}

bool is_loss(const std::error_code& error) { return error == make_error_code(genicam_errc::device_lost); }

failure refused(const INode& node, const char* what, const std::error_code& error, const std::string& advice = {}) {
    return {is_loss(error) ? cause::lost : cause::feature,
            fmt::format("Cannot {} feature '{}': {}{}", what, node.get_name(), message_of(node, error), advice)};
}

// Whether a person can look it up: registers and formulas have no text of their own.
bool is_for_people(const INode& node) {
    switch (node.node_type()) {
    case NodeType_t::Boolean:
    case NodeType_t::Enumeration:
    case NodeType_t::Float:
    case NodeType_t::Integer:
        return node.get_name_space() == NameSpace_t::Standard || !node.get_tool_tip().empty() ||
               !node.get_description().empty() || node.get_name() == "TLParamsLocked";
    default:
        return false;
    }
}

// The features that the lock is computed from and that are on, else the lock's own name.
std::string lock_text(const INode& node) {
    INode* lock = node.get_is_locked_node();
    if (lock == nullptr) return "locked";
    std::vector<INode*> sources{lock};
    lock->get_source_nodes(sources);
    std::string names;
    for (INode* const each : sources) {
        if (each == &node || !is_for_people(*each)) continue;
        std::string error;
        const std::string value = value_text(*each, error, access_flags::bypass_cache);
        if (value.empty() || value == "0" || value == "false" || value == "Off") continue;
        const bool streaming = each->get_name() == "TLParamsLocked";
        names += fmt::format("{}'{}' ({})", names.empty() ? "" : " or ", each->get_name(),
                             streaming ? "set while pictures are taken" : value);
    }
    return fmt::format("locked by {}", names.empty() ? fmt::format("'{}'", lock->get_name()) : names);
}

template <class T>
std::string range_of(const T& number) {
    const auto least = number.get_min(0);
    const auto most = number.get_max(0);
    if (!least || !most) return {};
    std::string text = fmt::format(". It takes {} to {}", *least, *most);
    if (number.get_inc_mode() == IncMode_t::List) {
        if (const auto values = number.get_valid_value_set(0)) text += fmt::format(", of these {}", *values);
    } else if (const auto step = number.get_inc(0); step && *step != 0 && *step != 1) {
        text += fmt::format(" in steps of {}", *step);
    }
    return text + '.';
}

bool is_about_the_value(const std::error_code& error) {
    for (const auto code :
         {genicam_errc::value_out_of_range, genicam_errc::not_in_value_set, genicam_errc::not_on_increment}) {
        if (error == make_error_code(code)) return true;
    }
    return false;
}

template <class T>
std::optional<T> number_of(std::string_view digits, auto... base) {
    T value{};
    const auto [end, failed] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base...);
    if (failed != std::errc{} || end != digits.data() + digits.size()) return std::nullopt;
    return value;
}

// "a.b.c.d" and "aa:bb:cc:dd:ee:ff": numbers of `count` groups, the first the highest.
std::optional<int64_t> grouped_number(std::string_view text, char separator, int count, int base) {
    int64_t value = 0;
    for (int i = 0; i < count; ++i) {
        const size_t end = std::min(text.find(separator), text.size());
        if ((end == text.size()) != (i + 1 == count)) return std::nullopt;
        const auto group = number_of<unsigned>(text.substr(0, end), base);
        if (!group || *group > 255) return std::nullopt;
        value = value << 8 | *group;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return value;
}

std::optional<int64_t> integer_from_text(std::string_view text, IntRepresentation_t form) {
    if (form == IntRepresentation_t::IPV4Address && text.find('.') != text.npos)
        return grouped_number(text, '.', 4, 10);
    if (form == IntRepresentation_t::MACAddress && text.find(':') != text.npos) return grouped_number(text, ':', 6, 16);
    if (text.starts_with("0x") || text.starts_with("0X")) {
        // All 64 bits, as they are shown.
        const auto bits = number_of<uint64_t>(text.substr(2), 16);
        return bits ? std::optional{static_cast<int64_t>(*bits)} : std::nullopt;
    }
    return number_of<int64_t>(text, 10);
}

std::string integer_text(int64_t value, IntRepresentation_t form) {
    using enum IntRepresentation_t;
    switch (form) {
    case HexNumber:
        return fmt::format("0x{:X}", static_cast<uint64_t>(value));
    case IPV4Address:
        return fmt::format("{}.{}.{}.{}", (value >> 24) & 255, (value >> 16) & 255, (value >> 8) & 255, value & 255);
    case MACAddress: {
        std::string text;
        for (int shift = 40; shift >= 0; shift -= 8) {
            text += fmt::format("{}{:02X}", text.empty() ? "" : ":", (value >> shift) & 255);
        }
        return text;
    }
    default:
        return fmt::format("{}", value);
    }
}

// Every byte; what is cut would be taken for the whole.
result<std::string> register_text(const IRegister& reg, unsigned flags) {
    const auto length = reg.get_length(flags);
    if (!length) return fail(length.error());
    constexpr uint64_t most = 16 * 1024 * 1024;
    if (*length > most) return fail(genicam_errc::resource_exhausted);
    std::vector<std::byte> bytes(*length);
    if (const auto failed = reg.get(bytes, flags)) return fail(failed);
    std::string text;
    text.reserve(2 * bytes.size());
    for (const std::byte byte : bytes)
        fmt::format_to(std::back_inserter(text), "{:02x}", std::to_integer<unsigned>(byte));
    return text;
}

} // namespace

const char* kind_text(const INode& node) {
    using enum NodeType_t;
    switch (node.node_type()) {
    case Integer:
        return "Integer";
    case Float:
        return "Float";
    case Enumeration:
        return "Enumeration";
    case Boolean:
        return "Boolean";
    case String:
        return "String";
    case Command:
        return "Command";
    case Category:
        return "Category";
    case Register:
        return "Register";
    case Port:
        return "Port";
    case EnumEntry:
        return "EnumEntry";
    }
    return "?";
}

std::string access_text(const INode& node) {
    if (!node.is_implemented()) return "NI";
    if (!node.is_available()) return "NA";
    switch (node.get_access_mode()) {
    case Access_t::RO:
        return "RO";
    case Access_t::WO:
        return "WO";
    case Access_t::RW:
        break;
    }
    return node.is_locked() ? "RO" : "RW";
}

const char* visibility_text(const INode& node) {
    switch (node.getVisibility()) {
    case Visibility_t::Beginner:
        return "Beginner";
    case Visibility_t::Expert:
        return "Expert";
    case Visibility_t::Guru:
        return "Guru";
    case Visibility_t::Invisible:
        return "Invisible";
    }
    return "?";
}

std::string entry_name(const IEnumEntry& entry) {
    return std::string{entry.get_symbolic().empty() ? entry.get_name() : entry.get_symbolic()};
}

std::vector<std::string> entries_of(const IEnumeration& choice) {
    std::vector<std::string> names;
    for (const IEnumEntry* entry : choice.get_entries()) {
        if (entry->is_available()) names.push_back(entry_name(*entry));
    }
    return names;
}

nlohmann::json value_json(INode& node, std::string& error, unsigned flags) {
    error.clear();
    forget_refusal();
    const auto take = [&]<class R>(const result<R>& value, auto&& convert) -> nlohmann::json {
        if (value) return convert(*value);
        if (is_loss(value.error())) throw refused(node, "read", value.error());
        error = message_of(node, value.error());
        return nullptr;
    };
    const auto as_it_is = [](const auto& value) -> nlohmann::json { return value; };
    if (auto* integer = node_cast<IInteger>(&node)) {
        return take(integer->get_val(flags), [&](int64_t value) -> nlohmann::json {
            const auto form = integer->get_representation();
            const bool is_address = form == IntRepresentation_t::IPV4Address || form == IntRepresentation_t::MACAddress;
            return is_address ? nlohmann::json(integer_text(value, form)) : nlohmann::json(value);
        });
    }
    if (auto* real = node_cast<IFloat>(&node)) {
        return take(real->get_val(flags), [](double value) -> nlohmann::json {
            return std::isfinite(value) ? nlohmann::json(value) : nlohmann::json(fmt::format("{}", value));
        });
    }
    if (auto* flag = node_cast<IBoolean>(&node)) return take(flag->get_val(flags), as_it_is);
    if (auto* text = node_cast<IString>(&node)) return take(text->get_val(flags), as_it_is);
    if (auto* choice = node_cast<IEnumeration>(&node)) {
        return take(choice->get_selected_entry(flags), [](const IEnumEntry* entry) -> nlohmann::json {
            return entry == nullptr ? std::string{} : entry_name(*entry);
        });
    }
    if (auto* reg = node_cast<IRegister>(&node)) return take(register_text(*reg, flags), as_it_is);
    return nullptr;
}

std::string value_text(INode& node, std::string& error, unsigned flags) {
    const nlohmann::json value = value_json(node, error, flags);
    if (value.is_null()) return {};
    if (value.is_string()) return value;
    if (value.is_boolean()) return value.get<bool>() ? "true" : "false";
    if (auto* integer = node_cast<IInteger>(&node)) return integer_text(value, integer->get_representation());
    return fmt::format("{}", value.get<double>());
}

nlohmann::json describe(INode& node, bool in_full) {
    nlohmann::json item;
    item["name"] = std::string{node.get_name()};
    item["kind"] = kind_text(node);
    item["access"] = access_text(node);
    item["visibility"] = visibility_text(node);
    const std::string access = item["access"];
    if (access != "NI" && access != "NA" && access != "WO" && node.node_type() != NodeType_t::Category &&
        node.node_type() != NodeType_t::Command && node.node_type() != NodeType_t::Port) {
        std::string error;
        nlohmann::json value = value_json(node, error);
        if (error.empty()) {
            item["value"] = std::move(value);
        } else {
            item["error"] = error;
        }
    }
    const auto limits = [&](auto* number) {
        if (const auto value = number->get_min(0)) item["min"] = *value;
        if (const auto value = number->get_max(0)) item["max"] = *value;
        if (const auto value = number->get_inc(0)) item["inc"] = *value;
        if (!number->get_unit().empty()) item["unit"] = std::string{number->get_unit()};
    };
    const auto selected = [&](auto* selector) {
        for (const INode* feature : selector->get_selected())
            item["selects"].push_back(std::string{feature->get_name()});
    };
    if (auto* integer = node_cast<IInteger>(&node)) {
        limits(integer);
        selected(integer);
    } else if (auto* real = node_cast<IFloat>(&node)) {
        limits(real);
    } else if (auto* choice = node_cast<IEnumeration>(&node)) {
        if (auto names = entries_of(*choice); !names.empty()) item["entries"] = std::move(names);
        selected(choice);
    } else if (auto* flag = node_cast<IBoolean>(&node)) {
        selected(flag);
    } else if (auto* category = node_cast<ICategory>(&node)) {
        item["features"] = nlohmann::json::array();
        for (const INode* feature : category->get_features())
            item["features"].push_back(std::string{feature->get_name()});
    }
    if (!in_full) return item;
    for (const auto& [key, text] : {std::pair{"display_name", node.get_display_name()},
                                    {"tool_tip", node.get_tool_tip()},
                                    {"description", node.get_description()}}) {
        if (!text.empty()) item[key] = std::string{text};
    }
    for (const INode* selector : node.get_selecting_nodes())
        item["selected_by"].push_back(std::string{selector->get_name()});
    if (node.is_locked()) item["locked"] = lock_text(node);
    item["streamable"] = node.is_streamable();
    return item;
}

namespace {

std::optional<std::vector<std::byte>> bytes_from_text(std::string_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    std::vector<std::byte> bytes;
    bytes.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) {
        const auto byte = number_of<uint8_t>(text.substr(i, 2), 16);
        if (!byte) return std::nullopt;
        bytes.push_back(std::byte{*byte});
    }
    return bytes;
}

// False when the text is no value of the node's kind.
bool set_parsed(INode& node, const std::string& text, std::error_code& error, std::string& advice) {
    const auto set_number = [&](auto& number, auto value) {
        if (!value) return false;
        error = number.set_val(*value, 0);
        if (is_about_the_value(error)) advice = range_of(number);
        return true;
    };
    if (auto* integer = node_cast<IInteger>(&node))
        return set_number(*integer, integer_from_text(text, integer->get_representation()));
    if (auto* real = node_cast<IFloat>(&node)) return set_number(*real, number_of<double>(text));
    if (auto* flag = node_cast<IBoolean>(&node)) {
        const bool on = text == "true" || text == "1" || text == "on";
        if (!on && text != "false" && text != "0" && text != "off") return false;
        error = flag->set_val(on, 0);
        return true;
    }
    if (auto* string = node_cast<IString>(&node)) {
        error = string->set_val(text, 0);
        if (const auto longest = string->get_max_length(0); error && longest && text.size() > *longest)
            advice = fmt::format(". It takes {} bytes.", *longest);
        return true;
    }
    if (auto* choice = node_cast<IEnumeration>(&node)) {
        IEnumEntry* entry = choice->find_entry_by_name(text);
        const auto names = entries_of(*choice);
        if (entry == nullptr)
            throw failure(cause::feature, fmt::format("Feature '{}' has no entry '{}'.{} It has: {}.", node.get_name(),
                                                      text, did_you_mean(text, names), fmt::join(names, ", ")));
        error = choice->set_selected_entry(entry, 0);
        if (error) advice = fmt::format(". It can be now: {}.", fmt::join(names, ", "));
        return true;
    }
    if (auto* command = node_cast<ICommand>(&node)) { // in a row of settings it has its place, too
        if (text != "true" && text != "1") return false;
        error = command->execute(0);
        return true;
    }
    if (auto* reg = node_cast<IRegister>(&node)) {
        const auto bytes = bytes_from_text(text);
        if (!bytes) return false;
        const auto length = reg->get_length(0);
        if (length && *length != bytes->size()) advice = fmt::format(". It has {} bytes.", *length);
        error =
            length && *length != bytes->size() ? make_error_code(genicam_errc::invalid_parameter) : reg->set(*bytes, 0);
        return true;
    }
    throw failure(cause::feature, fmt::format("A {} cannot be set ('{}').", kind_text(node), node.get_name()));
}

ICommand& require_command(INode& node) {
    auto* command = node_cast<ICommand>(&node);
    if (command != nullptr) return *command;
    throw failure(cause::feature,
                  fmt::format("Feature '{}' is a {}, not a command.", node.get_name(), kind_text(node)));
}

} // namespace

void set_from_text(INode& node, const std::string& text) {
    forget_refusal();
    // A locked feature may well be RW in its document: only the lock tells, and a camera's refusal does not say why.
    if (node.is_locked())
        throw failure(cause::feature, fmt::format("Cannot set feature '{}': {}", node.get_name(), lock_text(node)));
    std::error_code error;
    std::string advice;
    if (!set_parsed(node, text, error, advice)) {
        const char* kind = node.node_type() == NodeType_t::Integer    ? "integer"
                           : node.node_type() == NodeType_t::Float    ? "number"
                           : node.node_type() == NodeType_t::Register ? "row of hexadecimal bytes"
                                                                      : "boolean";
        throw failure(cause::feature, fmt::format("'{}' is no {} for feature '{}'.", text, kind, node.get_name()));
    }
    if (error) throw refused(node, "set", error, advice);
}

bool is_same_value(const INode& node, const std::string& asked, const std::string& read) {
    if (asked == read) return true;
    switch (node.node_type()) {
    case NodeType_t::Integer: {
        const auto form = static_cast<const IInteger&>(node).get_representation();
        const auto a = integer_from_text(asked, form), b = integer_from_text(read, form);
        return a && b && *a == *b;
    }
    case NodeType_t::Float: {
        const auto a = number_of<double>(asked), b = number_of<double>(read);
        return a && b && std::abs(*a - *b) <= 1e-6 * std::max(std::abs(*a), std::abs(*b)); // 32-bit registers
    }
    case NodeType_t::Boolean:
        return (asked == "true" || asked == "1" || asked == "on") == (read == "true");
    case NodeType_t::Enumeration: {
        const auto& choice = static_cast<const IEnumeration&>(node);
        const auto* entry = choice.find_entry_by_name(asked);
        return entry != nullptr && entry == choice.find_entry_by_name(read);
    }
    default:
        return false;
    }
}

void execute(INode& node) {
    forget_refusal();
    if (const std::error_code error = require_command(node).execute(0)) throw refused(node, "execute", error);
}

void wait_until_done(INode& node, std::chrono::milliseconds longest) {
    const ICommand& command = require_command(node);
    constexpr std::chrono::milliseconds pause{10};
    const auto deadline = std::chrono::steady_clock::now() + longest;
    for (;;) {
        stop_if_interrupted();
        forget_refusal();
        // Past the cache, which holds what was just written.
        const auto done = command.is_done(access_flags::bypass_cache);
        if (!done) throw refused(node, "wait for", done.error());
        if (*done) return;
        if (std::chrono::steady_clock::now() >= deadline) {
            throw failure(cause::timeout,
                          fmt::format("Command '{}' was sent and is not done after {} ms; --wait gives it more time.",
                                      node.get_name(), longest.count()));
        }
        std::this_thread::sleep_for(pause);
    }
}

INode& require_node(const IGenICamDoc& document, const std::string& name) {
    if (INode* node = document.find_node(name)) return *node;
    std::vector<std::string> names;
    for (const INode* feature : document.get_root_features()) names.emplace_back(feature->get_name());
    throw failure(cause::feature, fmt::format("There is no feature '{}'.{}", name, did_you_mean(name, names)));
}

int64_t integer_of(const INode& node) {
    if (node.node_type() != NodeType_t::Integer)
        throw failure(cause::feature, fmt::format("Feature '{}' is no integer.", node.get_name()));
    forget_refusal();
    const auto value = static_cast<const IInteger&>(node).get_val(access_flags::bypass_cache);
    if (!value) throw refused(node, "read", value.error());
    return *value;
}

} // namespace cli
