// Documents of real cameras. They are not ours to keep, so a folder of them is named from outside.
#include "support.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace GenICam::testing {
namespace {

std::vector<std::filesystem::path> document_files() {
    std::vector<std::filesystem::path> files;
    const char* folder = std::getenv("ORV_TEST_DOCUMENTS");
    if (folder == nullptr) return files;
    for (const auto& entry : std::filesystem::directory_iterator{folder}) {
        if (entry.path().extension() == ".xml") files.push_back(entry.path());
    }
    std::ranges::sort(files);
    return files;
}

std::string text_of_file(const std::filesystem::path& file) {
    std::ifstream in{file, std::ios::binary};
    return {std::istreambuf_iterator<char>{in}, {}};
}

// Reads whatever a node has to say. Returns the number of values read.
int read_everything(INode& node) {
    (void)node.get_access_mode();
    (void)node.is_available();
    (void)node.is_implemented();
    (void)node.is_locked();
    (void)node.getVisibility();
    std::vector<INode*> dependents;
    node.get_dependent_nodes(dependents);
    switch (node.node_type()) {
    case NodeType_t::Integer: {
        auto& integer = static_cast<IInteger&>(node);
        (void)integer.get_min(0);
        (void)integer.get_max(0);
        (void)integer.get_inc(0);
        (void)integer.get_representation();
        (void)integer.get_valid_value_set(0);
        return integer.get_val(0).has_value();
    }
    case NodeType_t::Float: {
        auto& real = static_cast<IFloat&>(node);
        (void)real.get_min(0);
        (void)real.get_max(0);
        (void)real.get_inc(0);
        (void)real.get_unit();
        (void)real.get_display_precision();
        return real.get_val(0).has_value();
    }
    case NodeType_t::Boolean:
        return static_cast<IBoolean&>(node).get_val(0).has_value();
    case NodeType_t::Enumeration:
        return static_cast<IEnumeration&>(node).get_val(0).has_value();
    case NodeType_t::String:
        return static_cast<IString&>(node).get_val(0).has_value();
    case NodeType_t::Command:
        return static_cast<ICommand&>(node).is_done(0).has_value();
    default:
        return 0;
    }
}

// Every byte another, none of them changes by itself.
class patterned_device final : public IDevicePort {
public:
    result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        for (std::size_t i = 0; i < data.size(); ++i) {
            const auto at = static_cast<uint64_t>(address) + i;
            const auto found = written.find(at);
            data[i] = found != written.end() ? found->second : static_cast<std::byte>((at * 2654435761U) >> 16 & 0x7F);
        }
        return data.size();
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        ++writes;
        for (std::size_t i = 0; i < data.size(); ++i) written[static_cast<uint64_t>(address) + i] = data[i];
        return {};
    }
    std::map<uint64_t, std::byte> written;
    int writes = 0;
};

// A number's value as text, so that NaN equals itself; the error's otherwise.
std::string number_text(INode& node, unsigned flags) {
    const auto text = [](const auto& value) { return value ? std::to_string(*value) : "! " + value.error().message(); };
    if (auto* integer = node_cast<IInteger>(&node)) return text(integer->get_val(flags));
    if (auto* real = node_cast<IFloat>(&node)) return text(real->get_val(flags));
    return {};
}

// Each number read through the cache equals itself read past it, in both orders, before and after writes.
void check_cache(IGenICamDoc& doc) {
    patterned_device device;
    ASSERT_THAT(doc.find<IPort>("Device")->bind(&device, bind_flags::clear_cache | bind_flags::invalidate), Passes());
    std::vector<INode*> nodes;
    doc.for_each_node([&](INode* node) { nodes.push_back(node); });
    const auto compare = [&](const char* when) {
        const auto one = [&](INode* node) {
            EXPECT_EQ(number_text(*node, 0), number_text(*node, bypass_cache)) << node->get_name() << " " << when;
        };
        std::ranges::for_each(nodes, one);
        std::for_each(nodes.rbegin(), nodes.rend(), one);
    };
    compare("at first");
    for (const unsigned flags : {unsigned{no_range_check}, no_range_check | bypass_cache}) {
        for (INode* node : nodes) {
            if (auto* integer = node_cast<IInteger>(node))
                (void)integer->set_val(integer->get_val(0).value_or(0) ^ 1, flags);
            if (auto* real = node_cast<IFloat>(node)) (void)real->set_val(real->get_val(0).value_or(0) + 1, flags);
        }
        EXPECT_GT(device.writes, 10);
        compare("after writes");
    }
    doc.find<IPort>("Device")->unbind(bind_flags::clear_cache | bind_flags::invalidate);
}

void check(const std::string& text, int least_nodes) {
    log_capture log;
    const auto doc = create_document(text);
    ASSERT_NE(doc, nullptr);
    EXPECT_THAT(log.lines, ::testing::IsEmpty());
    int nodes = 0;
    doc->for_each_node([&](INode*) { ++nodes; });
    EXPECT_GT(nodes, least_nodes);
    doc->for_each_node([](INode* node) { EXPECT_EQ(node->get_fault(), "") << node->get_name(); });
    EXPECT_GT(doc->get_root_features().size(), 20u);
    EXPECT_FALSE(doc->get_document_info().vendor_name.empty());

    // Against a device whose every register reads 0: values come and formulas run.
    counting_device device;
    ASSERT_THAT(doc->find<IPort>("Device")->bind(&device, 0), Passes());
    int values = 0;
    doc->for_each_node([&](INode* node) { values += read_everything(*node); });
    EXPECT_GT(values, nodes / 2);
    EXPECT_GT(device.reads, 10);
    // From the cache now, but for what must not be cached.
    const int reads = device.reads;
    doc->for_each_node([&](INode* node) { (void)read_everything(*node); });
    EXPECT_LE(device.reads, 2 * reads);
    doc->find<IPort>("Device")->unbind(0);
    check_cache(*doc);
}

TEST(MakerDocuments, LoadWithoutAFaultOfOurs) {
    const auto files = document_files();
    if (files.empty()) GTEST_SKIP() << "ORV_TEST_DOCUMENTS names no folder with .xml files of cameras";
    for (const auto& file : files) {
        SCOPED_TRACE(file.filename().string());
        check(text_of_file(file), 300);
    }
}

// The document of Debian's independent camera, which stands as a resource in its library.
TEST(MakerDocuments, AravisFakeCamera) {
    const char* const command = "gresource extract /usr/lib/x86_64-linux-gnu/libaravis-0.8.so.0 "
                                "/org/aravis/arv-fake-camera.xml 2>/dev/null";
    std::string text;
    if (FILE* pipe = popen(command, "r")) {
        char part[4096];
        while (const std::size_t count = std::fread(part, 1, sizeof part, pipe)) text.append(part, count);
        pclose(pipe);
    }
    if (text.empty()) GTEST_SKIP() << "needs gresource (libglib2.0-bin) and libaravis-0.8-0";
    check(text, 50);
}

} // namespace
} // namespace GenICam::testing
