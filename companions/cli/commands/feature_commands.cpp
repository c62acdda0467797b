#include "feature_commands.h"

#include "../consumer/nearest_names.h"
#include "../consumer/setting.h"
#include "../consumer/settings_file.h"
#include "../output/output.h"
#include "../posix/interruption.h"

#include <options/numbers.h>

#include <array>
#include <map>
#include <memory>

namespace cli {

namespace {

using namespace GenICam;

struct filter {
    Visibility_t level = Visibility_t::Invisible; // the highest shown
    std::string words;                            // in small letters; empty: any

    [[nodiscard]] bool takes(const INode& node) const {
        if (node.getVisibility() > level) return false;
        if (words.empty()) return true;
        for (const std::string_view text :
             {node.get_name(), node.get_display_name(), node.get_tool_tip(), node.get_description()}) {
            if (lower_case(text).find(words) != std::string::npos) return true;
        }
        return false;
    }
};

// A value on a line for a person; a long one is cut, which it says.
std::string shown(const nlohmann::json& value) {
    constexpr size_t most = 128;
    const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
    return text.size() <= most ? text : fmt::format("{}... ({} characters)", text.substr(0, most), text.size());
}

std::string line_of(INode& node) {
    const nlohmann::json item = describe(node);
    std::string line = fmt::format("{} ({} {})", node.get_name(), kind_text(node), item["access"].get<std::string>());
    std::string error;
    // Text of the value, not of its JSON: numbers in the form that the camera's maker chose.
    if (item.contains("value")) line += " = " + shown(value_text(node, error));
    if (item.contains("error")) line += " ! " + item["error"].get<std::string>();
    if (item.contains("unit")) line += " " + item["unit"].get<std::string>();
    return line;
}

// The lines, for whoever prints them. Categories without a line below them are left out. Documents put categories into
// each other: one that was shown before is told by its name, and within itself not at all.
class tree {
public:
    explicit tree(const filter& of) : chosen(of) {}

    std::string lines_of(INode& node, size_t depth) {
        const std::string indent(depth * 2, ' ');
        auto* category = node_cast<ICategory>(&node);
        if (category == nullptr) return chosen.takes(node) ? fmt::format("{}{}\n", indent, line_of(node)) : "";
        if (depth > deepest) return "";
        const auto [place, is_new] = has_lines.try_emplace(&node, false);
        if (!is_new) return place->second ? fmt::format("{}[{}]\n", indent, node.get_name()) : "";
        std::string below;
        for (INode* feature : category->get_features()) below += lines_of(*feature, depth + 1);
        if (below.empty()) return "";
        has_lines[&node] = true;
        return fmt::format("{}[{}]\n{}", indent, node.get_name(), below);
    }

private:
    static constexpr size_t deepest = 32;

    const filter& chosen;
    std::map<const INode*, bool> has_lines; // of the categories entered; false while they are
};

int features(const common_options& options, const filter& chosen) {
    const open_module opened = open_named_module(options, reading_access(options));
    ICategory* root = opened.nodes->document().get_root_category();
    if (root == nullptr) throw std::runtime_error("The document has no category 'Root'.");
    if (options.json) {
        nlohmann::json all = nlohmann::json::array();
        for (INode* feature : root->get_all_features())
            if (chosen.takes(*feature)) all.push_back(describe(*feature));
        print_json({{"url", opened.nodes->url()}, {"features", all}});
        return 0;
    }
    const std::string lines = tree{chosen}.lines_of(*root, 0);
    if (lines.empty()) say("No feature is like this.\n");
    print("{}", lines);
    return 0;
}

int show_changed(const common_options& options, const std::string& path) {
    const auto saved = read_settings(path);
    const open_module opened = open_named_module(options, access_flags_of(options.access));
    const auto changes = compare_settings(*opened.nodes, saved);
    if (options.json) {
        nlohmann::json all = nlohmann::json::array();
        for (const auto& change : changes)
            all.push_back({{"name", change.what}, {"saved", change.saved}, {"value", change.now}});
        print_json({{"url", opened.nodes->url()}, {"changed", all}});
        return 0;
    }
    for (const auto& change : changes) print("{} = {}   (saved: {})\n", change.what, change.now, change.saved);
    if (changes.empty()) say("Everything is as in '{}'.\n", path);
    return 0;
}

int describe_feature(const common_options& options, const std::string& name) {
    const open_module opened = open_named_module(options, reading_access(options));
    INode& node = require_node(*opened.nodes, name);
    const nlohmann::json item = describe(node, true);
    if (options.json) {
        print_json(item);
        return 0;
    }
    print("{}\n", line_of(node));
    const auto line = [&](const char* title, const char* key) {
        if (!item.contains(key)) return;
        std::string text;
        if (item[key].is_array())
            for (const auto& each : item[key]) text += fmt::format("{}{}", text.empty() ? "" : ", ", shown(each));
        else
            text = shown(item[key]);
        print("  {:<12} {}\n", title, text);
    };
    for (const auto& [title, key] : {std::pair{"Name", "display_name"},
                                     {"Tool tip", "tool_tip"},
                                     {"Description", "description"},
                                     {"Level", "visibility"},
                                     {"Minimum", "min"},
                                     {"Maximum", "max"},
                                     {"Increment", "inc"},
                                     {"Unit", "unit"},
                                     {"Entries", "entries"},
                                     {"Selects", "selects"},
                                     {"Selected by", "selected_by"},
                                     {"Locked", "locked"},
                                     {"Features", "features"}}) {
        line(title, key);
    }
    return 0;
}

int get(const common_options& options, const std::vector<std::string>& names) {
    const open_module opened = open_named_module(options, reading_access(options));
    nlohmann::json values = nlohmann::json::object();
    std::string failed;
    for (const std::string& name : names) {
        INode& node = require_node(*opened.nodes, name);
        std::string error;
        values[name] = value_json(node, error);
        if (error.empty() && values[name].is_null())
            error = fmt::format("it is a {} and has no value.", kind_text(node));
        if (!error.empty())
            failed += fmt::format("{}Cannot read feature '{}': {}", failed.empty() ? "" : "\n", name, error);
        else if (!options.json)
            print("{}{}\n", names.size() > 1 ? name + " = " : "", value_text(node, error));
    }
    if (!failed.empty()) return report_failure(failure(cause::feature, failed), options.json, {{"features", values}});
    if (options.json) print_json({{"features", values}});
    return 0;
}

// "A=1 B=2 ...", or "A 1".
std::vector<setting> settings_of(const std::vector<std::string>& words) {
    if (words.size() == 2 && words[0].find('=') == std::string::npos) return {parse_setting(words[0] + '=' + words[1])};
    std::vector<setting> settings;
    settings.reserve(words.size());
    for (const std::string& word : words) settings.push_back(parse_setting(word));
    return settings;
}

int set(const common_options& options, const std::vector<std::string>& words) {
    const auto wanted = settings_of(words);
    const open_module opened = open_named_module(options, access_flags_of(options.access));
    nlohmann::json done = nlohmann::json::array();
    try {
        for (const setting& each : wanted) {
            const std::string now = apply(*opened.nodes, each);
            INode& node = require_node(*opened.nodes, each.name);
            std::string error;
            done.push_back({{"name", each.left_side()}, {"asked", each.value}, {"value", value_json(node, error)}});
            if (options.json) continue;
            const bool as_asked = now.empty() || is_same_value(node, each.value, now);
            print("{} = {}{}\n", each.left_side(), now, as_asked ? "" : fmt::format("   (asked for {})", each.value));
        }
    } catch (const failure& failed) {
        return report_failure(failed, options.json, {{"set", done}});
    }
    if (options.json) print_json({{"set", done}});
    return 0;
}

int exec(const common_options& options, const std::string& name, std::chrono::milliseconds longest) {
    watch_for_interruption();
    const open_module opened = open_named_module(options, access_flags_of(options.access));
    INode& command = require_node(*opened.nodes, name);
    execute(command);
    wait_until_done(command, longest);
    if (options.json) print_json({{"name", name}, {"executed", true}, {"done", true}});
    return 0;
}

} // namespace

void add_feature_commands(command_line& line) {
    struct words {
        filter chosen;
        std::string level = "invisible", search, changed, name;
        std::vector<std::string> names;
        int64_t longest_ms = 30'000; // a command may wait for something mechanical
    };
    auto given = std::make_shared<words>();
    common_options& options = line.options;

    auto& features_command =
        line.add("features", "All features with their values", reach::opened_device, [&options, given] {
            if (!given->changed.empty()) return show_changed(options, given->changed);
            constexpr std::array levels{"beginner", "expert", "guru", "invisible"};
            const auto level = std::ranges::find(levels, given->level) - levels.begin();
            return features(options, {static_cast<Visibility_t>(level), lower_case(given->search)});
        });
    line.add_module(features_command);
    features_command.add_option("--level", given->level, "Up to beginner, expert, guru or invisible")
        ->check(CLI::IsMember({"beginner", "expert", "guru", "invisible"}))
        ->capture_default_str();
    features_command.add_option("--search", given->search, "Those with this text in name or description");
    features_command.add_option("--changed", given->changed,
                                "Those whose values differ from this file of 'orv-gentl save'");
    features_command.footer("Example: orv-gentl features --level expert --search gain");

    auto& describe_command =
        line.add("describe", "One feature with limits, entries, selectors and its maker's words", reach::opened_device,
                 [&options, given] { return describe_feature(options, given->name); });
    line.add_module(describe_command);
    describe_command.add_option("feature", given->name, "Feature name")->required();
    describe_command.footer("Example: orv-gentl describe ExposureTime");

    auto& get_command = line.add("get", "Values of features", reach::opened_device,
                                 [&options, given] { return get(options, given->names); });
    line.add_module(get_command);
    get_command.add_option("feature", given->names, "Feature names")->required();
    get_command.footer("Example: orv-gentl get Width Height");

    auto& set_command = line.add("set", "Sets features, in the order given, and reads them back", reach::opened_device,
                                 [&options, given] { return set(options, given->names); });
    line.add_module(set_command);
    set_command.add_option("setting", given->names, "NAME=VALUE or NAME[SELECTOR=CHOICE]=VALUE; or one NAME VALUE")
        ->required();
    set_command.footer("Example: orv-gentl set GainAuto=Off 'Gain[GainSelector=All]=3.5'");

    auto& exec_command =
        line.add("exec", "Executes a command and waits until it is done", reach::opened_device, [&options, given] {
            return exec(options, given->name, std::chrono::milliseconds{given->longest_ms});
        });
    line.add_module(exec_command);
    exec_command.add_option("command", given->name, "Feature name")->required();
    exec_command.add_option("--wait", given->longest_ms, "Longest wait for the command to be done, milliseconds")
        ->check(option_checks::whole_number(0, 1'000'000'000))
        ->capture_default_str();
    exec_command.footer("Example: orv-gentl exec UserSetLoad");
}

} // namespace cli
