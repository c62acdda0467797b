// Documents of real cameras. They are not ours to keep, so a folder of them is named from outside.
#include "support.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>

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

TEST(MakerDocuments, LoadWithoutAFaultOfOurs) {
    const auto files = document_files();
    if (files.empty()) GTEST_SKIP() << "ORV_TEST_DOCUMENTS names no folder with .xml files of cameras";
    for (const auto& file : files) {
        SCOPED_TRACE(file.filename().string());
        log_capture log;
        const auto doc = create_document(text_of_file(file));
        ASSERT_NE(doc, nullptr);
        for (const std::string& line : log.lines) std::cout << "  " << line << '\n';
        int nodes = 0;
        doc->for_each_node([&](INode*) { ++nodes; });
        EXPECT_GT(nodes, 300);
        EXPECT_GT(doc->get_root_features().size(), 50u);
        EXPECT_FALSE(doc->get_document_info().vendor_name.empty());
        std::cout << "  " << nodes << " nodes, " << doc->get_root_features().size() << " features\n";

        // Against a device whose every register reads 0: values come, formulas run, nothing else is at fault.
        counting_device device;
        ASSERT_FALSE(doc->find<IPort>("Device")->bind(&device, 0));
        log.lines.clear();
        int values = 0;
        doc->for_each_node([&](INode* node) { values += read_everything(*node); });
        std::cout << "  " << values << " values, " << device.reads << " reads\n";
        const std::set<std::string> unlike(log.lines.begin(), log.lines.end());
        for (const std::string& line : unlike) std::cout << "    " << line << '\n';
        EXPECT_GT(values, nodes / 2);
    }
}

} // namespace
} // namespace GenICam::testing
