#include <GenICam/document_url.h>

#include <gtest/gtest.h>

namespace GenICam::testing {
namespace {

TEST(DocumentUrl, Forms) {
    using version = std::array<uint32_t, 3>;
    const version none{};
    const auto of = [](uint32_t a, uint32_t b, uint32_t c) { return version{a, b, c}; };
    struct {
        const char* text;
        url_scheme scheme;
        const char *name, *file_name;
        uint64_t address, size;
        version file_version, schema_version;
    } const cases[]{
        {"Local:cam.xml;1000;2F", url_scheme::local, "cam.xml", "cam.xml", 0x1000, 0x2F, none, none},
        {"LOCAL:///cam_1_2_3.zip;0x1000;0X2f?SchemaVersion=1.1.0", url_scheme::local, "cam_1_2_3.zip", "cam_1_2_3.zip",
         0x1000, 0x2F, of(1, 2, 3), of(1, 1, 0)},
        {"local:a_b_2_0_11.XML; 0;FF00000000 ", url_scheme::local, "a_b_2_0_11.XML", "a_b_2_0_11.XML", 0, 0xFF00000000,
         of(2, 0, 11), none},
        {"local:c.xml;10;20?SchemaVersion=1.1", url_scheme::local, "c.xml", "c.xml", 16, 32, none, of(1, 1, 0)},
        {"local:c.xml;10;20 ?SchemaVersion=1.1.0  ", url_scheme::local, "c.xml", "c.xml", 16, 32, none, of(1, 1, 0)},
        {"local:c.xml;10;20?SchemaVersion=1", url_scheme::local, "c.xml", "c.xml", 16, 32, none, none},
        {"local:c.xml;10;20?SchemaVersion=1.1.0x", url_scheme::local, "c.xml", "c.xml", 16, 32, none, none},
        {"file:///opt/cam_1_0_0.xml", url_scheme::file, "/opt/cam_1_0_0.xml", "cam_1_0_0.xml", 0, 0, of(1, 0, 0), none},
        {"File:cam_1_2.xml", url_scheme::file, "cam_1_2.xml", "cam_1_2.xml", 0, 0, none, none},
        {"HTTP://host:8080/d/cam.xml?id=3&schemaversion=1.0.1", url_scheme::http,
         "http://host:8080/d/cam.xml?id=3&schemaversion=1.0.1", "cam.xml", 0, 0, none, of(1, 0, 1)},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text);
        const document_url got = parse_document_url(each.text);
        EXPECT_EQ(got.url, each.text);
        EXPECT_EQ(got.scheme, each.scheme);
        EXPECT_EQ(got.name, each.name);
        EXPECT_EQ(got.file_name(), each.file_name);
        EXPECT_EQ(got.address, each.address);
        EXPECT_EQ(got.size, each.size);
        EXPECT_EQ(got.file_version, each.file_version);
        EXPECT_EQ(got.schema_version, each.schema_version);
    }
}

TEST(DocumentUrl, WhatDoesNotParseKeepsOnlyItsText) {
    for (const char* text : {"", "local:", "local:cam.xml", "local:cam.xml;10", "local:cam.xml;1G;20",
                             "local:cam.xml;10;", "local:cam.xml;10;20000000000000000", "local:;10;20",
                             "http:", "http://", "file:", "file:///", "ftp://host/cam.xml"}) {
        const document_url got = parse_document_url(text);
        EXPECT_EQ(got.url, text);
        EXPECT_FALSE(got.scheme) << text;
        EXPECT_TRUE(got.name.empty() && got.address == 0 && got.size == 0) << text;
    }
}

TEST(DocumentUrl, ZippedByTheNameOfTheFile) {
    EXPECT_TRUE(parse_document_url("local:cam.ZIP;1;2").zipped());
    EXPECT_TRUE(parse_document_url("http://host/cam.zip?id=1").zipped());
    EXPECT_FALSE(parse_document_url("http://host/cam.xml?id=1.zip").zipped());
    EXPECT_FALSE(parse_document_url("local:zip;1;2").zipped());
}

} // namespace
} // namespace GenICam::testing
