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

// Each value read through the cache equals itself read past it, in both orders, before and after writes. Every byte of
// the device is another, and none of them changes by itself.
void check_cache(IGenICamDoc& doc) {
    counting_device device;
    device.unwritten = [](int64_t at) {
        return static_cast<std::byte>((static_cast<uint64_t>(at) * 2654435761U) >> 16 & 0x7F);
    };
    ASSERT_THAT(doc.find<IPort>("Device")->bind(&device, bind_flags::clear_cache | bind_flags::invalidate), Passes());
    const auto nodes = nodes_of(doc);
    const auto compare = [&](const char* when) {
        const auto one = [&](INode* node) {
            EXPECT_EQ(value_text(*node, 0), value_text(*node, bypass_cache)) << node->get_name() << " " << when;
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

void check(const std::string& text, std::size_t least_nodes) {
    log_capture log;
    const auto doc = create_document(text);
    ASSERT_NE(doc, nullptr);
    EXPECT_THAT(log.lines, ::testing::IsEmpty());
    const auto nodes = nodes_of(*doc);
    EXPECT_GT(nodes.size(), least_nodes);
    for (const INode* node : nodes) EXPECT_EQ(node->get_fault(), "") << node->get_name();
    EXPECT_GT(doc->get_root_features().size(), 20u);
    EXPECT_FALSE(doc->get_document_info().vendor_name.empty());

    // Against a device whose every register reads 0: values come and formulas run.
    counting_device device;
    ASSERT_THAT(doc->find<IPort>("Device")->bind(&device, 0), Passes());
    std::size_t values = 0;
    for (INode* node : nodes) {
        read_everything(*node);
        const std::string value = value_text(*node, 0);
        values += !value.empty() && value[0] != '!';
    }
    EXPECT_GT(values, nodes.size() / 2);
    EXPECT_GT(device.reads, 10);
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
    const char* const command = "gresource extract /usr/lib/*/libaravis-0.8.so.0 "
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
