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

// What a document of theirs causes itself: ROUND with one argument, which the formula language does not have.
bool is_their_fault(const std::string& line) {
    return line.find("ROUND(FROM*SCALE") != std::string::npos ||
           line == "1 km_parse_tree failed with result=4. Last token view: ')'.";
}

void check(const std::string& text, int least_nodes) {
    log_capture log;
    const auto doc = create_document(text);
    ASSERT_NE(doc, nullptr);
    for (const std::string& line : log.lines) EXPECT_TRUE(is_their_fault(line)) << line;
    int nodes = 0;
    doc->for_each_node([&](INode*) { ++nodes; });
    EXPECT_GT(nodes, least_nodes);
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
