#include "software_trigger.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>

namespace cli {

using namespace GenICam;

namespace {

IEnumeration& require_choice(const node_map& nodes, const char* name) {
    auto* const choice = node_cast<IEnumeration>(nodes.document().find_node(name));
    if (choice == nullptr || !choice->is_implemented() || !choice->is_available())
        throw failure(cause::feature,
                      fmt::format("The camera has no software trigger: there is no feature '{}'.", name));
    return *choice;
}

void require_entry(const IEnumeration& choice, const std::string& entry) {
    const auto entries = entries_of(choice);
    if (std::ranges::find(entries, entry) != entries.end()) return;
    throw failure(cause::feature, fmt::format("The camera has no software trigger: '{}' can be {}, and not '{}'.",
                                              choice.get_name(), fmt::join(entries, ", "), entry));
}

} // namespace

software_trigger::software_trigger(const gentl_library& lib, void* port, double rate_hz)
    : nodes(lib, port), rate(rate_hz) {
    try {
        choose();
    } catch (...) {
        try {
            put_back();
        } catch (const failure&) {
            // The first reason is the one to tell.
        }
        throw;
    }
}

software_trigger::~software_trigger() { stop(); }

void software_trigger::choose() {
    INode* const command = nodes.document().find_node("TriggerSoftware");
    if (node_cast<ICommand>(command) == nullptr || !command->is_implemented())
        throw failure(cause::feature, "The camera has no software trigger: there is no command 'TriggerSoftware'.");
    require_entry(require_choice(nodes, "TriggerMode"), "On");
    // One frame for each command; a camera without the choice has one kind of trigger.
    if (auto* const selector = node_cast<IEnumeration>(nodes.document().find_node("TriggerSelector"))) {
        require_entry(*selector, "FrameStart");
        change("TriggerSelector", "FrameStart");
    }
    require_entry(require_choice(nodes, "TriggerSource"), "Software");
    change("TriggerMode", "On");
    change("TriggerSource", "Software");
}

void software_trigger::change(const std::string& feature, const std::string& value) {
    INode& node = require_node(nodes, feature);
    std::string error;
    const std::string old = value_text(node, error, access_flags::bypass_cache);
    if (old == value) return;
    set_from_text(node, value);
    if (!old.empty()) before.emplace_back(feature, old);
}

void software_trigger::put_back() {
    // The selector last: the others are those of the trigger that it chose.
    while (!before.empty()) {
        const auto [feature, value] = before.back();
        before.pop_back();
        set_from_text(require_node(nodes, feature), value);
    }
}

void software_trigger::start() {
    thread = std::jthread{[this](const std::stop_token& end) {
        try {
            send(end);
        } catch (...) {
            const std::lock_guard guard{problem_mutex};
            problem = std::current_exception();
        }
    }};
}

void software_trigger::stop() {
    if (!thread.joinable()) return;
    thread.request_stop();
    thread.join();
}

void software_trigger::send(const std::stop_token& end) {
    using clock = std::chrono::steady_clock;
    const auto period = std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>{1 / rate});
    INode& command = require_node(nodes, "TriggerSoftware");
    std::mutex waiting;
    std::condition_variable_any ended;
    auto due = clock::now();
    while (!end.stop_requested()) {
        execute(command);
        ++sent_count;
        due += period;
        const auto now = clock::now();
        if (due < now) {
            const auto missed = (now - due) / period + 1;
            late_count += static_cast<uint64_t>(missed);
            due += missed * period;
        }
        std::unique_lock held{waiting};
        ended.wait_until(held, end, due, [] { return false; });
    }
}

void software_trigger::throw_if_failed() const {
    const std::lock_guard guard{problem_mutex};
    if (problem) std::rethrow_exception(problem);
}

} // namespace cli
