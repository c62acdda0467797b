// Features as people and machines read and write them: one text and one JSON value for each kind of node.
#pragma once

#include "../failure/failure.h"

#include <GenICam/IGenICamDoc.h>
#include <gentl/GenTL.h>

#include <chrono>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace cli {

// What the producer said when it last refused this thread an access to a port. The functions below clear it first and
// add it to what they throw, so that no reason stays behind.
struct port_refusal {
    const char* call = nullptr; // null: none
    GenTL::GC_ERROR code = 0;
    std::string text;
};
[[nodiscard]] port_refusal& last_port_refusal() noexcept;

[[nodiscard]] const char* kind_text(const GenICam::INode& node);
// "RW", "RO", "WO", "NA" or "NI".
[[nodiscard]] std::string access_text(const GenICam::INode& node);
[[nodiscard]] const char* visibility_text(const GenICam::INode& node);

// The value as text; nothing for categories, commands and ports. The error's text in `error` when it cannot be read;
// of a device that has gone there is nothing more to read: throws failure(cause::lost).
[[nodiscard]] std::string value_text(GenICam::INode& node, std::string& error, unsigned flags = 0);
// The same as a number, a boolean or a text. Addresses are texts, and what no JSON number holds (infinity) too.
[[nodiscard]] nlohmann::json value_json(GenICam::INode& node, std::string& error, unsigned flags = 0);
// Everything that the node can tell; throws like these. `in_full` adds what only a person reads: names, descriptions,
// what selects it.
[[nodiscard]] nlohmann::json describe(GenICam::INode& node, bool in_full = false);
// The entries that can be chosen now.
[[nodiscard]] std::vector<std::string> entries_of(const GenICam::IEnumeration& choice);
[[nodiscard]] std::string entry_name(const GenICam::IEnumEntry& entry);

// A locked feature is refused before it is written. Takes a number, "true"/"false", an entry's name or a text, by the
// node's kind, and an address where the feature is one. Throws failure(cause::feature) with range, entries or lock.
void set_from_text(GenICam::INode& node, const std::string& text);
// Whether a value that was read means what was asked for: numbers by their value, texts by their letters.
[[nodiscard]] bool is_same_value(const GenICam::INode& node, const std::string& asked, const std::string& read);
// Sends the command and does not wait: some, as AcquisitionStart, are done only when others end them.
void execute(GenICam::INode& node);
// Until the command is done; throws failure(cause::timeout) when it is not after the time given, and when interrupted.
// A command that cannot be read is done.
void wait_until_done(GenICam::INode& node, std::chrono::milliseconds longest);

// Throw failure(cause::feature) naming the feature, and those whose names are near.
[[nodiscard]] GenICam::INode& require_node(const GenICam::IGenICamDoc& document, const std::string& name);
[[nodiscard]] int64_t integer_of(const GenICam::INode& node); // past the cache

} // namespace cli
