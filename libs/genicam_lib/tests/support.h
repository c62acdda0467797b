// A document in a test: text in, values out, messages and device traffic counted.
#pragma once

#include "notation.h"

#include <GenICam/IGenICamDoc.h>
#include <support/document_log_capture.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace GenICam::testing {

using enum genicam_errc;
using namespace access_flags;

// A device: bytes at addresses, with counters. Unwritten bytes read 0.
class counting_device final : public IDevicePort {
public:
    [[nodiscard]] result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        ++reads;
        if (broken || address == broken_at) return fail(timeout);
        for (std::size_t i = 0; i < data.size(); ++i) {
            const auto found = memory.find(address + static_cast<int64_t>(i));
            data[i] = found != memory.end() ? found->second : unwritten(address + static_cast<int64_t>(i));
        }
        if (const auto work = std::exchange(after_read, nullptr)) work();
        return data.size();
    }
    [[nodiscard]] std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        ++writes;
        if (broken) return timeout;
        for (std::size_t i = 0; i < data.size(); ++i) memory[address + static_cast<int64_t>(i)] = data[i];
        return {};
    }
    // Bytes by hand: put(0x100, {0x12, 0x34}).
    void put(int64_t address, std::vector<int> bytes) {
        for (const int byte : bytes) memory[address++] = static_cast<std::byte>(byte);
    }
    [[nodiscard]] std::vector<int> bytes(int64_t address, std::size_t count) const {
        std::vector<int> out;
        for (std::size_t i = 0; i < count; ++i, ++address) {
            const auto found = memory.find(address);
            out.push_back(found != memory.end() ? std::to_integer<int>(found->second) : 0);
        }
        return out;
    }

    std::map<int64_t, std::byte> memory;
    int reads = 0;
    int writes = 0;
    bool broken = false;
    std::optional<int64_t> broken_at;
    std::function<std::byte(int64_t)> unwritten = [](int64_t) { return std::byte{0}; };
    std::function<void()> after_read; // once, before the reader has the bytes
};

// A document around the given nodes, XML or the short notation, its port "Device" bound to a counting device.
class document {
public:
    explicit document(std::string nodes, uint16_t options = 0) {
        if (!nodes.starts_with('<')) nodes = notation::xml(nodes);
        doc = create_document("<R>" + nodes + "<Port Name='Device'/></R>", options);
        EXPECT_NE(doc, nullptr) << nodes;
        EXPECT_FALSE(doc->find<IPort>("Device")->bind(&device, 0));
    }

    template <class T>
    [[nodiscard]] T& node(std::string_view name) const {
        T* found = doc->find<T>(name);
        if (found == nullptr) throw std::runtime_error("no such node: " + std::string{name});
        return *found;
    }
    [[nodiscard]] IInteger& integer(std::string_view name) const { return node<IInteger>(name); }
    [[nodiscard]] IFloat& real(std::string_view name) const { return node<IFloat>(name); }

    counting_device device;
    std::unique_ptr<IGenICamDoc> doc;
};

[[nodiscard]] inline std::vector<INode*> nodes_of(IGenICamDoc& doc) {
    std::vector<INode*> nodes;
    doc.for_each_node([&](INode* node) { nodes.push_back(node); });
    return nodes;
}
// Between blanks.
[[nodiscard]] std::string names_of(const auto& nodes) {
    std::string names;
    for (const INode* node : nodes) names += (names.empty() ? "" : " ") + std::string{node->get_name()};
    return names;
}

MATCHER_P(Gives, expected, "") {
    if (!arg) {
        *result_listener << "fails with '" << arg.error().message() << "'";
        return false;
    }
    return *arg == expected;
}
MATCHER_P(Fails, code, "") {
    if (arg) {
        *result_listener << "succeeds";
        return false;
    }
    if (arg.error() != make_error_code(code)) *result_listener << "fails with '" << arg.error().message() << "'";
    return arg.error() == make_error_code(code);
}
MATCHER(Passes, "") {
    if (arg) *result_listener << "fails with '" << arg.message() << "'";
    return !arg;
}
MATCHER_P(Refuses, code, "") {
    *result_listener << (arg ? arg.message() : "succeeds");
    return arg == make_error_code(code);
}

// Reads whatever a node has to say.
inline void read_everything(INode& node) {
    (void)node.get_access_mode();
    (void)node.is_available();
    (void)node.is_locked();
    (void)node.getVisibility();
    std::vector<INode*> dependents;
    node.get_dependent_nodes(dependents);
    const auto number = [](auto& of) {
        (void)of.get_min(0);
        (void)of.get_max(0);
        (void)of.get_inc(0);
        (void)of.get_unit();
        (void)of.get_representation();
        (void)of.get_valid_value_set(0);
    };
    if (auto* integer = node_cast<IInteger>(&node)) number(*integer);
    if (auto* real = node_cast<IFloat>(&node)) number(*real);
    if (auto* command = node_cast<ICommand>(&node)) (void)command->is_done(0);
}

// The value as text, so that NaN equals itself; the error's otherwise. Empty for what has no value.
[[nodiscard]] inline std::string value_text(INode& node, unsigned flags) {
    const auto text = [](const auto& value) -> std::string {
        if (!value) return "! " + value.error().message();
        if constexpr (requires { std::to_string(*value); })
            return std::to_string(*value);
        else
            return *value;
    };
    if (auto* integer = node_cast<IInteger>(&node)) return text(integer->get_val(flags));
    if (auto* real = node_cast<IFloat>(&node)) return text(real->get_val(flags));
    if (auto* boolean = node_cast<IBoolean>(&node)) return text(boolean->get_val(flags));
    if (auto* enumeration = node_cast<IEnumeration>(&node)) return text(enumeration->get_val(flags));
    if (auto* words = node_cast<IString>(&node)) return text(words->get_val(flags));
    return {};
}

// Names the cases of a table by their member `name`.
struct case_name {
    template <class Info>
    std::string operator()(const Info& tested) const {
        return tested.param.name;
    }
};

} // namespace GenICam::testing
