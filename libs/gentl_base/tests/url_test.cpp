#include <GenICam/document_url.h>
#include <gentl_producer/Port.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

using GenTL::Producer::parse_url;

TEST(Url, RecordHoldsWhatTheTextSays) {
    const auto local = parse_url("Local:///cam_2_3_4.xml;F0000000;3E8?SchemaVersion=1.2.0");
    EXPECT_TRUE(local.has_scheme);
    EXPECT_EQ(local.scheme, 0);
    EXPECT_EQ(local.address, 0xF0000000U);
    EXPECT_EQ(local.size, 0x3E8U);
    EXPECT_EQ(local.file_name, "cam_2_3_4.xml");
    EXPECT_EQ(local.schema_major * 10 + local.schema_minor, 12U);
    EXPECT_EQ(local.file_major * 100 + local.file_minor * 10 + local.file_subminor, 234U);
    EXPECT_EQ(parse_url("http://host/dir/cam.xml").scheme, 1);
    EXPECT_EQ(parse_url("File:///dir/cam.xml").scheme, 2);
    EXPECT_FALSE(parse_url("file:///dir/cam.xml").address) << "no registers, so nothing to read there";
}

TEST(Url, WhatDoesNotParseKeepsOnlyItsText) {
    const auto record = parse_url("local:cam.xml;1G;20");
    EXPECT_EQ(record.url, "local:cam.xml;1G;20");
    EXPECT_FALSE(record.has_scheme || record.address || record.size || record.file_name);
}

namespace {

struct port_of_url final : GenTL::Producer::PortImpl {
    explicit port_of_url(std::string text) : PortImpl("port", {}), url(std::move(text)) {}
    std::expected<std::vector<std::string>, GenTL::Error> load_url_list_() override { return std::vector{url}; }
    GenTL::Error Read(uint64_t, void*, size_t* size) override {
        asked = *size;
        return GenTL::success();
    }
    GenTL::Error Write(uint64_t, const void*, size_t*) override { return GenTL::success(); }

    std::string url;
    std::optional<size_t> asked;
};

} // namespace

TEST(Url, NothingIsReadBeyondTheLargestDocument) {
    port_of_url largest{fmt::format("local:cam.xml;0;{:X}", GenICam::largest_document)};
    EXPECT_TRUE(largest.read_document(0));
    EXPECT_EQ(largest.asked, GenICam::largest_document);
    port_of_url beyond{fmt::format("local:cam.xml;0;{:X}", GenICam::largest_document + 1)};
    EXPECT_FALSE(beyond.read_document(0));
    EXPECT_FALSE(beyond.asked);
}
