#include "node_map.h"

#include <GenICam/zip.h>

#include <fmt/format.h>

#include <charconv>
#include <cstring>
#include <thread>

namespace cli {

using namespace GenTL;

namespace {

// With the formula at fault, where there is one.
std::string message_of(const GenICam::INode& node, const std::error_code& error) {
    const std::string_view fault = node.get_fault();
    return fault.empty() ? error.message() : fmt::format("{} ({})", error.message(), fault);
}

std::runtime_error feature_error(const GenICam::INode& node, const char* what, const std::error_code& error) {
    return std::runtime_error(
        fmt::format("Cannot {} feature '{}': {}", what, node.get_name(), message_of(node, error)));
}

struct local_file {
    uint64_t address = 0;
    uint64_t size = 0;
};

local_file parse_local(const std::string& url) {
    const size_t first = url.find(';');
    const size_t second = first == url.npos ? url.npos : url.find(';', first + 1);
    if (second == url.npos) throw std::runtime_error(fmt::format("Document URL '{}' names no registers.", url));
    local_file file;
    file.address = std::stoull(url.substr(first + 1, second - first - 1), nullptr, 16);
    file.size = std::stoull(url.substr(second + 1), nullptr, 16);
    return file;
}

// What a user writes for an entry.
std::string_view entry_name(const GenICam::IEnumEntry& entry) {
    return entry.get_symbolic().empty() ? entry.get_name() : entry.get_symbolic();
}

} // namespace

class node_map::port_adapter final : public GenICam::IDevicePort {
public:
    port_adapter(const gentl_library& library, void* port_handle) : lib(library), port(port_handle) {}

    GenICam::result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        size_t size = data.size();
        const GC_ERROR error = lib.GCReadPort(port, static_cast<uint64_t>(address), data.data(), &size);
        if (error != GC_ERR_SUCCESS) return GenICam::fail(code_of(error));
        return size;
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        size_t size = data.size();
        const GC_ERROR error = lib.GCWritePort(port, static_cast<uint64_t>(address), data.data(), &size);
        return error == GC_ERR_SUCCESS ? std::error_code{} : make_error_code(code_of(error));
    }

private:
    static GenICam::genicam_errc code_of(GC_ERROR error) {
        switch (error) {
        case GC_ERR_TIMEOUT:
            return GenICam::genicam_errc::timeout;
        case GC_ERR_ACCESS_DENIED:
            return GenICam::genicam_errc::access_denied;
        case GC_ERR_NOT_IMPLEMENTED:
            return GenICam::genicam_errc::not_implemented;
        case GC_ERR_INVALID_ADDRESS:
            return GenICam::genicam_errc::invalid_address;
        case GC_ERR_INVALID_PARAMETER:
            return GenICam::genicam_errc::invalid_parameter;
        case GC_ERR_BUFFER_TOO_SMALL:
            return GenICam::genicam_errc::buffer_too_small;
        default:
            return GenICam::genicam_errc::generic_error;
        }
    }
    const gentl_library& lib;
    void* port;
};

node_map::node_map(const gentl_library& lib, void* port) : adapter(std::make_unique<port_adapter>(lib, port)) {
    document_url = ask_text(lib, "GCGetPortURLInfo", [&](INFO_DATATYPE* type, void* text, size_t* size) {
        return lib.GCGetPortURLInfo(port, 0, URL_INFO_URL, type, text, size);
    });
    const local_file file = parse_local(document_url);
    std::string text(file.size, '\0');
    size_t size = text.size();
    lib.check("GCReadPort", lib.GCReadPort(port, file.address, text.data(), &size));
    const auto bytes = std::as_bytes(std::span{text});
    if (GenICam::is_zipped(bytes)) {
        auto inflated = GenICam::inflate_document(bytes);
        if (!inflated) throw std::runtime_error(fmt::format("Cannot unzip '{}'.", document_url));
        text = std::move(*inflated);
    }
    doc = GenICam::create_document(std::string_view{text});
    if (!doc) throw std::runtime_error(fmt::format("Document '{}' is no well-formed XML.", document_url));
    // A module's document names its port after itself; bind whatever port is not one of chunks or events.
    doc->for_each_node([&](GenICam::INode* node) {
        auto* candidate = GenICam::node_cast<GenICam::IPort>(node);
        if (candidate == nullptr || candidate->get_event_id() || candidate->get_chunk_id(0)) return;
        static_cast<void>(candidate->bind(adapter.get(), 0));
    });
}

node_map::~node_map() { doc.reset(); }

const char* kind_text(const GenICam::INode& node) {
    using enum GenICam::NodeType_t;
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

std::string access_text(const GenICam::INode& node) {
    if (!node.is_implemented()) return "NI";
    if (!node.is_available()) return "NA";
    switch (node.get_access_mode()) {
    case GenICam::Access_t::RO:
        return "RO";
    case GenICam::Access_t::WO:
        return "WO";
    case GenICam::Access_t::RW:
        break;
    }
    return node.is_locked() ? "RO" : "RW";
}

const char* visibility_text(const GenICam::INode& node) {
    switch (node.getVisibility()) {
    case GenICam::Visibility_t::Beginner:
        return "Beginner";
    case GenICam::Visibility_t::Expert:
        return "Expert";
    case GenICam::Visibility_t::Guru:
        return "Guru";
    case GenICam::Visibility_t::Invisible:
        return "Invisible";
    }
    return "?";
}

namespace {

std::string integer_text(int64_t value, GenICam::IntRepresentation_t form) {
    using enum GenICam::IntRepresentation_t;
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

template <class R, class F>
std::string text_or_error(const GenICam::INode& node, const GenICam::result<R>& value, std::string& error, F&& format) {
    if (value) return format(*value);
    error = message_of(node, value.error());
    return {};
}

} // namespace

std::string value_text(GenICam::INode& node, std::string& error) {
    using namespace GenICam;
    error.clear();
    if (auto* integer = node_cast<IInteger>(&node)) {
        return text_or_error(node, integer->get_val(0), error,
                             [&](int64_t value) { return integer_text(value, integer->get_representation()); });
    }
    if (auto* real = node_cast<IFloat>(&node)) {
        return text_or_error(node, real->get_val(0), error, [](double value) { return fmt::format("{}", value); });
    }
    if (auto* flag = node_cast<IBoolean>(&node)) {
        return text_or_error(node, flag->get_val(0), error, [](bool value) { return value ? "true" : "false"; });
    }
    if (auto* text = node_cast<IString>(&node)) {
        return text_or_error(node, text->get_val(0), error, [](const std::string& value) { return value; });
    }
    if (auto* choice = node_cast<IEnumeration>(&node)) {
        return text_or_error(node, choice->get_selected_entry(0), error, [](IEnumEntry* entry) {
            return entry == nullptr ? std::string{} : std::string{entry_name(*entry)};
        });
    }
    if (auto* reg = node_cast<IRegister>(&node)) {
        const auto length = reg->get_length(0);
        if (!length) {
            error = length.error().message();
            return {};
        }
        std::vector<std::byte> bytes(std::min<uint64_t>(*length, 64));
        if (const auto failed = reg->get(bytes, 0)) {
            error = failed.message();
            return {};
        }
        std::string text;
        for (const std::byte byte : bytes) text += fmt::format("{:02x}", std::to_integer<unsigned>(byte));
        if (*length > bytes.size()) text += "...";
        return text;
    }
    return {};
}

nlohmann::json describe(GenICam::INode& node) {
    using namespace GenICam;
    nlohmann::json item;
    item["name"] = std::string{node.get_name()};
    item["kind"] = kind_text(node);
    item["access"] = access_text(node);
    item["visibility"] = visibility_text(node);
    const std::string access = item["access"];
    if (access != "NI" && access != "NA" && access != "WO" && node.node_type() != NodeType_t::Category &&
        node.node_type() != NodeType_t::Command && node.node_type() != NodeType_t::Port) {
        std::string error;
        std::string value = value_text(node, error);
        if (error.empty()) {
            item["value"] = value;
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
        for (const IEnumEntry* entry : choice->get_entries()) {
            if (entry->is_available()) item["entries"].push_back(std::string{entry_name(*entry)});
        }
        selected(choice);
    } else if (auto* flag = node_cast<IBoolean>(&node)) {
        selected(flag);
    } else if (auto* category = node_cast<ICategory>(&node)) {
        item["features"] = nlohmann::json::array();
        for (const INode* feature : category->get_features())
            item["features"].push_back(std::string{feature->get_name()});
    }
    return item;
}

void set_from_text(GenICam::INode& node, const std::string& text) {
    using namespace GenICam;
    // A locked feature may well be RW in its document: only the lock tells, and a camera's refusal does not say why.
    if (node.is_locked()) throw std::runtime_error(fmt::format("Cannot set feature '{}': locked", node.get_name()));
    std::error_code error;
    const auto not_a = [&](const char* kind) {
        return std::runtime_error(fmt::format("'{}' is no {} for feature '{}'.", text, kind, node.get_name()));
    };
    if (auto* integer = node_cast<IInteger>(&node)) {
        std::string_view digits = text;
        const bool hex = digits.starts_with("0x") || digits.starts_with("0X");
        if (hex) digits.remove_prefix(2);
        int64_t value = 0;
        const auto [end, failed] = std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
        if (failed != std::errc{} || end != digits.data() + digits.size()) throw not_a("integer");
        error = integer->set_val(value, 0);
    } else if (auto* real = node_cast<IFloat>(&node)) {
        double value = 0;
        const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (failed != std::errc{} || end != text.data() + text.size()) throw not_a("number");
        error = real->set_val(value, 0);
    } else if (auto* flag = node_cast<IBoolean>(&node)) {
        const bool on = text == "true" || text == "1" || text == "on";
        if (!on && text != "false" && text != "0" && text != "off") throw not_a("boolean");
        error = flag->set_val(on, 0);
    } else if (auto* string = node_cast<IString>(&node)) {
        error = string->set_val(text, 0);
    } else if (auto* choice = node_cast<IEnumeration>(&node)) {
        IEnumEntry* entry = choice->find_entry_by_name(text);
        if (entry == nullptr) {
            std::string known;
            for (const IEnumEntry* item : choice->get_entries()) {
                known += fmt::format("{}{}", known.empty() ? "" : ", ", entry_name(*item));
            }
            throw std::runtime_error(
                fmt::format("Feature '{}' has no entry '{}'. It has: {}.", node.get_name(), text, known));
        }
        error = choice->set_selected_entry(entry, 0);
    } else {
        throw std::runtime_error(fmt::format("A {} cannot be set ('{}').", kind_text(node), node.get_name()));
    }
    if (error) throw feature_error(node, "set", error);
}

namespace {

GenICam::ICommand& require_command(GenICam::INode& node) {
    auto* command = GenICam::node_cast<GenICam::ICommand>(&node);
    if (command != nullptr) return *command;
    throw std::runtime_error(fmt::format("Feature '{}' is a {}, not a command.", node.get_name(), kind_text(node)));
}

} // namespace

void execute(GenICam::INode& node) {
    if (const std::error_code error = require_command(node).execute(0)) throw feature_error(node, "execute", error);
}

void wait_until_done(GenICam::INode& node, std::chrono::milliseconds longest) {
    const GenICam::ICommand& command = require_command(node);
    constexpr std::chrono::milliseconds pause{10};
    const auto deadline = std::chrono::steady_clock::now() + longest;
    for (;;) {
        // Past the cache, which holds what was just written.
        const auto done = command.is_done(GenICam::access_flags::bypass_cache);
        if (!done) throw feature_error(node, "wait for", done.error());
        if (*done) return;
        if (std::chrono::steady_clock::now() >= deadline) {
            throw std::runtime_error(
                fmt::format("Command '{}' was sent and is not done after {} ms; --wait gives it more time.",
                            node.get_name(), longest.count()));
        }
        std::this_thread::sleep_for(pause);
    }
}

GenICam::INode& require_node(const node_map& nodes, const std::string& name) {
    GenICam::INode* node = nodes.document().find_node(name);
    if (node == nullptr) throw std::runtime_error(fmt::format("There is no feature '{}'.", name));
    return *node;
}

int64_t require_integer(const node_map& nodes, const std::string& name) {
    auto* integer = GenICam::node_cast<GenICam::IInteger>(&require_node(nodes, name));
    if (integer == nullptr) throw std::runtime_error(fmt::format("Feature '{}' is no integer.", name));
    const auto value = integer->get_val(GenICam::access_flags::bypass_cache);
    if (!value) throw feature_error(*integer, "read", value.error());
    return *value;
}

} // namespace cli
