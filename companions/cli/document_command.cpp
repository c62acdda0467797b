#include "document_command.h"

#include "node_map.h"

#include <GenICam/zip.h>

#include <fmt/format.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace cli {

namespace {

std::string read_file(const std::string& path) {
    std::ifstream file{path, std::ios::binary};
    if (!file) throw std::runtime_error(fmt::format("Cannot read '{}'.", path));
    return {std::istreambuf_iterator<char>{file}, {}};
}

// A device of zeros that keeps what is written to it, over the whole address space.
class memory_port final : public GenICam::IDevicePort {
public:
    explicit memory_port(std::string content) : start(std::move(content)) {}
    GenICam::result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        for (std::size_t i = 0; i < data.size(); ++i) {
            const auto at = static_cast<uint64_t>(address) + i;
            const auto found = written.find(at);
            data[i] = found != written.end() ? found->second
                      : at < start.size()    ? static_cast<std::byte>(start[at])
                                             : std::byte{0};
        }
        return data.size();
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        for (std::size_t i = 0; i < data.size(); ++i) written[static_cast<uint64_t>(address) + i] = data[i];
        return {};
    }

private:
    const std::string start;
    std::map<uint64_t, std::byte> written;
};

} // namespace

int show_document(const document_options& options) {
    std::string text = read_file(options.file);
    if (GenICam::is_zipped(std::as_bytes(std::span{text}))) {
        auto inflated = GenICam::inflate_document(std::as_bytes(std::span{text}));
        if (!inflated) throw std::runtime_error(fmt::format("'{}' is no sound archive.", options.file));
        text = std::move(*inflated);
    }
    memory_port memory{options.memory.empty() ? std::string{} : read_file(options.memory)};
    const auto begin = std::chrono::steady_clock::now();
    const auto document = GenICam::create_document(std::string_view{text});
    const std::chrono::duration<double> load_time = std::chrono::steady_clock::now() - begin;
    if (!document) throw std::runtime_error(fmt::format("'{}' is no well-formed XML.", options.file));
    if (auto* port = document->find<GenICam::IPort>("Device")) static_cast<void>(port->bind(&memory, 0));

    std::size_t count = 0;
    nlohmann::json list = nlohmann::json::array();
    const auto read_begin = std::chrono::steady_clock::now();
    document->for_each_node([&](GenICam::INode* node) {
        ++count;
        nlohmann::json item = describe(*node);
        if (options.json) {
            list.push_back(std::move(item));
        } else {
            fmt::print(
                "{:<44} {:<12} {:<3} {:<9} {}\n", item["name"].get<std::string>(), item["kind"].get<std::string>(),
                item["access"].get<std::string>(), item["visibility"].get<std::string>(),
                item.contains("value")   ? item["value"].dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
                : item.contains("error") ? "! " + item["error"].get<std::string>()
                                         : "");
        }
    });
    const std::chrono::duration<double> read_time = std::chrono::steady_clock::now() - read_begin;
    if (options.json) {
        nlohmann::json object{{"nodes", list}, {"count", count}};
        if (options.time) {
            object["load_s"] = load_time.count();
            object["nodes_per_s"] = static_cast<double>(count) / read_time.count();
        }
        fmt::print("{}\n", object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    } else if (options.time) {
        fmt::print("loaded {} nodes in {:.2f} ms, listed {:.0f} nodes/s\n", count, load_time.count() * 1e3,
                   static_cast<double>(count) / read_time.count());
    }
    return 0;
}

} // namespace cli
