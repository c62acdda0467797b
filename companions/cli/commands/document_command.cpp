#include "document_command.h"

#include "../consumer/node_map.h"
#include "../output/output.h"

#include <GenICam/zip.h>

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>

namespace cli {

namespace {

std::string read_file(const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error); // fails for what is no regular file
    std::ifstream file{path, std::ios::binary};
    std::string text(error ? 0 : size, '\0');
    if (error || !file.read(text.data(), static_cast<std::streamsize>(size))) {
        throw failure(cause::arguments, fmt::format("Cannot read '{}'{}{}.", path, error ? ": " : "", error.message()));
    }
    return text;
}

// A device that keeps what is written to it: of zeros over the whole address space, or of a file's bytes, beyond which
// it has no registers.
class memory_port final : public GenICam::IDevicePort {
public:
    explicit memory_port(std::optional<std::string> content) : file(std::move(content)) {}
    GenICam::result<size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        if (!holds(address, data.size())) return GenICam::fail(GenICam::genicam_errc::invalid_address);
        for (size_t i = 0; i < data.size(); ++i) {
            const auto at = static_cast<uint64_t>(address) + i;
            const auto found = written.find(at);
            data[i] = found != written.end() ? found->second
                      : file                 ? static_cast<std::byte>((*file)[at])
                                             : std::byte{0};
        }
        return data.size();
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        if (!holds(address, data.size())) return make_error_code(GenICam::genicam_errc::invalid_address);
        for (size_t i = 0; i < data.size(); ++i) written[static_cast<uint64_t>(address) + i] = data[i];
        return {};
    }

private:
    [[nodiscard]] bool holds(int64_t address, size_t size) const noexcept {
        const auto start = static_cast<uint64_t>(address);
        return !file || (start <= file->size() && size <= file->size() - start);
    }
    const std::optional<std::string> file;
    std::map<uint64_t, std::byte> written;
};

// What `describe` gives, on one line.
std::string line_of(const nlohmann::json& item) {
    std::string line =
        fmt::format("{:<44} {:<12} {:<3} {:<9}", item["name"].get_ref<const std::string&>(),
                    item["kind"].get_ref<const std::string&>(), item["access"].get_ref<const std::string&>(),
                    item["visibility"].get_ref<const std::string&>());
    if (item.contains("value")) line += " " + json_text(item["value"]);
    if (item.contains("error")) line += " ! " + item["error"].get_ref<const std::string&>();
    if (item.contains("unit")) line += " " + item["unit"].get_ref<const std::string&>();
    for (const char* name : {"min", "max", "inc", "entries", "selects"}) {
        if (item.contains(name)) line += fmt::format(" {}={}", name, json_text(item[name]));
    }
    return line;
}

} // namespace

int show_document(const document_options& options) {
    const auto text = GenICam::document_text(read_file(options.file));
    if (!text) {
        const bool large = text.error() == std::errc::file_too_large;
        throw failure(cause::arguments, fmt::format("'{}' {}.", options.file,
                                                    large ? "is larger than any document" : "is no sound archive"));
    }
    memory_port memory{options.memory.empty() ? std::nullopt : std::optional{read_file(options.memory)}};
    const auto begin = std::chrono::steady_clock::now();
    const auto document = GenICam::create_document(std::string_view{*text});
    const std::chrono::duration<double> load_time = std::chrono::steady_clock::now() - begin;
    if (!document) throw failure(cause::arguments, fmt::format("'{}' is no well-formed XML.", options.file));
    if (auto* port = document->find<GenICam::IPort>("Device")) static_cast<void>(port->bind(&memory, 0));

    size_t count = 0;
    nlohmann::json list = nlohmann::json::array();
    const auto read_begin = std::chrono::steady_clock::now();
    document->for_each_node([&](GenICam::INode* node) {
        ++count;
        nlohmann::json item = describe(*node);
        if (options.json) {
            list.push_back(std::move(item));
        } else {
            print("{}\n", line_of(item));
        }
    });
    const std::chrono::duration<double> read_time = std::chrono::steady_clock::now() - read_begin;
    if (options.json) {
        nlohmann::json object{{"nodes", list}, {"count", count}};
        if (options.time) {
            object["load_s"] = load_time.count();
            object["nodes_per_s"] = static_cast<double>(count) / read_time.count();
        }
        print_json(object);
    } else if (options.time) {
        print("loaded {} nodes in {:.2f} ms, listed {:.0f} nodes/s\n", count, load_time.count() * 1e3,
              static_cast<double>(count) / read_time.count());
    }
    return 0;
}

} // namespace cli
