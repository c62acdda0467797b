// orv-gentl: a GenTL consumer for people. Speaks only GenTL to whatever producer it loads.
#include "doctor.h"
#include "document_command.h"
#include "grab.h"
#include "network_commands.h"
#include "picture_converter.h"
#include "session.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>

namespace {

using namespace cli;

int list(const common_options& options) {
    const found_devices found = find_devices(options);
    if (options.json) {
        nlohmann::json object{{"interfaces", nlohmann::json::array()}, {"devices", nlohmann::json::array()}};
        for (const auto& entry : found.interfaces) {
            object["interfaces"].push_back({{"id", entry.id}, {"display_name", entry.display_name}});
        }
        for (const auto& [device, interface] : found.devices) object["devices"].push_back(to_json(device));
        print_json(object);
        return 0;
    }
    for (const auto& entry : found.interfaces) {
        fmt::print("{}  ({})\n", entry.id, entry.display_name);
        for (const auto& [device, interface] : found.devices) {
            if (device.interface_id != entry.id) continue;
            fmt::print("  {:<40} {} {} serial={} name='{}' {}\n", device.id, device.vendor, device.model, device.serial,
                       device.user_name, access_status_text(device.access_status));
        }
    }
    if (found.devices.empty()) fmt::print(stderr, "No device was found. 'orv-gentl doctor' tells why.\n");
    return 0;
}

int info(const common_options& options) {
    const found_devices found = find_devices(options);
    const gentl_library& lib = *found.lib;
    nlohmann::json object;
    const auto library_text = [&](const char* key, GenTL::TL_INFO_CMD command) {
        object["library"][key] = ask_text(lib, "GCGetInfo", [&](GenTL::INFO_DATATYPE* type, void* text, size_t* size) {
            return lib.GCGetInfo(command, type, text, size);
        });
    };
    library_text("id", GenTL::TL_INFO_ID);
    library_text("vendor", GenTL::TL_INFO_VENDOR);
    library_text("model", GenTL::TL_INFO_MODEL);
    library_text("version", GenTL::TL_INFO_VERSION);
    library_text("tl_type", GenTL::TL_INFO_TLTYPE);
    library_text("path", GenTL::TL_INFO_PATHNAME);
    if (!found.devices.empty()) object["device"] = to_json(choose_device(found, options).first);
    if (options.json) {
        print_json(object);
    } else {
        for (const auto& [group, values] : object.items()) {
            for (const auto& [key, value] : values.items()) {
                fmt::print("{}.{} = {}\n", group, key, value.get<std::string>());
            }
        }
    }
    return 0;
}

void print_tree(GenICam::INode& node, int depth) {
    const std::string indent(static_cast<size_t>(depth) * 2, ' ');
    if (auto* category = GenICam::node_cast<GenICam::ICategory>(&node)) {
        fmt::print("{}[{}]\n", indent, node.get_name());
        if (depth > 32) return;
        for (GenICam::INode* feature : category->get_features()) print_tree(*feature, depth + 1);
        return;
    }
    const nlohmann::json item = describe(node);
    std::string value;
    if (item.contains("value")) value = " = " + item["value"].get<std::string>();
    if (item.contains("error")) value = " ! " + item["error"].get<std::string>();
    if (item.contains("unit")) value += " " + item["unit"].get<std::string>();
    fmt::print("{}{} ({} {}){}\n", indent, node.get_name(), kind_text(node), item["access"].get<std::string>(), value);
}

int features(const common_options& options) {
    const open_module opened = open_named_module(options, access_flags_of(options.access));
    GenICam::ICategory* root = opened.nodes->document().get_root_category();
    if (root == nullptr) throw std::runtime_error("The document has no category 'Root'.");
    if (options.json) {
        nlohmann::json all = nlohmann::json::array();
        for (GenICam::INode* feature : root->get_all_features()) all.push_back(describe(*feature));
        print_json({{"url", opened.nodes->url()}, {"features", all}});
    } else {
        print_tree(*root, 0);
    }
    return 0;
}

int get(const common_options& options, const std::vector<std::string>& names) {
    const open_module opened = open_named_module(options, access_flags_of(options.access));
    nlohmann::json object;
    int failures = 0;
    for (const std::string& name : names) {
        GenICam::INode& node = require_node(*opened.nodes, name);
        std::string error;
        const std::string value = value_text(node, error);
        if (!error.empty()) {
            ++failures;
            fmt::print(stderr, "Cannot read feature '{}': {}\n", name, error);
            object[name] = nullptr;
        } else if (options.json) {
            object[name] = value;
        } else {
            fmt::print("{}{}\n", names.size() > 1 ? name + " = " : "", value);
        }
    }
    if (options.json) print_json(object);
    return failures == 0 ? 0 : 1;
}

int set(const common_options& options, const std::string& name, const std::string& value) {
    const open_module opened = open_named_module(options, access_flags_of(options.access));
    GenICam::INode& node = require_node(*opened.nodes, name);
    set_from_text(node, value);
    if (options.json) {
        std::string error;
        print_json({{"name", name}, {"value", value_text(node, error)}});
    }
    return 0;
}

int exec(const common_options& options, const std::string& name, std::chrono::milliseconds longest) {
    const open_module opened = open_named_module(options, access_flags_of(options.access));
    GenICam::INode& command = require_node(*opened.nodes, name);
    execute(command);
    wait_until_done(command, longest);
    if (options.json) print_json({{"name", name}, {"executed", true}, {"done", true}});
    return 0;
}

void add_common(CLI::App& command, common_options& options, bool with_device) {
    command.add_flag("--json", options.json, "One JSON object on the standard output");
    command.add_option("--cti", options.cti, "The producer to load (default: beside this program)");
    command.add_option("--interface", options.interface, "Only this interface id");
    command.add_option("--timeout", options.timeout_ms, "Time for the search, milliseconds")->capture_default_str();
    if (!with_device) return;
    command.add_option("--device", options.device, "Id, serial number, user name or a part of the id");
    command.add_option("--access", options.access, "readonly, control or exclusive")
        ->check(CLI::IsMember({"readonly", "control", "exclusive"}))
        ->capture_default_str();
}

void add_module(CLI::App& command, common_options& options) {
    command.add_option("--module", options.module, "Whose features: remote, device, stream, interface or system")
        ->check(CLI::IsMember({"remote", "device", "stream", "interface", "system"}))
        ->capture_default_str();
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "A GenTL consumer: finds cameras, gives them addresses, shows and sets their features, grabs pictures."};
    app.require_subcommand(1);
    common_options common;
    int result = 0;

    auto* list_command = app.add_subcommand("list", "Interfaces and devices");
    add_common(*list_command, common, false);
    list_command->callback([&] { result = list(common); });

    auto* info_command = app.add_subcommand("info", "The library, and a device");
    add_common(*info_command, common, true);
    info_command->callback([&] { result = info(common); });

    auto* features_command = app.add_subcommand("features", "All features with their values");
    add_common(*features_command, common, true);
    add_module(*features_command, common);
    features_command->callback([&] { result = features(common); });

    std::vector<std::string> names;
    auto* get_command = app.add_subcommand("get", "Values of features");
    add_common(*get_command, common, true);
    add_module(*get_command, common);
    get_command->add_option("feature", names, "Feature names")->required();
    get_command->callback([&] { result = get(common, names); });

    std::string name;
    std::string value;
    auto* set_command = app.add_subcommand("set", "Sets a feature");
    add_common(*set_command, common, true);
    add_module(*set_command, common);
    set_command->add_option("feature", name, "Feature name")->required();
    set_command->add_option("value", value, "Number, true or false, entry or text")->required();
    set_command->callback([&] { result = set(common, name, value); });

    auto* exec_command = app.add_subcommand("exec", "Executes a command");
    add_common(*exec_command, common, true);
    add_module(*exec_command, common);
    exec_command->add_option("command", name, "Feature name")->required();
    int64_t longest_ms = 30'000; // a command may wait for something mechanical
    exec_command->add_option("--wait", longest_ms, "Longest wait for the command to be done, milliseconds")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    exec_command->callback([&] { result = exec(common, name, std::chrono::milliseconds{longest_ms}); });

    grab_options grabbing;
    std::vector<std::string> settings;
    auto* grab_command = app.add_subcommand("grab", "Frames from a camera, to PNG or raw files");
    add_common(*grab_command, common, true);
    grab_command->add_option("--frames", grabbing.frames, "How many")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    grab_command->add_option("--buffers", grabbing.buffers, "Buffers to announce")->capture_default_str();
    grab_command->add_flag("--verify", grabbing.verify, "Compare every byte with the simulated camera's picture");
    grab_command->add_option("--output", grabbing.output, "Folder for pictures");
    grab_command->add_option("--save", grabbing.save, "Pictures to keep, spread over the run")->capture_default_str();
    grab_command->add_flag("--raw", grabbing.raw, "Raw files instead of PNG");
    grab_command->add_option(
        "--format", grabbing.format,
        "Format of the files, by its PFNC name: BGR8, RGB8, Mono8, Mono16, ... (default: the camera's)");
    grab_command->add_flag("--quiet", grabbing.quiet, "No progress");
    grab_command->add_flag("--chunks", grabbing.chunks, "Tell the chunks of the last frame (with --json)");
    grab_command->add_option("--frame-timeout", grabbing.frame_timeout_ms, "Longest wait for a frame, milliseconds")
        ->capture_default_str();
    grab_command->add_option("--set", settings, "FEATURE=VALUE before the start; may be repeated");
    grab_command->callback([&] {
        for (const std::string& setting : settings) {
            const size_t equals = setting.find('=');
            if (equals == setting.npos) throw CLI::ValidationError("--set", "expected FEATURE=VALUE, got " + setting);
            grabbing.set[setting.substr(0, equals)] = setting.substr(equals + 1);
        }
        result = grab(common, grabbing);
    });

    convert_options converting;
    auto* convert_command = app.add_subcommand("convert", "Converts a raw picture to another pixel format");
    convert_command->add_option("file", converting.file, "Raw file, lines without padding")->required();
    convert_command->add_option("--from", converting.from, "Format of the file: PFNC name or four characters")
        ->required();
    convert_command->add_option("--width", converting.width, "Pixels")->required()->check(CLI::PositiveNumber);
    convert_command->add_option("--height", converting.height, "Lines")->required()->check(CLI::PositiveNumber);
    convert_command->add_option("--to", converting.to, "Format wanted")->required();
    convert_command->add_option("-o,--output", converting.output, "File to write (default: named after the format)");
    convert_command->callback([&] { result = convert_file(converting); });

    document_options document;
    auto* xml_command = app.add_subcommand("xml", "Shows a GenICam document without a device");
    xml_command->add_option("file", document.file, "Document, zipped or not")->required();
    xml_command->add_option("--memory", document.memory,
                            "File with the bytes of the port 'Device' from address 0 (default: zeros everywhere)");
    xml_command->add_flag("--json", common.json, "One JSON object on the standard output");
    xml_command->add_flag("--time", document.time, "Load time and nodes per second");
    xml_command->callback([&] {
        document.json = common.json;
        result = show_document(document);
    });

    add_network_commands(app, common, result,
                         [&](CLI::App& command, bool with_device) { add_common(command, common, with_device); });

    auto* doctor_command = app.add_subcommand("doctor", "What is wrong, and what mends it");
    add_common(*doctor_command, common, false);
    doctor_command->callback([&] { result = doctor(common); });

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const call_failed& failure) {
        if (common.json) {
            print_json({{"error", {{"call", failure.call}, {"code", failure.code}, {"text", failure.reason}}}});
        }
        fmt::print(stderr, "{}\n", failure.what());
        return 2;
    } catch (const std::exception& failure) {
        if (common.json) print_json({{"error", {{"text", failure.what()}}}});
        fmt::print(stderr, "{}\n", failure.what());
        return 2;
    }
    return result;
}
