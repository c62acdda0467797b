// What a document shall do, step by step.
//   "N = 5"               reads N and finds 5            "N := 5"               writes it
//   "N ! timeout"         reads N and fails              "N := 5 ! node_locked" writes it and fails
//   "N/bypass_cache = 5"  any step with flags            "N.max = 9"            a property instead of the value
//   "[0x10] := 12 ab"     puts bytes into the device     "[0x10] = 12 ab"       finds them there
//   "reads = 2"           of the device since it was last asked; "writes" likewise
//   "breaks", "breaks at 4", "mends": the device.                   "says 1 N. ..."        the one message since the
//   last step like it
// Numbers in any form, "lowest" and "highest" for an integer type's ends; an enumeration's value is its entry's name, a
// command is written "run" and reads whether it is done.
#pragma once

#include "support.h"

#include <cstdlib>

namespace GenICam::testing {

class script {
public:
    explicit script(document& on) : sut(on) {}

    void run(const std::vector<std::string>& steps) {
        for (const std::string& step : steps) EXPECT_EQ(outcome_of(step), "") << step;
    }

    // A value by its text, as in a step.
    static std::error_code write(INode& node, const std::string& value, unsigned flags) {
        if (auto* number = node_cast<IInteger>(&node)) return number->set_val(integer(value), flags);
        if (auto* real = node_cast<IFloat>(&node)) return real->set_val(std::strtod(value.c_str(), nullptr), flags);
        if (auto* boolean = node_cast<IBoolean>(&node)) return boolean->set_val(value == "true", flags);
        if (auto* command = node_cast<ICommand>(&node)) return command->execute(flags);
        if (auto* text = node_cast<IString>(&node)) return text->set_val(value, flags);
        auto* enumeration = node_cast<IEnumeration>(&node);
        if (enumeration == nullptr) throw std::runtime_error("cannot be written");
        return enumeration->set_selected_entry(enumeration->find_entry_by_name(value), flags);
    }

private:
    static constexpr std::pair<const char*, genicam_errc> errors[] = {
        {"timeout", timeout},
        {"not_implemented", not_implemented},
        {"access_denied", access_denied},
        {"not_in_cache", not_in_cache},
        {"index_out_of_range", index_out_of_range},
        {"bad_formula", bad_formula},
        {"invalid_document", invalid_document},
        {"value_out_of_range", value_out_of_range},
        {"node_not_implemented", node_not_implemented},
        {"node_locked", node_locked},
        {"node_not_available", node_not_available},
        {"not_in_value_set", not_in_value_set},
        {"not_on_increment", not_on_increment},
        {"no_such_entry", no_such_entry},
    };
    static constexpr std::pair<const char*, unsigned> all_flags[] = {
        {"cache_only", cache_only},           {"bypass_cache", bypass_cache}, {"no_range_check", no_range_check},
        {"no_access_check", no_access_check}, {"raw_string", raw_string},     {"ignore_lock", ignore_lock},
    };
    template <class Rows>
    [[nodiscard]] static auto named(const Rows& rows, const std::string& name) {
        for (const auto& [text, value] : rows) {
            if (name == text) return value;
        }
        throw std::runtime_error("no such name: " + name);
    }

    // Empty, or what came instead.
    [[nodiscard]] std::string outcome_of(std::string step) {
        if (step.starts_with("breaks") || step == "mends") {
            sut.device.broken = step == "breaks";
            sut.device.broken_at.reset();
            if (step.starts_with("breaks at ")) sut.device.broken_at = integer(step.substr(10));
            return "";
        }
        if (step.starts_with("says ")) {
            const auto lines = std::exchange(log.lines, {});
            return lines == std::vector{step.substr(5)} ? "" : ::testing::PrintToString(lines);
        }
        std::error_code wanted;
        if (const auto at = step.find(" ! "); at != step.npos) {
            wanted = named(errors, step.substr(at + 3));
            step.resize(at);
        }
        const auto at = std::min(step.find(" := "), step.find(" = "));
        const bool writes = at != step.npos && step[at + 1] == ':';
        const std::string target = step.substr(0, at);
        const std::string value = at == step.npos ? "" : step.substr(at + (writes ? 4 : 3));
        if (target.starts_with('[')) return bytes(std::strtoll(target.c_str() + 1, nullptr, 0), value, writes);
        if (target == "reads") return same(std::to_string(std::exchange(sut.device.reads, 0)), value);
        if (target == "writes") return same(std::to_string(std::exchange(sut.device.writes, 0)), value);

        const auto slash = std::min(target.find('/'), target.size());
        const auto dot = std::min(target.find('.'), slash);
        const std::string property = target.substr(dot, slash - dot);
        unsigned flags = 0;
        for (std::size_t from = slash; from < target.size();) {
            const auto next = std::min(target.find('/', from + 1), target.size());
            flags |= named(all_flags, target.substr(from + 1, next - from - 1));
            from = next;
        }
        INode* const node = sut.doc->find_node(target.substr(0, dot));
        if (node == nullptr) throw std::runtime_error("no such node: " + target);
        std::error_code error;
        std::string difference;
        if (writes) {
            error = write(*node, value, flags);
        } else {
            const auto found = read(*node, property, value, flags);
            if (found) {
                difference = *found;
            } else {
                error = found.error();
            }
        }
        if (error != wanted) return error ? error.message() : "success";
        return difference;
    }

    [[nodiscard]] std::string bytes(int64_t address, const std::string& hex, bool put) {
        std::vector<int> wanted;
        for (std::size_t i = 0; i + 1 < hex.size(); i += 3) wanted.push_back(std::stoi(hex.substr(i, 2), nullptr, 16));
        if (put) {
            sut.device.put(address, wanted);
            return "";
        }
        const auto found = sut.device.bytes(address, wanted.size());
        return found == wanted ? "" : ::testing::PrintToString(found);
    }

    [[nodiscard]] static std::string same(const std::string& found, const std::string& wanted) {
        return found == wanted ? "" : "'" + found + "'";
    }
    [[nodiscard]] static int64_t integer(const std::string& text) {
        if (text == "lowest") return std::numeric_limits<int64_t>::min();
        if (text == "highest") return std::numeric_limits<int64_t>::max();
        return static_cast<int64_t>(text.starts_with('-')
                                        ? static_cast<uint64_t>(std::strtoll(text.c_str(), nullptr, 0))
                                        : std::strtoull(text.c_str(), nullptr, 0));
    }

    // What was found in place of the wanted; empty for the same.
    static std::string difference_of(int64_t found, const std::string& wanted) {
        return found == integer(wanted) ? "" : std::to_string(found);
    }
    static std::string difference_of(uint64_t found, const std::string& wanted) {
        return difference_of(static_cast<int64_t>(found), wanted);
    }
    static std::string difference_of(double found, const std::string& wanted) {
        return found == std::strtod(wanted.c_str(), nullptr) ? "" : ::testing::PrintToString(found);
    }
    static std::string difference_of(bool found, const std::string& wanted) {
        return same(found ? "true" : "false", wanted);
    }
    static std::string difference_of(const std::string& found, const std::string& wanted) {
        return same(found, wanted);
    }
    template <class T>
    static std::string difference_of(const std::vector<T>& found, const std::string& wanted) {
        std::vector<T> list;
        std::istringstream in{wanted};
        for (T value; in >> value;) list.push_back(value);
        return found == list ? "" : ::testing::PrintToString(found);
    }

    using outcome = std::expected<std::string, std::error_code>;
    static outcome compared(const auto& found, const std::string& wanted) {
        if (!found) return std::unexpected(found.error());
        return difference_of(*found, wanted);
    }

    static outcome read(INode& node, const std::string& property, const std::string& wanted, unsigned flags) {
        if (property == ".mode") {
            constexpr std::pair<const char*, Access_t> modes[] = {
                {"RO", Access_t::RO}, {"WO", Access_t::WO}, {"RW", Access_t::RW}};
            return node.get_access_mode() == named(modes, wanted) ? "" : "another mode";
        }
        if (property == ".available") return difference_of(node.is_available(), wanted);
        if (property == ".sources") {
            std::vector<INode*> sources;
            node.get_source_nodes(sources);
            return same(names_of(sources), wanted);
        }
        if (property == ".fault") return same(std::string{node.get_fault()}, wanted);
        if (auto* integer = node_cast<IInteger>(&node)) return read_number(*integer, property, wanted, flags);
        if (auto* real = node_cast<IFloat>(&node)) return read_number(*real, property, wanted, flags);
        const bool has_property = property == "" || property == ".max_length" || property == ".value";
        if (!has_property) throw std::runtime_error("no such property: " + property);
        if (auto* boolean = node_cast<IBoolean>(&node)) return compared(boolean->get_val(flags), wanted);
        if (auto* command = node_cast<ICommand>(&node)) return compared(command->is_done(flags), wanted);
        if (auto* text = node_cast<IString>(&node)) {
            if (property == ".max_length") return compared(text->get_max_length(flags), wanted);
            return compared(text->get_val(flags), wanted);
        }
        auto* enumeration = node_cast<IEnumeration>(&node);
        if (enumeration == nullptr) throw std::runtime_error("cannot be read");
        if (property == ".value") return compared(enumeration->get_val(flags), wanted);
        const auto entry = enumeration->get_selected_entry(flags);
        if (!entry) return std::unexpected(entry.error());
        return same(std::string{(*entry)->get_name()}, wanted);
    }
    static outcome read_number(const auto& node, const std::string& property, const std::string& wanted,
                               unsigned flags) {
        if (property == ".min") return compared(node.get_min(flags), wanted);
        if (property == ".max") return compared(node.get_max(flags), wanted);
        if (property == ".inc") return compared(node.get_inc(flags), wanted);
        if (property == ".set") return compared(node.get_valid_value_set(flags), wanted);
        if (property == ".unit") return same(std::string{node.get_unit()}, wanted);
        if (property != "") throw std::runtime_error("no such property: " + property);
        return compared(node.get_val(flags), wanted);
    }

    document& sut;
    log_capture log;
};

// A document and what it shall do. The tables stand with their subjects.
struct script_case {
    const char* name;
    std::string nodes;
    std::vector<std::string> steps;
};

class Document : public ::testing::TestWithParam<script_case> {};

} // namespace GenICam::testing
